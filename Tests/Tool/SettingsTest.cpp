#include "Settings.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "CommandLine.h"
#include "TempFolder.h"

// One option, --jobs, through every pair of the places that may say it; then what else a file
// holds.

namespace
{

class CVariable
{
public:
    CVariable(const char* pszName, const std::string& strValue) : m_pszName(pszName)
    {
        setenv(pszName, strValue.c_str(), 1);
    }
    ~CVariable()
    {
        unsetenv(m_pszName);
    }
    CVariable(const CVariable&) = delete;
    CVariable& operator=(const CVariable&) = delete;

private:
    const char* m_pszName;
};

class CSettings : public ::testing::Test
{
protected:
    void WriteConfig(const std::string& strContents)
    {
        m_folder.WriteFile("config.toml", strContents);
    }
    CParsed Parse(std::vector<const char*> listArguments)
    {
        listArguments.insert(listArguments.begin(), "osprey");
        return ParseCommandLine(static_cast<int>(listArguments.size()), listArguments.data(),
                                m_options);
    }
    unsigned int Jobs(const std::vector<const char*>& listMore)
    {
        std::vector<const char*> listArguments = {"submit", "h", "file"};
        listArguments.insert(listArguments.end(), listMore.begin(), listMore.end());
        const CParsed parsed = Parse(listArguments);
        EXPECT_TRUE(parsed.m_bRun) << parsed.m_strError;
        return m_options.m_dwJobs;
    }

    CTempFolder m_folder;
    CVariable m_config{"OSPREY_CONFIG", m_folder.WriteFile("config.toml", "")};
    COptions m_options;
};

using Settings = CSettings;

}  // namespace

TEST_F(Settings, CommandLineGoesBeforeTheEnvironment)
{
    const CVariable jobs("OSPREY_JOBS", "3");
    EXPECT_EQ(Jobs({"--jobs", "4"}), 4U);
    EXPECT_EQ(Jobs({"-j5"}), 5U);
}

TEST_F(Settings, CommandLineGoesBeforeTheFile)
{
    WriteConfig("[submit]\njobs = 2\n");
    EXPECT_EQ(Jobs({"--jobs=4"}), 4U);
}

TEST_F(Settings, CommandLineGoesBeforeTheDefault)
{
    EXPECT_EQ(Jobs({"--jobs", "4"}), 4U);
}

TEST_F(Settings, EnvironmentGoesBeforeTheFile)
{
    const CVariable jobs("OSPREY_JOBS", "3");
    WriteConfig("[submit]\njobs = 2\n");
    EXPECT_EQ(Jobs({}), 3U);
}

TEST_F(Settings, EnvironmentGoesBeforeTheDefault)
{
    const CVariable jobs("OSPREY_JOBS", "3");
    EXPECT_EQ(Jobs({}), 3U);
}

TEST_F(Settings, FileGoesBeforeTheDefault)
{
    WriteConfig("[submit]\njobs = 2\n");
    EXPECT_EQ(Jobs({}), 2U);
}

TEST_F(Settings, DefaultStaysWhereNobodySaysAnything)
{
    WriteConfig("[download]\njobs = 2\n");
    EXPECT_EQ(Jobs({}), 1U);
}

TEST_F(Settings, OwnSectionGoesBeforeWhatIsForAllCommands)
{
    WriteConfig("jobs = 7\nquiet = true\n[submit]\njobs = 2\n");
    EXPECT_EQ(Jobs({}), 2U);
    EXPECT_TRUE(m_options.m_bQuiet);
    ASSERT_TRUE(Parse({"download", "h", "a"}).m_bRun);
    EXPECT_EQ(m_options.m_dwJobs, 7U);
}

TEST_F(Settings, RequiredOptionMayStandInTheFile)
{
    WriteConfig("[serve]\nroot = \"/srv/with blank\"\nport = 9000\nread-only = true\n");
    ASSERT_TRUE(Parse({"serve"}).m_bRun);
    EXPECT_EQ(m_options.m_strRoot, "/srv/with blank");
    EXPECT_EQ(m_options.m_wPort, 9000);
    EXPECT_TRUE(m_options.m_bReadOnly);
}

