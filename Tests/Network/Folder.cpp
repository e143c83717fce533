#include "Folder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

CFolder::CFolder()
{
    std::string strTemplate = std::filesystem::temp_directory_path() / "osprey-link-XXXXXX";
    if (mkdtemp(strTemplate.data()) == nullptr)
    {
        throw std::runtime_error("no folder for files: " + strTemplate);
    }
    m_strPath = strTemplate;
}

CFolder::~CFolder()
{
    std::error_code error;
    std::filesystem::remove_all(m_strPath, error);
}

std::string RandomBytes(int nBytes, int nSeed)
{
    std::mt19937 generator(static_cast<unsigned int>(nSeed));
    std::string strBytes(static_cast<size_t>(nBytes), '\0');
    for (char& c : strBytes)
    {
        c = static_cast<char>(generator() & 0xFFU);
    }
    return strBytes;
}

std::string Contents(const std::string& strPath)
{
    std::ifstream file(strPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
