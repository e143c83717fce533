#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

#include "ServerFixture.h"

namespace
{

const unsigned int OTHER_ADDRESS = 0x7F000002;  // 127.0.0.2

class CFilter final : public IOspreyConnectionFilter
{
public:
    struct CQuestion
    {
        unsigned int m_dwAddress;
        unsigned short m_wPort;
        unsigned int m_dwConnections;
    };

    Orb_BOOL OnAccept(unsigned int dwAddress, unsigned short wPort,
                      unsigned int dwConnections) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_listQuestions.push_back({dwAddress, wPort, dwConnections});
        m_changed.notify_all();
        return m_fnWelcome(m_listQuestions.back()) ? Orb_TRUE : Orb_FALSE;
    }
    std::vector<CQuestion> Questions() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_listQuestions;
    }

    bool WaitForQuestions(size_t nQuestions) const
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(WAIT_MS),
                                  [&] { return m_listQuestions.size() >= nQuestions; });
    }

    std::function<bool(const CQuestion&)> m_fnWelcome = [](const CQuestion&) { return true; };

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<CQuestion> m_listQuestions;
};

class CConnectionFilterTest : public CUntimedServerTest
{
protected:
    ~CConnectionFilterTest() override
    {
        Stop();  // before its filter goes
    }

    CFilter m_filter;
};

using ConnectionFilter = CConnectionFilterTest;

}  // namespace

TEST_F(ConnectionFilter, IsToldWhoConnectsAndHowManyAreThere)
{
    EXPECT_TRUE(m_pServer->SetConnectionFilter(&m_filter));
    Start();
    CRawSocket first = Named(u"first");
    CRawSocket second;
    ASSERT_TRUE(second.ConnectFrom(OTHER_ADDRESS, m_wPort));
    second.Send(Wire::Brow());
    ExpectAlive(second);
    const std::vector<CFilter::CQuestion> listQuestions = m_filter.Questions();
    ASSERT_EQ(listQuestions.size(), 2U);
    EXPECT_EQ(listQuestions[0].m_dwAddress, 0x7F000001U);
    EXPECT_EQ(listQuestions[0].m_wPort, GetLocalPort(first.GetHandle()));
    EXPECT_EQ(listQuestions[0].m_dwConnections, 0U);
    EXPECT_EQ(listQuestions[1].m_dwAddress, OTHER_ADDRESS);
    EXPECT_EQ(listQuestions[1].m_wPort, GetLocalPort(second.GetHandle()));
    EXPECT_EQ(listQuestions[1].m_dwConnections, 1U);
}

TEST_F(ConnectionFilter, RefusedConnectionIsClosedWithoutAWord)
{
    m_filter.m_fnWelcome = [](const CFilter::CQuestion& question)
    { return question.m_dwAddress != OTHER_ADDRESS; };
    EXPECT_TRUE(m_pServer->SetConnectionFilter(&m_filter));
    Start();
    CRawSocket welcome = Named(u"welcome");
    for (int i = 0; i < 100; ++i)
    {
        CRawSocket refused;
        ASSERT_TRUE(refused.ConnectFrom(OTHER_ADDRESS, m_wPort));
        EXPECT_EQ(Hex(refused.ReceiveToEnd()), "");
    }
    ExpectAlive(welcome);
    EXPECT_EQ(m_filter.Questions().back().m_dwConnections, 1U);
    EXPECT_TRUE(m_host.GetDisconnects().empty());
    for (const CRecordingHost::CRequest& request : m_host.GetRequests())
    {
        EXPECT_TRUE(request.m_strConnection == "welcome" || request.m_strName == "welcome");
    }
}

TEST_F(ConnectionFilter, PlacesThatEndAreFreeAgain)
{
    m_filter.m_fnWelcome = [](const CFilter::CQuestion& question)
    { return question.m_dwConnections < 2; };
    EXPECT_TRUE(m_pServer->SetConnectionFilter(&m_filter));
    Start();
    CRawSocket first = Named(u"first");
    {
        CRawSocket second = Named(u"second");
        CRawSocket third = Connect();
        EXPECT_EQ(Hex(third.ReceiveToEnd()), "");
    }
    // The place is free a moment after the end was told.
    m_host.WaitForDisconnects(1);
    CRawSocket again;
    for (size_t nAsked = 3; nAsked < 1000; ++nAsked)
    {
        again = Connect();
        ASSERT_TRUE(m_filter.WaitForQuestions(nAsked + 1));
        if (m_filter.Questions().back().m_dwConnections < 2)
        {
            break;
        }
    }
    again.Send(Wire::Brow());
    ExpectAlive(again);
    ExpectAlive(first);
}

