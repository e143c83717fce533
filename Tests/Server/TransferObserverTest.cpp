#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>

#include "ServerFixture.h"

namespace
{

const unsigned int OPEN_FAILED = 6;

class CObserver final : public IOspreyTransferObserver
{
public:
    void OnTransferEnded(OSPREY_TRANSFER_END eEnd, Orb_U64 ullContext) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const char* const pszEnds[] = {"complete", "cancelled", "lost"};
        m_strTold += std::string(pszEnds[eEnd]) + " " + std::to_string(ullContext) + ". ";
        m_fnTold();
        m_changed.notify_all();
    }
    // What it was told, once that is strTold; or whatever it was after a while.
    std::string WaitFor(const std::string& strTold) const
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::milliseconds(WAIT_MS),
                           [&] { return m_strTold == strTold; });
        return m_strTold;
    }
    std::string Told() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_strTold;
    }

    std::function<void()> m_fnTold = [] {};

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::string m_strTold;
};

class CTransferObserverTest : public CUntimedServerTest
{
protected:
    CTransferObserverTest()
    {
        m_host.m_fnResolve = [this](const std::string& strName)
        { return m_folder.GetPath(strName); };
        m_host.m_bProgress = true;
        m_host.m_ullContext = 7;
        EXPECT_TRUE(m_pServer->SetTransferObserver(&m_observer));
    }
    ~CTransferObserverTest() override
    {
        Stop();  // before its observer goes
    }

    void Begin(CRawSocket& peer, unsigned int dwID, unsigned int dwResult = 0) const
    {
        Exchange(peer, Wire::Upfi(dwID, 6, 0, u"f"), Wire::Upfr(dwID, dwResult, 0));
    }
    void Block(CRawSocket& peer, unsigned int dwID, const std::string& strData,
               unsigned int dwLast = 0) const
    {
        Exchange(peer, Wire::Upfb(dwID, dwLast, strData), Wire::Result("UPBR", dwID, 0));
    }

    CObserver m_observer;
};

using TransferObserver = CTransferObserverTest;

}  // namespace

TEST_F(TransferObserver, HearsOfAnUploadWithItsLastBlockBeforeThatIsAnswered)
{
    Start();
    CRawSocket peer = Named(u"peer");
    Begin(peer, 2);
    Block(peer, 2, "abc");
    Block(peer, 2, "def");
    EXPECT_EQ(m_observer.Told(), "") << "all bytes are there, but nobody said so";
    Block(peer, 2, "", 1);
    EXPECT_EQ(m_observer.Told(), "complete 7. ");
    Begin(peer, 3);
    Block(peer, 3, "abc", 1);
    EXPECT_EQ(m_observer.Told(), "complete 7. complete 7. ") << "shorter than announced";
    peer.Close();
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(m_observer.Told(), "complete 7. complete 7. ") << "each once";
}

TEST_F(TransferObserver, HearsOfACancelledUploadAtOnce)
{
    Start();
    CRawSocket peer = Named(u"peer");
    Begin(peer, 2);
    Block(peer, 2, "abc");
    peer.Send(Wire::Caop(2));
    ExpectAlive(peer);
    EXPECT_EQ(m_observer.Told(), "cancelled 7. ");
    Begin(peer, 3);
    Begin(peer, 3);  // under the same id: the first one is over
    EXPECT_EQ(m_observer.Told(), "cancelled 7. cancelled 7. ");
    peer.Close();
    m_host.WaitForDisconnects(1);
    EXPECT_EQ(m_observer.Told(), "cancelled 7. cancelled 7. lost 7. ");
}

TEST_F(TransferObserver, HearsOfWhatIsLostBeforeTheConnectionsEndIsTold)
{
    std::string strToldBefore;
    m_host.m_fnOnDisconnect = [&](const std::string&) { strToldBefore = m_observer.Told(); };
    Start();
    CRawSocket peer = Named(u"peer");
    Begin(peer, 2);
    peer.Reset();
    m_host.WaitForDisconnects(1);
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));  // the call has returned
    EXPECT_EQ(strToldBefore, "lost 7. ");
}

TEST_F(TransferObserver, HearsOfConnectionsWithoutANameAsWell)
{
    Start();
    {
        CRawSocket peer = Browse();
        Begin(peer, 2);
    }
    EXPECT_EQ(m_observer.WaitFor("lost 7. "), "lost 7. ");
}

TEST_F(TransferObserver, HearsOfAFileThatCannotBeOpened)
{
    std::filesystem::create_directory(m_folder.GetPath("f"));
    Start();
    CRawSocket peer = Named(u"peer");
    Begin(peer, 2, OPEN_FAILED);
    EXPECT_EQ(m_observer.WaitFor("cancelled 7. "), "cancelled 7. ");
    peer.Send(Wire::Dfil(3, 0, u"missing"));
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "DFRT");
    EXPECT_EQ(m_observer.WaitFor("cancelled 7. cancelled 7. "), "cancelled 7. cancelled 7. ");
}

TEST_F(TransferObserver, HearsOfDownloads)
{
    m_folder.WriteFile("small", "text");
    m_folder.WriteFile("large", std::string(50'000'000, 'x'));
    Start();
    CRawSocket peer = Named(u"peer");
    peer.Send(Wire::Dfil(2, 0, u"small"));
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "DFRT");
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "DFRB");
    EXPECT_EQ(Wire::GetCode(peer.ReceivePacket()), "DFRB");
    EXPECT_EQ(m_observer.Told(), "complete 7. ");
    // Nobody reads it: it does not fit into the system's buffers.
    peer.Send(Wire::Dfil(3, 0, u"large"));
    peer.Send(Wire::Caop(3));
    EXPECT_EQ(m_observer.WaitFor("complete 7. cancelled 7. "), "complete 7. cancelled 7. ");
    peer.Send(Wire::Dfil(4, 0, u"large"));
    EXPECT_TRUE(m_host.WaitForRequests(4));
    peer.Reset();
    EXPECT_EQ(m_observer.WaitFor("complete 7. cancelled 7. lost 7. "),
              "complete 7. cancelled 7. lost 7. ");
}

TEST_F(TransferObserver, CanHaveThePeerKnowThatItsFileIsNotStored)
{
    m_observer.m_fnTold = [this]
    { EXPECT_TRUE(m_pServer->TerminateTask(m_pServer->GetCallbackTask())); };
    Start();
    CRawSocket peer = Named(u"peer");
    Begin(peer, 2);
    peer.Send(Wire::Upfb(2, 1, "abcdef"));
    EXPECT_EQ(Hex(peer.ReceiveToEnd()), "") << "the end, and no answer before it";
}

TEST_F(TransferObserver, IsKeptWhileTheServerRuns)
{
    m_host.m_fnOnRequest = [this](const CRecordingHost::CRequest&)
    { EXPECT_FALSE(m_pServer->SetTransferObserver(nullptr)) << "inside a callback"; };
    Start();
    EXPECT_FALSE(m_pServer->SetTransferObserver(nullptr));
    CRawSocket peer = Named(u"peer");
    Begin(peer, 2);
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(m_observer.Told(), "lost 7. ") << "on this thread";
    EXPECT_TRUE(m_pServer->SetTransferObserver(nullptr));
    Start();
    CRawSocket later = Named(u"later");
    Begin(later, 2);
    Block(later, 2, "", 1);
    EXPECT_EQ(m_observer.Told(), "lost 7. ");
}
