// --timeout ends a whole run, whatever it is about, and leaves nothing behind.

#include <gtest/gtest.h>

#include "PeerScript.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

using CNames = std::vector<std::string>;

class CTimeoutToolTest : public ::testing::Test
{
protected:
    CTempFolder m_local;
};

using TimeoutTool = CTimeoutToolTest;

}  // namespace

TEST_F(TimeoutTool, DownloadGives30AndLeavesTheOldFile)
{
    m_local.WriteFile("f", "old");
    CPeerScript peer;
    CToolProcess tool({"download", peer.GetPeer(), "f", "-o", m_local.GetPath(), "--timeout", "6"});
    peer.Accept();
    const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwID, 0, 6, 0) + Wire::Dfrb(dwID, "new"));
    peer.Expect("CAOP");
    EXPECT_EQ(tool.Wait(), 30);
    EXPECT_EQ(tool.GetErrors(), "osprey: not done within 6 seconds\n");
    EXPECT_EQ(ListFolder(m_local.GetPath()), CNames{"f"});
    EXPECT_EQ(ReadFile(m_local.GetPath("f")), "old");
}

TEST_F(TimeoutTool, SubmitGives30AndCancelsAtTheServer)
{
    CPeerScript peer;
    CToolProcess tool(
        {"submit", peer.GetPeer(), m_local.WriteFile("f", "content"), "--timeout", "6"});
    peer.Accept();
    const std::string strRequest = peer.Expect("UPFI");
    peer.Socket().Send(Wire::Upfr(Wire::GetU32(strRequest, 12), 0, 0));
    peer.Expect("UPFB");
    peer.Expect("CAOP");
    peer.Expect("DELT");
    EXPECT_EQ(tool.Wait(), 30);
}

TEST_F(TimeoutTool, ServerThatSaysNothingGives30)
{
    CRawServer server;
    CToolProcess tool({"download", "127.0.0.1:" + std::to_string(server.GetPort()), "f", "-o",
                       m_local.GetPath(), "--timeout", "1"});
    EXPECT_EQ(tool.Wait(), 30);
    EXPECT_TRUE(ListFolder(m_local.GetPath()).empty());
}

TEST_F(TimeoutTool, RunThatIsDoneInTimeGives0)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "1");
    EXPECT_EQ(
        CToolRun({"download", served.GetPeer(), "f", "-o", m_local.GetPath(), "--timeout", "86400"})
            .m_nExitCode,
        0);
    EXPECT_EQ(CToolRun({"download", served.GetPeer(), "f", "--timeout", "0"}).m_nExitCode, 2);
}
