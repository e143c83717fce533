// Datagrams through the real tool: into a publisher, out of a subscriber.

#include <gtest/gtest.h>

#include <algorithm>

#include "Emulator.h"
#include "Hex.h"
#include "Publisher.h"
#include "RawSocket.h"
#include "ServedFolder.h"
#include "UdpEnd.h"

namespace
{

const char MARK[] = "are you there";

// A UDP source and a UDP sink with a publisher and a subscriber between them.
class CChannelUdpTest : public ::testing::Test
{
protected:
    CChannelUdpTest()
        : m_publisher({"--channel", "1=udp:0"}),
          m_subscriber(
              {"subscribe", m_publisher.GetPeer(), "--json", "--channel", "1=" + m_far.GetName()}),
          m_wSource(m_publisher.GetUdpPort(1))
    {
    }
    // What is sent before the subscriber has opened the channel is lost, so a mark is sent until
    // one arrives, and then one that tells where the marks end.
    void WaitForReader()
    {
        std::string strData;
        for (int i = 0; i < WAIT_MS / 20 && strData != MARK; ++i)
        {
            m_near.Send(m_wSource, MARK);
            m_far.Receive(strData, 20);
        }
        ASSERT_EQ(strData, MARK);
        m_near.Send(m_wSource, "go");
        for (strData = m_far.Receive(); strData == MARK; strData = m_far.Receive())
        {
        }
        ASSERT_EQ(strData, "go");
    }

    CUdpEnd m_near;
    CUdpEnd m_far;
    CPublisher m_publisher;
    CToolProcess m_subscriber;
    unsigned short m_wSource;
};

using ChannelUdp = CChannelUdpTest;

}  // namespace

TEST_F(ChannelUdp, DatagramsComeOutAsTheyWentIn)
{
    WaitForReader();
    const size_t nDatagrams = 1500;
    const size_t nUnderWay = 64;  // what every socket on the way has room for
    size_t nReceived = 0;
    for (size_t i = 0; i < nDatagrams + nUnderWay && !HasFailure(); ++i)
    {
        if (i < nDatagrams)
        {
            m_near.Send(m_wSource, Pattern(i % 1501, static_cast<unsigned int>(i)));
        }
        if (i >= nUnderWay)
        {
            ASSERT_EQ(Hex(m_far.Receive()),
                      Hex(Pattern(nReceived % 1501, static_cast<unsigned int>(nReceived))));
            ++nReceived;
        }
    }
    EXPECT_EQ(nReceived, nDatagrams);
}

TEST_F(ChannelUdp, LongDatagramsAreDroppedWithOneWarning)
{
    WaitForReader();
    m_near.Send(m_wSource, Pattern(1501));
    m_near.Send(m_wSource, Pattern(9000));
    m_near.Send(m_wSource, Pattern(1500));
    EXPECT_EQ(Hex(m_far.Receive()), Hex(Pattern(1500)));
    EXPECT_EQ(m_publisher.Stop(), 0);
    EXPECT_EQ(m_publisher.Tool().WaitForEvent("summary")["too_long"], 2);
    const std::string& strErrors = m_publisher.Tool().GetErrors();
    EXPECT_EQ(std::count(strErrors.begin(), strErrors.end(), '\n'), 1) << strErrors;
    EXPECT_NE(strErrors.find("datagrams over 1500 bytes are dropped"), std::string::npos);
}

TEST(ChannelUdpSource, SendersThatAreNotNamedAreLeftOut)
{
    CPublisher publisher({"--channel", "1=udp:0@127.0.0.9"});
    CUdpEnd right("127.0.0.9");
    CUdpEnd wrong("127.0.0.1");
    wrong.Send(publisher.GetUdpPort(1), "wrong");
    right.Send(publisher.GetUdpPort(1), "right");
    wrong.Send(publisher.GetUdpPort(1), "wrong");
    // The last one: what was sent before it is counted then.
    CToolProcess subscriber(
        {"subscribe", publisher.GetPeer(), "--channel", "1=hex", "--count", "1"});
    EXPECT_TRUE(subscriber.WaitUntil("a packet of the right sender",
                                     [&]
                                     {
                                         right.Send(publisher.GetUdpPort(1), "right");
                                         return subscriber.GetOutput().find("|right|") !=
                                                std::string::npos;
                                     }));
    EXPECT_EQ(publisher.Stop(), 0);
    EXPECT_EQ(publisher.Tool().WaitForEvent("summary")["foreign"], 2);
}

TEST(ChannelUdpSource, GroupIsJoinedOnTheInterfaceThatIsNamed)
{
    if (IsEmulated())
    {
        GTEST_SKIP() << "the emulator loses the number of the interface";
    }
    const char* pszGroup = "239.255.77.1";
    CPublisher publisher({"--channel", std::string("1=udp:") + pszGroup + ":0%lo"});
    CUdpEnd sender;
    CToolProcess subscriber(
        {"subscribe", publisher.GetPeer(), "--channel", "1=hex", "--count", "1"});
    EXPECT_TRUE(subscriber.WaitUntil("a packet of the group",
                                     [&]
                                     {
                                         sender.Send(publisher.GetUdpPort(1), "group", pszGroup);
                                         return subscriber.GetOutput().find("|group|") !=
                                                std::string::npos;
                                     }));
    EXPECT_EQ(
        CToolRun({"publish", "--port", "0", "--channel", "1=udp:239.1.1.1:0%none"}).m_strErrors,
        "osprey: cannot listen on udp:239.1.1.1:0%none: there is no interface \"none\"\n");
}

TEST(ChannelUdpSource, InterfaceOfAnAddressThatIsNoGroupIsRefused)
{
    const CToolRun run({"publish", "--port", "0", "--channel", "1=udp:127.0.0.1:0%lo"});
    EXPECT_NE(run.m_nExitCode, 0);
    EXPECT_EQ(run.m_strErrors,
              "osprey: cannot listen on udp:127.0.0.1:0%lo: an interface goes with a multicast "
              "group only\n");
}

TEST(ChannelUdpSource, AddressOfAnotherMachineGives3)
{
    const CToolRun run({"publish", "--port", "0", "--channel", "1=udp:192.0.2.1:0"});
    EXPECT_EQ(run.m_nExitCode, 3);
    EXPECT_NE(run.m_strErrors.find("udp:192.0.2.1:0: Cannot assign requested address"),
              std::string::npos);
}

TEST(ChannelUdpSource, ServerListensToDatagramsUntilASignal)
{
    CServedFolder served({"--channel", "1=udp:0"});
    CUdpEnd sender;
    std::string strSource;
    for (const CEvent& event : served.Tool().GetEvents())
    {
        strSource = event.Has("source") ? event["source"].As<std::string>() : strSource;
    }
    const int nPort = std::stoi(strSource.substr(strSource.rfind(':') + 1));
    CToolProcess subscriber({"subscribe", served.GetPeer(), "--channel", "1=hex", "--count", "1"});
    EXPECT_TRUE(subscriber.WaitUntil("a packet of the server",
                                     [&]
                                     {
                                         sender.Send(static_cast<unsigned short>(nPort), "served");
                                         return subscriber.GetOutput().find("|served|") !=
                                                std::string::npos;
                                     }));
    EXPECT_EQ(served.Stop(), 0);
}
