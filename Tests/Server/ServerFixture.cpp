#include "ServerFixture.h"

std::u16string Widen(const std::string& strASCII)
{
    return std::u16string(strASCII.begin(), strASCII.end());
}

CServerTest::CServerTest() : m_pServer(CreateOspreyServer(&m_host)) {}

CServerTest::~CServerTest()
{
    Stop();
}

void CServerTest::Start()
{
    // Somebody else may take the free port first.
    for (int i = 0; i < 10; ++i)
    {
        m_wPort = FreePort();
        if (m_pServer->Startup(0, m_wPort))
        {
            return;
        }
    }
    ADD_FAILURE() << "the server does not start";
}

void CServerTest::Stop()
{
    if (m_pServer != nullptr)
    {
        EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
        EXPECT_TRUE(m_pServer->Shutdown());
        m_pServer->Release();
        m_pServer = nullptr;
    }
}

CRawSocket CServerTest::Connect() const
{
    CRawSocket peer;
    EXPECT_TRUE(peer.Connect(m_wPort));
    return peer;
}

CRawSocket CServerTest::Browse() const
{
    CRawSocket peer = Connect();
    peer.Send(Wire::Brow());
    return peer;
}

CRawSocket CServerTest::Named(const std::u16string& strName) const
{
    CRawSocket peer = Browse();
    Exchange(peer, Wire::Namc(1, strName), Wire::Result("NAMR", 1, 0));
    return peer;
}

void CServerTest::Exchange(CRawSocket& peer, const std::string& strRequest,
                           const std::string& strReply) const
{
    peer.Send(strRequest);
    EXPECT_EQ(Hex(Wire::WithoutVersion(peer.ReceivePacket())), Hex(Wire::WithoutVersion(strReply)));
}

void CServerTest::ExpectAlive(CRawSocket& peer) const
{
    Exchange(peer, Wire::Delt(0xA11FE, Widen(m_folder.GetPath("nothing/there"))),
             Wire::Result("DTRT", 0xA11FE, 0));
}

void CServerTest::ExpectRefused(CRawSocket& peer)
{
    EXPECT_EQ(Hex(peer.ReceiveToEnd()), "");
}

long CServerTest::GetTask() const
{
    long lTask = 0;
    for (const CRecordingHost::CRequest& request : m_host.GetRequests())
    {
        lTask = request.m_eRequest == KS_REQUEST_NAME_CONNECTION ? request.m_lTask : lTask;
    }
    return lTask;
}
