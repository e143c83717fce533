#include "Golden.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "TempFolder.h"

namespace
{

bool g_bWrite = false;

}  // namespace

void ExpectGolden(const char* pszFile, const std::string& strText)
{
    const std::string strPath = std::string(OSPREY_GOLDEN) + "/" + pszFile;
    if (g_bWrite)
    {
        std::ofstream(strPath) << strText;
        return;
    }
    std::istringstream expected(ReadFile(strPath));
    std::istringstream actual(strText);
    std::string strExpected;
    std::string strActual;
    for (int nLine = 1; expected || actual; ++nLine)
    {
        strExpected.clear();
        strActual.clear();
        std::getline(expected, strExpected);
        std::getline(actual, strActual);
        ASSERT_EQ(strActual, strExpected)
            << "line " << nLine << " of " << pszFile << "; DissectorTests --write renews it";
    }
}

int main(int nArguments, char** ppszArguments)
{
    testing::InitGoogleTest(&nArguments, ppszArguments);
    g_bWrite = nArguments == 2 && strcmp(ppszArguments[1], "--write") == 0;
    if (nArguments > 1 && !g_bWrite)
    {
        fprintf(stderr, "usage: DissectorTests [--write]\n");
        return 2;
    }
    return RUN_ALL_TESTS();
}
