#include "Conversations.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "ChannelHost.h"
#include "Hex.h"
#include "SteppedLoops.h"
#include "TestClock.h"

namespace
{

// 2021-06-06 19:09:46 UTC.
void SetTime(const std::string& strPath)
{
    const timespec pTimes[2] = {{1623006586, 0}, {1623006586, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, strPath.c_str(), pTimes, 0), 0);
}

}  // namespace

CFileEntry CConversations::LocalEntry(const std::string& strName,
                                      const std::string& strRemote) const
{
    return {m_local.GetPath(strName), strRemote,
            static_cast<long long>(m_local.GetPath().size()) + 1};
}

// Every loop begins and ends with the clock.
template <class CClock, class CTalk>
CConversation CConversations::During(const CTalk& fnTalk)
{
    EndServer();
    CConversation result;
    {
        CClock clock;
        StartServer();
        CRelay relay(m_wPort);
        fnTalk(relay, clock);
        result = relay.Finish();
        EndServer();
    }
    StartServer();
    return result;
}

CConversation CConversations::Upload()
{
    const char* const pszNotASCII =
        "\xc3\xbc"
        "bung \xf0\x9d\x84\x9e.txt";
    mkdir(m_local.GetPath("photos").c_str(), 0755);
    SetTime(m_local.WriteFile("photos/large.bin", Pattern(70000)));
    SetTime(m_local.WriteFile("empty", ""));
    SetTime(m_local.WriteFile(pszNotASCII, "la la\n"));
    return During<CTestClock>(
        [&](CRelay& relay, CTestClock& /*clock*/)
        {
            CSubmitRun run;
            run.m_host.m_entries = {LocalEntry("photos"), LocalEntry("photos/large.bin"),
                                    LocalEntry("empty"), LocalEntry(pszNotASCII)};
            EXPECT_TRUE(run.Start(relay.GetPort()));
            run.m_host.m_events.WaitForEnd();
            EXPECT_EQ(run.m_host.m_events.Count("completed"), 4);
        });
}

CConversation CConversations::StoppedUpload()
{
    SetTime(m_local.WriteFile("stopped.bin", Pattern(70000)));
    return During<CTestClock>(
        [&](CRelay& relay, CTestClock& /*clock*/)
        {
            relay.HoldFrom("UPFB", 2, "DELT");
            CSubmitRun run;
            run.m_host.m_entries = {LocalEntry("stopped.bin")};
            EXPECT_TRUE(run.Start(relay.GetPort()));
            relay.WaitForHeld();
            run.Stop();
        });
}

CConversation CConversations::Download()
{
    SetTime(m_served.WriteFile("root/film.ts", Pattern(70000, 2)));
    return During<CTestClock>(
        [&](CRelay& relay, CTestClock& /*clock*/)
        {
            CDownloadRun run;
            run.m_host.m_entries = {{m_local.GetPath("film"), "root/film.ts", 0},
                                    {m_local.GetPath("none"), "root/none", 0}};
            EXPECT_TRUE(run.Start(relay.GetPort()));
            run.m_host.m_events.WaitForEnd();
            EXPECT_EQ(run.m_host.m_events.Count("completed"), 1);
            EXPECT_EQ(run.m_host.m_events.Count("failed 5"), 1);
        });
}

// The next packet is put when this one has passed: their order is then that of the calls. One that
// nobody has opened the channel for is put again.
void CConversations::PutPacket(CRelay& relay, unsigned int dwChannel, std::string strData,
                               int nTimes)
{
    const auto dwSize = static_cast<unsigned int>(strData.size());
    int nLeftMs = WAIT_MS;
    while (m_pServer->PutChannelPacket(dwChannel, strData.data(), dwSize) != 0 && --nLeftMs > 0)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GT(nLeftMs, 0) << "waited for somebody to open channel " << dwChannel;
    m_pServer->FlushChannelPackets();
    relay.WaitForPackets("CPKT", nTimes);
}

CConversation CConversations::Subscribed(
    const std::vector<unsigned int>& channels,
    const std::vector<std::pair<unsigned int, std::string>>& listPackets)
{
    return During<CSteppedLoops>(
        [&](CRelay& relay, CSteppedLoops& loops)
        {
            CChannelRun run;
            EXPECT_TRUE(run.Start(relay.GetPort(), channels));
            int nPackets = 0;
            for (const auto& [dwChannel, strData] : listPackets)
            {
                PutPacket(relay, dwChannel, strData, ++nPackets);
            }
            loops.WaitForSleep(5000);
            loops.Advance(5001);
            relay.WaitForPackets("KEEP");
        });
}

CConversation CConversations::Channels()
{
    return Subscribed({1, 7}, {{1, "one\n"}, {7, Pattern(1500)}, {1, ""}, {1, "two\n"}});
}

CConversation CConversations::DocumentedUpload()
{
    SetTime(m_local.WriteFile("hi.txt", "Hi!\n"));
    mkdir(m_served.GetPath("R").c_str(), 0755);
    return During<CTestClock>(
        [&](CRelay& relay, CTestClock& /*clock*/)
        {
            CSubmitRun run;
            run.m_host.m_entries = {LocalEntry("hi.txt", "R")};
            EXPECT_TRUE(run.Start(relay.GetPort(), 20000, u"A"));
            run.m_host.m_events.WaitForEnd();
        });
}

CConversation CConversations::DocumentedChannel()
{
    return Subscribed({1, 7}, {{7, "Hi!\n"}});
}
