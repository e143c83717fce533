#include "ClientTCPStream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "LoopFixture.h"
#include "OpenStream.h"

namespace
{

const unsigned int LOOPBACK = 0x7F000001;

class CRecorder final : public CClientTCPStream::ICallback
{
public:
    void OnConnectSuccessful() override
    {
        m_calls.emplace_back("successful");
    }
    void OnConnectFailed(int nError) override
    {
        m_calls.push_back("failed " + std::to_string(nError));
        if (m_pDetachFrom != nullptr)
        {
            m_pDetachFrom->m_pCallback = nullptr;
        }
    }
    void OnDataReceived(CTCPStreamBuffer* pBuffer) override
    {
        m_calls.emplace_back("received");
        m_pLast = pBuffer;
    }
    void OnDataSent(CTCPStreamBuffer* pBuffer) override
    {
        m_calls.emplace_back("sent");
        m_pLast = pBuffer;
    }
    void OnNetworkError(int nError) override
    {
        m_calls.push_back("error " + std::to_string(nError));
    }

    std::vector<std::string> m_calls;
    CTCPStreamBuffer* m_pLast = nullptr;
    CClientTCPStream* m_pDetachFrom = nullptr;
};

typedef std::vector<std::string> CCalls;

class CClientStreamTest : public CLoopTest
{
protected:
    CClientStreamTest()
    {
        m_stream.m_pCallback = &m_callback;
    }
    void Connect(unsigned short wPort)
    {
        ASSERT_TRUE(m_stream.Create(CSocketAddress(0, 0)));
        ASSERT_TRUE(m_stream.Connect(CSocketAddress(LOOPBACK, wPort)));
    }
    CRawSocket ConnectAndAccept()
    {
        Connect(m_server.GetPort());
        RunUntil("the connection", [&] { return m_stream.m_bConnectSuccessful != Orb_FALSE; });
        return m_server.Accept();
    }

    CRawServer m_server;
    CRecorder m_callback;
    CClientTCPStream m_stream{&m_engine};
};
using ClientTCPStream = CClientStreamTest;

TEST_F(ClientTCPStream, ConnectionIsReportedAndRemembered)
{
    EXPECT_EQ(m_stream.m_bConnectSuccessful, Orb_FALSE);
    const CRawSocket peer = ConnectAndAccept();
    EXPECT_EQ(m_callback.m_calls, (CCalls{"successful"}));
    EXPECT_EQ(m_stream.m_bConnectSuccessful, 1);
}

TEST_F(ClientTCPStream, BuffersComeBackThroughTheCallback)
{
    CRawSocket peer = ConnectAndAccept();
    CTextBuffer out("out");
    CTextBuffer in(10);
    m_stream.Send(&out);
    RunUntil("the buffer to leave", [&] { return m_callback.m_pLast == &out; });
    m_stream.Receive(&in);
    peer.Send("in");
    RunUntil("the buffer to be filled", [&] { return m_callback.m_pLast == &in; });
    EXPECT_EQ(m_callback.m_calls, (CCalls{"successful", "sent", "received"}));
    EXPECT_EQ(in.GetText(), "in");
}

// One event of a refused socket reports several conditions: its owner listens to the first only.
TEST_F(ClientTCPStream, RefusedConnectIsExactlyOneFailureToACallbackThatTakesItselfOff)
{
    m_callback.m_pDetachFrom = &m_stream;
    Connect(FreePort());
    RunUntil("the failure", [&] { return !m_callback.m_calls.empty(); });
    RunPasses(3);
    EXPECT_EQ(m_callback.m_calls, (CCalls{"failed " + std::to_string(ECONNREFUSED)}));
}

TEST_F(ClientTCPStream, ServerThatClosesIsANetworkErrorOfCode0)
{
    CRawSocket peer = ConnectAndAccept();
    CTextBuffer in(10);
    m_stream.Receive(&in);
    RunPasses(2);
    peer.Close();
    RunUntil("the end", [&] { return m_callback.m_calls.size() == 2; });
    RunPasses(2);
    EXPECT_EQ(m_callback.m_calls, (CCalls{"successful", "error 0"}));
    m_stream.Destroy();
}

TEST_F(ClientTCPStream, ErrorOfAnEstablishedConnectionIsANetworkErrorWithItsCode)
{
    const CRawSocket peer = ConnectAndAccept();
    m_stream.ProcessNetworkError(ETIMEDOUT);
    EXPECT_EQ(m_callback.m_calls, (CCalls{"successful", "error " + std::to_string(ETIMEDOUT)}));
}

TEST_F(ClientTCPStream, FlagOfAnEarlierConnectionMakesALaterRefusalANetworkError)
{
    {
        const CRawSocket peer = ConnectAndAccept();
    }
    m_stream.Destroy();
    m_callback.m_calls.clear();
    Connect(FreePort());
    RunUntil("the refusal", [&] { return !m_callback.m_calls.empty(); });
    EXPECT_EQ(m_callback.m_calls.front(), "error " + std::to_string(ECONNREFUSED));
    m_stream.Destroy();
    m_callback.m_calls.clear();
    m_stream.m_bConnectSuccessful = Orb_FALSE;
    Connect(FreePort());
    RunUntil("the refusal", [&] { return !m_callback.m_calls.empty(); });
    EXPECT_EQ(m_callback.m_calls.front(), "failed " + std::to_string(ECONNREFUSED));
}

TEST_F(ClientTCPStream, WithoutACallbackEveryEventIsDropped)
{
    m_stream.m_pCallback = nullptr;
    CRawSocket peer = ConnectAndAccept();
    CTextBuffer out("out");
    CTextBuffer in(10);
    m_stream.Send(&out);
    m_stream.Receive(&in);
    peer.Send("in");
    RunUntil("both buffers to be done", [&] { return in.GetDataSize() == 2 && !out.IsQueued(); });
    peer.Close();
    m_stream.Receive(&in);
    RunPasses(3);
    m_stream.ProcessNetworkError(1);
    EXPECT_EQ(m_stream.m_bConnectSuccessful, Orb_TRUE);
    EXPECT_TRUE(m_callback.m_calls.empty());
    m_stream.Destroy();
}

TEST_F(ClientTCPStream, DefaultRequestAnswers0)
{
    EXPECT_EQ(m_callback.OnRequest(1, 2, 3), 0);
}

}  // namespace
