// The library's sources stand in its build file bottom-up, layer by layer. A header includes only
// headers of files above it, so that no two classes need each other to be declared; a source may
// include headers of its whole layer, and of those above. A header without a source of its own
// counts as what it includes itself.

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

const fs::path CLIENT_DIR = OSPREY_CLIENT_DIR;
const int LAYER = 100;
const fs::path CONVERT_DIR = CLIENT_DIR.parent_path() / "LibConvertUTF";

std::string Contents(const fs::path& path)
{
    std::ifstream file(path);
    EXPECT_TRUE(file.good()) << path;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::vector<std::string> Matches(const std::string& strText, const char* pszPattern)
{
    const std::regex pattern(pszPattern);
    std::vector<std::string> found;
    for (std::sregex_iterator it(strText.begin(), strText.end(), pattern), end; it != end; ++it)
    {
        found.push_back((*it)[1]);
    }
    return found;
}

// Rank of each source, by its name without ".cpp": those of one layer lie within one hundred.
std::map<std::string, int> ReadRanks()
{
    const std::string strBuild = Contents(CLIENT_DIR / "CMakeLists.txt");
    const size_t nStart = strBuild.find("set(OSPREY_SOURCES");
    const std::string strList = strBuild.substr(nStart, strBuild.find("\n)", nStart) - nStart);
    std::map<std::string, int> ranks;
    int nRank = 0;
    for (const std::string& strEntry : Matches(strList, "(# \\w+|\\w+\\.cpp)"))
    {
        if (strEntry[0] == '#')
        {
            nRank = (nRank / LAYER + 1) * LAYER;
        }
        else
        {
            ranks[strEntry.substr(0, strEntry.find('.'))] = nRank++;
        }
    }
    return ranks;
}

class CLayers : public ::testing::Test
{
protected:
    void CheckIncludes(const std::string& strStem, int nRank, const fs::path& path);

    const std::map<std::string, int> m_ranks = ReadRanks();
    std::set<fs::path> m_seen;
};
using Layers = CLayers;

void CLayers::CheckIncludes(const std::string& strStem, int nRank, const fs::path& path)
{
    for (const std::string& strHeader : Matches(Contents(path), "(?:^|\\n)#include \"([^\"]+)\""))
    {
        const bool bConvert = fs::exists(CONVERT_DIR / strHeader);
        const fs::path header = (bConvert ? CONVERT_DIR : CLIENT_DIR) / strHeader;
        const auto it = m_ranks.find(header.stem());
        if (it != m_ranks.end())
        {
            EXPECT_LE(it->second, nRank)
                << strStem << " includes " << strHeader << ", which stands below it (through "
                << path.filename() << ")";
        }
        else if (m_seen.insert(header).second)
        {
            CheckIncludes(strStem, nRank, header);
        }
    }
}

TEST_F(Layers, NoFileIncludesAHeaderOfAFileBelowIt)
{
    ASSERT_GT(m_ranks.size(), 15U);
    for (const auto& [strStem, nRank] : m_ranks)
    {
        m_seen.clear();
        if (fs::exists(CLIENT_DIR / (strStem + ".h")))
        {
            CheckIncludes(strStem, nRank, CLIENT_DIR / (strStem + ".h"));
        }
        m_seen.clear();
        CheckIncludes(strStem, nRank / LAYER * LAYER + LAYER - 1, CLIENT_DIR / (strStem + ".cpp"));
    }
}

TEST_F(Layers, HeadersWithoutASourceDoNotIncludeEachOtherInACircle)
{
    for (const fs::directory_entry& entry : fs::directory_iterator(CLIENT_DIR))
    {
        const fs::path& path = entry.path();
        if (path.extension() != ".h" || m_ranks.count(path.stem()) != 0)
        {
            continue;
        }
        m_seen.clear();
        CheckIncludes(path.stem(), INT_MAX, path);
        EXPECT_EQ(m_seen.count(path), 0U) << path;
    }
}

}  // namespace