TEST_F(ConnectionFilter, IsKeptWhileTheServerRuns)
{
    EXPECT_TRUE(m_pServer->SetConnectionFilter(&m_filter));
    Start();
    EXPECT_FALSE(m_pServer->SetConnectionFilter(nullptr));
    m_filter.m_fnWelcome = [this](const CFilter::CQuestion&)
    { return !m_pServer->SetConnectionFilter(nullptr); };
    CRawSocket peer = Named(u"asked about");
    EXPECT_EQ(m_filter.Questions().size(), 1U);
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_TRUE(m_pServer->SetConnectionFilter(nullptr));
    Start();
    CRawSocket later = Named(u"not asked about");
    EXPECT_EQ(m_filter.Questions().size(), 1U);
}

TEST_F(ConnectionFilter, RefusedConnectionsLeaveNoDescriptor)
{
    m_filter.m_fnWelcome = [](const CFilter::CQuestion&) { return false; };
    EXPECT_TRUE(m_pServer->SetConnectionFilter(&m_filter));
    Start();
    int nLowest = -1;
    for (int i = 0; i < 200; ++i)
    {
        CRawSocket refused = Connect();
        refused.ReceiveToEnd();
        nLowest = i == 0 ? refused.GetHandle() : nLowest;
        EXPECT_LE(refused.GetHandle(), nLowest + 1);
    }
}

using CallbackTask = CUntimedServerTest;

TEST_F(CallbackTask, IsTheTaskThatTheNamingTold)
{
    std::atomic<long> lTask{0};
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest&)
    { lTask = m_pServer->GetCallbackTask(); };
    Start();
    CRawSocket peer = Named(u"peer");
    EXPECT_NE(lTask, 0);
    EXPECT_EQ(lTask, GetTask());
    lTask = 0;
    ExpectAlive(peer);
    EXPECT_EQ(lTask, GetTask());
    EXPECT_EQ(m_pServer->GetCallbackTask(), 0) << "on another thread";
}

TEST_F(CallbackTask, EndsAConnectionThatHasNoName)
{
    m_host.m_fnOnRequest = [&](const CRecordingHost::CRequest&)
    { EXPECT_TRUE(m_pServer->TerminateTask(m_pServer->GetCallbackTask())); };
    Start();
    CRawSocket peer = Browse();
    peer.Send(Wire::Delt(2, u"/nothing/there"));
    peer.ReceiveToEnd();
}

TEST_F(CallbackTask, SaysWhichOfTwoThatShareANameHasEnded)
{
    std::atomic<long> lTask{0};
    m_host.m_fnOnDisconnect = [&](const std::string&) { lTask = m_pServer->GetCallbackTask(); };
    Start();
    CRawSocket first = Named(u"twin");
    const long lFirst = GetTask();
    CRawSocket second = Named(u"twin");
    EXPECT_NE(GetTask(), lFirst);
    first.Close();
    m_host.WaitForDisconnects(1);
    ExpectAlive(second);  // the call has returned
    EXPECT_EQ(lTask, lFirst);
    Stop();  // calls once more
}

TEST_F(CallbackTask, IsThereWhenAHostThreadEndsTheConnections)
{
    std::atomic<long> lTask{0};
    m_host.m_fnOnDisconnect = [&](const std::string&) { lTask = m_pServer->GetCallbackTask(); };
    Start();
    CRawSocket peer = Named(u"left");
    EXPECT_TRUE(m_pServer->Shutdown());
    EXPECT_TRUE(m_pServer->EndAllConnections(WAIT_MS));
    EXPECT_EQ(lTask, GetTask());
    EXPECT_EQ(m_pServer->GetCallbackTask(), 0);
}
