#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "TempFolder.h"
#include "ToolProcess.h"

// The scripts are run by the shells that they are for; a shell that is not installed is skipped.

namespace
{

bool HasShell(const std::string& strShell)
{
    return system(("command -v " + strShell + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<std::string> LinesOf(const std::string& strCommand)
{
    std::vector<std::string> listLines;
    FILE* pPipe = popen(strCommand.c_str(), "r");
    char szLine[4096];
    while (pPipe != nullptr && fgets(szLine, sizeof szLine, pPipe) != nullptr)
    {
        listLines.emplace_back(szLine);
        listLines.back().pop_back();
    }
    EXPECT_EQ(pclose(pPipe), 0) << strCommand;
    return listLines;
}

std::string ScriptFor(const std::string& strShell)
{
    const CToolRun run({"completion", strShell});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strErrors, "");
    return run.m_strOutput;
}

// The long options that a command's help names, each with the two dashes.
std::vector<std::string> OptionsOf(const std::string& strCommand)
{
    std::vector<std::string> listOptions;
    std::istringstream help(CToolRun({strCommand, "--help"}).m_strOutput);
    for (std::string strLine; std::getline(help, strLine);)
    {
        const size_t nBegin = strLine.find("--");
        if (strLine.compare(0, 3, "  -") == 0 && nBegin != std::string::npos)
        {
            listOptions.push_back(
                strLine.substr(nBegin, strLine.find_first_of(" ,", nBegin) - nBegin));
        }
    }
    return listOptions;
}

const char* const COMMANDS[] = {"serve", "submit", "download", "publish", "subscribe", "version"};

class CCompletion : public ::testing::Test
{
protected:
    void Write(const std::string& strShell)
    {
        m_strScript = m_folder.WriteFile("script", ScriptFor(strShell));
        m_folder.WriteFile("some file", "");
    }
    // What bash offers for the last of the words.
    std::vector<std::string> Bash(const std::string& strWords) const
    {
        return LinesOf("cd '" + m_folder.GetPath() + "' && bash -c 'source ./script; COMP_WORDS=(" +
                       strWords +
                       "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _osprey; "
                       "((${#COMPREPLY[@]} == 0)) || printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
    }
    // The same for fish, which adds a description behind a tabulator.
    std::vector<std::string> Fish(const std::string& strLine) const
    {
        std::vector<std::string> listLines =
            LinesOf("cd '" + m_folder.GetPath() + "' && HOME='" + m_folder.GetPath() +
                    "' fish -c 'source ./script; complete -C \"" + strLine + "\"'");
        for (std::string& strOffer : listLines)
        {
            strOffer = strOffer.substr(0, strOffer.find('\t'));
        }
        return listLines;
    }
    static void ExpectAll(const std::vector<std::string>& listOffers,
                          const std::vector<std::string>& listWanted)
    {
        for (const std::string& strWanted : listWanted)
        {
            EXPECT_EQ(std::count(listOffers.begin(), listOffers.end(), strWanted), 1) << strWanted;
        }
    }

    CTempFolder m_folder;
    std::string m_strScript;
};

using Completion = CCompletion;

}  // namespace

TEST_F(Completion, OfBashOffersCommandsOptionsAndFiles)
{
    Write("bash");
    EXPECT_EQ(Bash("osprey su"), (std::vector<std::string>{"submit", "subscribe"}));
    for (const char* pszCommand : COMMANDS)
    {
        ExpectAll(Bash(std::string("osprey ") + pszCommand + " --"), OptionsOf(pszCommand));
    }
    EXPECT_EQ(Bash("osprey submit host som"), std::vector<std::string>{"some file"});
    EXPECT_EQ(Bash("osprey serve --root som"), std::vector<std::string>{});
    EXPECT_EQ(Bash("osprey serve --trace som"), std::vector<std::string>{"some file"});
    EXPECT_EQ(Bash("osprey download host som"), std::vector<std::string>{});
}

TEST_F(Completion, OfFishOffersCommandsOptionsAndFiles)
{
    if (!HasShell("fish"))
    {
        GTEST_SKIP() << "there is no fish here";
    }
    Write("fish");
    EXPECT_EQ(Fish("osprey su"), (std::vector<std::string>{"submit", "subscribe"}));
    for (const char* pszCommand : COMMANDS)
    {
        std::vector<std::string> listWanted = OptionsOf(pszCommand);
        ExpectAll(Fish(std::string("osprey ") + pszCommand + " --"), listWanted);
    }
    EXPECT_EQ(Fish("osprey submit host som").size(), 1U);
    EXPECT_EQ(Fish("osprey download host som"), std::vector<std::string>{});
}

TEST_F(Completion, OfZshNamesCommandsAndOptionsAndIsSound)
{
    Write("zsh");
    const std::string strScript = ReadFile(m_strScript);
    for (const char* pszCommand : COMMANDS)
    {
        EXPECT_NE(strScript.find(std::string("        ") + pszCommand + ")\n"), std::string::npos);
        for (const std::string& strOption : OptionsOf(pszCommand))
        {
            EXPECT_NE(strScript.find("'*" + strOption + "["), std::string::npos) << strOption;
        }
    }
    if (!HasShell("zsh"))
    {
        GTEST_SKIP() << "there is no zsh here";
    }
    EXPECT_EQ(LinesOf("zsh -f -c 'autoload -Uz compinit && compinit -D && source " + m_strScript +
                      " && print $_comps[osprey]'"),
              std::vector<std::string>{"_osprey"});
}
