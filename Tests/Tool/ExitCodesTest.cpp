// Each exit code of osprey(1) once, from a run that ends with it. scripts/check-manuals compares
// the codes in the names with the table there.

#include <gtest/gtest.h>
#include <signal.h>

#include "PeerScript.h"
#include "ServedFolder.h"
#include "WireRecords.h"

TEST(ExitCodes, Code0AllDone)
{
    const CServedFolder served;
    const CTempFolder local;
    const CToolRun run({"submit", served.GetPeer(), local.WriteFile("f", "content")});
    EXPECT_EQ(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strErrors, "");
}

TEST(ExitCodes, Code1FileFailed)
{
    const CServedFolder served;
    const CTempFolder local;
    const CToolRun run({"download", served.GetPeer(), "missing", "-o", local.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_EQ(run.m_strErrors.find("osprey: missing: "), 0U) << run.m_strErrors;
}

TEST(ExitCodes, Code2WrongUsage)
{
    const CToolRun run({"submit", "127.0.0.1", "f", "--bogus"});
    EXPECT_EQ(run.m_nExitCode, 2);
    EXPECT_EQ(run.m_strOutput, "");
    EXPECT_NE(run.m_strErrors.find("--bogus"), std::string::npos) << run.m_strErrors;
}

TEST(ExitCodes, Code3CouldNotConnect)
{
    const CTempFolder local;
    std::string strNobody;
    {
        // Nobody listens any more where somebody did.
        strNobody = CPeerScript().GetPeer();
    }
    const CToolRun run({"download", strNobody, "f", "-o", local.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_EQ(run.m_strErrors.find("osprey: cannot connect to " + strNobody), 0U)
        << run.m_strErrors;
}

TEST(ExitCodes, Code3CouldNotListen)
{
    CServedFolder served;
    const CTempFolder folder;
    const std::string strPort = std::to_string(served.GetPort());
    const CToolRun run({"serve", "--root", folder.GetPath(), "--port", strPort});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_EQ(run.m_strErrors.find("osprey: cannot listen on port " + strPort), 0U)
        << run.m_strErrors;
}

TEST(ExitCodes, Code4ConnectionLost)
{
    const CTempFolder local;
    CPeerScript peer;
    CToolProcess tool({"download", peer.GetPeer(), "f", "-o", local.GetPath()});
    peer.Accept();
    peer.Expect("DFIL");
    peer.Socket().Reset();
    EXPECT_EQ(tool.Wait(), 4);
    EXPECT_NE(tool.GetErrors().find(" lost: "), std::string::npos) << tool.GetErrors();
}

TEST(ExitCodes, Code24NotVerified)
{
    const CServedFolder served;
    const CTempFolder local;
    served.Around().WriteFile("root/f", "content");
    served.Around().WriteFile("root/SHA256SUMS", std::string(64, '0') + "  f\n");
    const CToolRun run({"download", served.GetPeer(), "f", "--verify", "-o", local.GetPath()});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: f: SHA-256 differs\n");
}

TEST(ExitCodes, Code30TimeWasOver)
{
    const CTempFolder local;
    CPeerScript peer;
    CToolProcess tool({"download", peer.GetPeer(), "f", "-o", local.GetPath(), "--timeout", "1"});
    peer.Accept();
    EXPECT_EQ(tool.Wait(), 30);
    EXPECT_EQ(tool.GetErrors(), "osprey: not done within 1 second\n");
}

TEST(ExitCodes, Code130Interrupted)
{
    const CTempFolder local;
    CPeerScript peer;
    CToolProcess tool({"download", peer.GetPeer(), "f", "-o", local.GetPath()});
    peer.Accept();
    peer.Expect("DFIL");
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 130);
    EXPECT_EQ(tool.GetErrors(), "osprey: interrupted\n");
}

TEST(ExitCodes, Code0ForWhatOnlyASignalEnds)
{
    CServedFolder served;
    EXPECT_EQ(served.Stop(), 0);
}
