#include "FuzzRoot.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "FuzzInput.h"

namespace
{

const size_t SMALL_SIZE = 10;
const size_t LARGE_SIZE = 70000;
const size_t LONG_NAME_SIZE = 5000;

// What has to be removed to be rid of the place.
const char* GetFirstPart(unsigned int dwPlace)
{
    static const char* const PARTS[PLACE_COUNT] = {"small",  "large",  "empty",   "new",
                                                   "folder", "folder", "missing", "fifo",
                                                   "link",   "full",   "long",    "refused"};
    return PARTS[dwPlace % PLACE_COUNT];
}

}  // namespace

CFuzzRoot::CFuzzRoot()
{
    m_strPath = (std::filesystem::temp_directory_path() / "osprey-fuzz-XXXXXX").string();
    Require(mkdtemp(m_strPath.data()) != nullptr, "a folder can be made");
    m_dwChanged = (1U << PLACE_COUNT) - 1;
    Restore();
}

CFuzzRoot::~CFuzzRoot()
{
    std::error_code error;
    std::filesystem::remove_all(m_strPath, error);
}

std::string CFuzzRoot::GetPath(unsigned int dwPlace) const
{
    std::string strFirst = m_strPath + "/" + GetFirstPart(dwPlace);
    switch (dwPlace % PLACE_COUNT)
    {
        case PLACE_INNER:
            return strFirst + "/inner";
        case PLACE_MISSING:
            return strFirst + "/deep/path";
        case PLACE_LONG:
            return strFirst + std::string(LONG_NAME_SIZE, 'x');
        case PLACE_REFUSED:
            return strFirst + "/refused";
        default:
            return strFirst;
    }
}

std::string CFuzzRoot::GetPathToChange(unsigned int dwPlace)
{
    m_dwChanged |= 1U << dwPlace % PLACE_COUNT;
    return GetPath(dwPlace);
}

void CFuzzRoot::WriteFile(unsigned int dwPlace, size_t nSize) const
{
    std::ofstream file(GetPath(dwPlace), std::ios::binary);
    file << std::string(nSize, 'f');
}

void CFuzzRoot::Make(unsigned int dwPlace) const
{
    const std::string strPath = GetPath(dwPlace);
    switch (dwPlace)
    {
        case PLACE_SMALL:
            return WriteFile(dwPlace, SMALL_SIZE);
        case PLACE_LARGE:
            return WriteFile(dwPlace, LARGE_SIZE);
        case PLACE_EMPTY:
            return WriteFile(dwPlace, 0);
        case PLACE_FOLDER:
        case PLACE_INNER:
            mkdir(GetPath(PLACE_FOLDER).c_str(), 0755);
            return;
        case PLACE_FIFO:
            Require(mkfifo(strPath.c_str(), 0644) == 0, "a FIFO can be made");
            return;
        case PLACE_LINK:
            Require(symlink("target", strPath.c_str()) == 0, "a link can be made");
            return;
        case PLACE_FULL:
            Require(symlink("/dev/full", strPath.c_str()) == 0, "a link can be made");
            return;
        case PLACE_REFUSED:
            std::ofstream(m_strPath + "/" + GetFirstPart(dwPlace)).put('r');
            return;
        default:
            return;
    }
}

void CFuzzRoot::Restore()
{
    for (unsigned int i = 0; m_dwChanged != 0 && i < PLACE_COUNT; ++i)
    {
        if ((m_dwChanged >> i & 1) != 0)
        {
            std::error_code error;
            std::filesystem::remove_all(m_strPath + "/" + GetFirstPart(i), error);
            std::filesystem::remove(m_strPath + "/target", error);
            Require(!error, "what was made can be removed");
            Make(i);
        }
    }
    m_dwChanged = 0;
}
