#include "CommandLine.h"

#include <gtest/gtest.h>

namespace
{

CParsed Parse(std::vector<const char*> listArguments, COptions& options)
{
    listArguments.insert(listArguments.begin(), "osprey");
    return ParseCommandLine(static_cast<int>(listArguments.size()), listArguments.data(), options);
}

std::string Fault(const std::vector<const char*>& listArguments)
{
    COptions options;
    const CParsed parsed = Parse(listArguments, options);
    EXPECT_FALSE(parsed.m_bRun);
    EXPECT_EQ(parsed.m_nExitCode, EXIT_USAGE);
    EXPECT_EQ(parsed.m_strOutput, "");
    return parsed.m_strError;
}

std::string Help(const std::vector<const char*>& listArguments)
{
    COptions options;
    const CParsed parsed = Parse(listArguments, options);
    EXPECT_FALSE(parsed.m_bRun);
    EXPECT_EQ(parsed.m_nExitCode, EXIT_DONE);
    EXPECT_EQ(parsed.m_strError, "");
    return parsed.m_strOutput;
}

}  // namespace

TEST(CommandLine, ServeTakesItsOptions)
{
    COptions options;
    ASSERT_TRUE(
        Parse({"serve", "--root", "d", "--port", "0", "--read-only", "--json"}, options).m_bRun);
    EXPECT_EQ(options.m_eCommand, COMMAND_SERVE);
    EXPECT_EQ(options.m_strRoot, "d");
    EXPECT_EQ(options.m_wPort, 0);
    EXPECT_TRUE(options.m_bReadOnly);
    EXPECT_TRUE(options.m_bJson);
}

TEST(CommandLine, ServeListensOnTheDefaultPort)
{
    COptions options;
    ASSERT_TRUE(Parse({"serve", "--root", "d"}, options).m_bRun);
    EXPECT_EQ(options.m_wPort, OSPREY_DEFAULT_PORT);
    EXPECT_FALSE(options.m_bReadOnly);
}