TEST_F(Settings, RepeatedOptionIsAnArray)
{
    WriteConfig("[publish]\nchannel = [\"1=-\", \"2=udp:5000\"]\n");
    ASSERT_TRUE(Parse({"publish"}).m_bRun);
    ASSERT_EQ(m_options.m_listSources.size(), 2U);
    EXPECT_EQ(m_options.m_listSources[1].m_dwChannel, 2U);
}

TEST_F(Settings, FlagThatIsFalseIsLeftOut)
{
    WriteConfig("json = false\n");
    const CVariable quiet("OSPREY_QUIET", "false");
    ASSERT_TRUE(Parse({"submit", "h", "a"}).m_bRun);
    EXPECT_FALSE(m_options.m_bJson);
    EXPECT_FALSE(m_options.m_bQuiet);
}

TEST_F(Settings, ArgumentsBehindTwoDashesStayNames)
{
    const CVariable jobs("OSPREY_JOBS", "3");
    ASSERT_TRUE(Parse({"submit", "h", "--", "--jobs=9"}).m_bRun);
    EXPECT_EQ(m_options.m_dwJobs, 3U);
    EXPECT_EQ(m_options.m_listNames, std::vector<std::string>{"--jobs=9"});
}

TEST_F(Settings, BadValueIsToldAsOnTheCommandLine)
{
    WriteConfig("[submit]\njobs = 65\n");
    const CParsed parsed = Parse({"submit", "h", "a"});
    EXPECT_EQ(parsed.m_nExitCode, EXIT_USAGE);
    EXPECT_EQ(parsed.m_strError.rfind("--jobs: ", 0), 0U) << parsed.m_strError;
}

TEST_F(Settings, OptionWithoutAValueIsNamed)
{
    for (const char* pszConfig : {"[serve]\nallow = []\n", "[serve]\ntrace = \"\"\n",
                                  "trace = ''\n", "[serve]\nallow = [\"10.0.0.1\", \"\"]\n"})
    {
        WriteConfig(pszConfig);
        const CParsed parsed = Parse({"serve", "--root", ".", "--read-only"});
        EXPECT_EQ(parsed.m_nExitCode, EXIT_USAGE) << pszConfig;
        EXPECT_NE(parsed.m_strError.find("has no value"), std::string::npos) << parsed.m_strError;
    }
}

TEST_F(Settings, OptionThatNoCommandHasIsNamed)
{
    for (const char* pszConfig : {"[submit]\njbos = 2\n", "[sumbit]\njobs = 2\n", "jbos = 2\n"})
    {
        WriteConfig(pszConfig);
        const CParsed parsed = Parse({"submit", "h", "a"});
        EXPECT_EQ(parsed.m_nExitCode, EXIT_USAGE);
        EXPECT_NE(parsed.m_strError.find("there is no option"), std::string::npos)
            << parsed.m_strError;
    }
}

TEST_F(Settings, FileThatWasAskedForMustBeThere)
{
    for (const std::string strPath : {"/none/such", "/"})
    {
        const CParsed parsed = Parse({"submit", "h", "a", "--config", strPath.c_str()});
        EXPECT_EQ(parsed.m_nExitCode, EXIT_USAGE);
        EXPECT_NE(parsed.m_strError.find("\"" + strPath + "\""), std::string::npos)
            << parsed.m_strError;
    }
}

TEST_F(Settings, FileOfTheCommandLineGoesBeforeThatOfTheEnvironment)
{
    WriteConfig("jobs = 2\n");
    const std::string strOther = m_folder.WriteFile("other.toml", "jobs = 6\n");
    EXPECT_EQ(Jobs({"--config", strOther.c_str()}), 6U);
}

TEST_F(Settings, UsersOwnFileIsFoundAndMayBeMissing)
{
    unsetenv("OSPREY_CONFIG");
    const CVariable home("XDG_CONFIG_HOME", m_folder.GetPath());
    EXPECT_EQ(Jobs({}), 1U);
    ASSERT_EQ(system(("mkdir " + m_folder.GetPath("osprey")).c_str()), 0);
    m_folder.WriteFile("osprey/config.toml", "jobs = 8\n");
    EXPECT_EQ(Jobs({}), 8U);
}