TEST(CommandLine, SubmitTakesPathsAroundItsOptions)
{
    COptions options;
    ASSERT_TRUE(Parse({"submit", "h:9", "a", "--to", "x/y/", "b", "c"}, options).m_bRun);
    EXPECT_EQ(options.m_eCommand, COMMAND_SUBMIT);
    EXPECT_EQ(options.m_peer.ToString(), "h:9");
    EXPECT_EQ(options.m_listNames, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(options.m_strTo, "x/y");
}

TEST(CommandLine, DownloadTakesNamesAndAFolder)
{
    COptions options;
    ASSERT_TRUE(Parse({"download", "h", "a/b", "-o", "out", "--name", "me"}, options).m_bRun);
    EXPECT_EQ(options.m_eCommand, COMMAND_DOWNLOAD);
    EXPECT_EQ(options.m_strFolder, "out");
    EXPECT_EQ(options.m_strConnection, "me");
}

TEST(CommandLine, JobsAreOneTo64)
{
    for (const char* pszCommand : {"submit", "download"})
    {
        COptions options;
        ASSERT_TRUE(Parse({pszCommand, "h", "a"}, options).m_bRun);
        EXPECT_EQ(options.m_dwJobs, 1U);
        ASSERT_TRUE(Parse({pszCommand, "h", "a", "--jobs", "64"}, options).m_bRun);
        EXPECT_EQ(options.m_dwJobs, 64U);
        ASSERT_TRUE(Parse({pszCommand, "h", "-j", "1", "a"}, options).m_bRun);
        EXPECT_EQ(options.m_dwJobs, 1U);
        for (const char* pszJobs : {"0", "65", "x", "-1", "", "1.5", "4294967297"})
        {
            EXPECT_NE(Fault({pszCommand, "h", "a", "--jobs", pszJobs}).find("--jobs"),
                      std::string::npos)
                << pszJobs;
        }
    }
    EXPECT_NE(Fault({"serve", "--root", "d", "--jobs", "2"}).find("--jobs"), std::string::npos);
}

TEST(CommandLine, ConnectionsGetANameUnlessTheyAreGivenOne)
{
    COptions options;
    ASSERT_TRUE(Parse({"download", "h", "a"}, options).m_bRun);
    EXPECT_FALSE(options.m_strConnection.empty());
}

TEST(CommandLine, HelpIsNoFault)
{
    EXPECT_NE(Help({"--help"}).find("Exit codes"), std::string::npos);
    for (const char* pszCommand :
         {"serve", "submit", "download", "publish", "subscribe", "version"})
    {
        EXPECT_NE(Help({pszCommand, "--help"}).find(std::string("Usage: osprey ") + pszCommand),
                  std::string::npos);
    }
    for (const char* pszCommand : {"serve", "submit", "download", "publish", "subscribe"})
    {
        EXPECT_NE(Help({pszCommand, "--help"}).find("Examples"), std::string::npos);
    }
}

TEST(CommandLine, HelpFits80Columns)
{
    for (const char* pszCommand :
         {"serve", "submit", "download", "publish", "subscribe", "version"})
    {
        const std::string strHelp = Help({pszCommand, "--help"});
        size_t nFrom = 0;
        for (size_t nTo = strHelp.find('\n'); nTo != std::string::npos;
             nFrom = nTo + 1, nTo = strHelp.find('\n', nFrom))
        {
            EXPECT_LE(nTo - nFrom, 80U) << strHelp.substr(nFrom, nTo - nFrom);
        }
    }
}

TEST(CommandLine, FaultsAreToldInPlainWords)
{
    EXPECT_NE(Fault({}).find("a command is needed"), std::string::npos);
    EXPECT_NE(Fault({"fetch"}).find("there is no command \"fetch\""), std::string::npos);
    EXPECT_NE(Fault({"--json"}).find("the command comes first"), std::string::npos);
    EXPECT_NE(Fault({"serve"}).find("--root is required"), std::string::npos);
    EXPECT_NE(Fault({"serve", "--root", "d", "--port", "65536"}).find("--port"), std::string::npos);
    EXPECT_NE(Fault({"submit"}).find("HOST is required"), std::string::npos);
    EXPECT_NE(Fault({"submit", "h"}).find("PATH is required"), std::string::npos);
    EXPECT_NE(Fault({"submit", "h:x", "a"}).find("the port"), std::string::npos);
    EXPECT_NE(Fault({"submit", "h", "a", "--bogus"}).find("--bogus"), std::string::npos);
    EXPECT_NE(Fault({"submit", "h", "a", "--to", "a|b"}).find("--to"), std::string::npos);
    EXPECT_NE(Fault({"submit", "h", "a", "--connect-timeout", "0"}).find("--connect-timeout"),
              std::string::npos);
    EXPECT_NE(Fault({"download", "h"}).find("NAME is required"), std::string::npos);
    EXPECT_NE(Fault({"version", "surplus"}).find("surplus"), std::string::npos);
}

TEST(CommandLine, OptionWithoutAValueDoesNotTakeTheNextOneForIt)
{
    EXPECT_EQ(Fault({"serve", "--root", ".", "--trace=", "--read-only"}),
              "--trace has no value (\"osprey serve --help\" tells more)");
    COptions options;
    EXPECT_TRUE(Parse({"submit", "host", "--", "--name="}, options).m_bRun) << "a file";
}

TEST(CommandLine, ConnectionNamesHaveAtMost259Units)
{
    COptions options;
    const std::string strLongest(259, 'n');
    EXPECT_TRUE(Parse({"submit", "h", "a", "--name", strLongest.c_str()}, options).m_bRun);
    const std::string strLonger(260, 'n');
    EXPECT_NE(Fault({"submit", "h", "a", "--name", strLonger.c_str()}).find("--name"),
              std::string::npos);
}

TEST(CommandLine, ServeTakesLimits)
{
    COptions options;
    ASSERT_TRUE(Parse({"serve", "--root", "d", "--max-file", "10M", "--max-total", "2G",
                       "--max-connections", "9", "--allow", "10.0.0.0/8", "--allow", "127.0.0.1"},
                      options)
                    .m_bRun);
    EXPECT_EQ(options.m_ullMaxFile, 10485760U);
    EXPECT_EQ(options.m_ullMaxTotal, 2147483648U);
    EXPECT_EQ(options.m_admission.m_dwMostConnections, 9U);
    ASSERT_EQ(options.m_admission.m_listAllowed.size(), 2U);
    EXPECT_TRUE(options.m_admission.m_listAllowed[1].Holds(0x7F000001));
}

TEST(CommandLine, PublishTakesTheLimitsOfConnections)
{
    COptions options;
    ASSERT_TRUE(
        Parse({"publish", "--channel", "1=-", "--max-connections", "9", "--allow", "1.2.3.4"},
              options)
            .m_bRun);
    EXPECT_EQ(options.m_admission.m_dwMostConnections, 9U);
    EXPECT_NE(Fault({"publish", "--channel", "1=-", "--max-file", "1"}), "");
}

TEST(CommandLine, LimitsThatAreNoneAreToldAbout)
{
    EXPECT_EQ(Fault({"serve", "--root", "d", "--max-file", "10X"}).substr(0, 24),
              "--max-file: not a size, ");
    EXPECT_EQ(Fault({"serve", "--root", "d", "--max-total", "0"}).substr(0, 25),
              "--max-total: not a size, ");
    EXPECT_EQ(Fault({"serve", "--root", "d", "--allow", "::1"}).substr(0, 28),
              "--allow: not an IPv4 address");
    EXPECT_NE(Fault({"serve", "--root", "d", "--max-connections", "0"}), "");
}
