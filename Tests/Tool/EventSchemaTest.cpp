// What the commands print with --json is what Docs/events.schema.json says, whatever names hold; as
// text it is one harmless line an event.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <random>

#include "CapturedOutput.h"
#include "EventLines.h"
#include "HexWriter.h"
#include "HostileText.h"
#include "Progress.h"
#include "PublishLog.h"
#include "Publisher.h"
#include "ServeEvents.h"
#include "ServedFolder.h"
#include "SubscribeLog.h"
#include "Text.h"
#include "WireRecords.h"

namespace
{

const char* const REQUESTS[] = {"upload", "download", "folder", "delete"};

// A source that gave nothing.
class CNoSource : public IChannelSource
{
public:
    CNoSource(const CSourceSpec& spec, const std::string& strFailure) : IChannelSource(spec)
    {
        m_strFailure = strFailure;
    }
    int Descriptor() const override
    {
        return -1;
    }
    bool WantsData() const override
    {
        return false;
    }
    bool IsEnded() const override
    {
        return true;
    }
    void Read(const CPutPacket&) override {}
    long long DueAt(long long) const override
    {
        return NEVER_DUE;
    }
    void Serve(long long, const CPutPacket&) override {}
};

// Tells one event after another of every kind that has a name in it, in this process.
class CEveryEvent
{
public:
    CEveryEvent(COutput& output, bool bJson)
        : m_output(output),
          m_bJson(bJson),
          m_log(output, bJson ? CEventLog::STYLE_JSON : CEventLog::STYLE_TEXT),
          m_serve(m_log)
    {
    }

    static constexpr size_t KINDS = 25;

    // Returns the command that prints such a line.
    const char* Tell(size_t nKind, const std::string& strName, const std::string& strOther)
    {
        return nKind < 12   ? TellServed(nKind, strName, strOther)
               : nKind < 19 ? TellMoved(nKind - 12, strName, strOther)
                            : TellChannel(nKind - 19, strName, strOther);
    }

private:
    const char* TellServed(size_t nKind, const std::string& strName, const std::string& strOther)
    {
        const CConnectionName peer = nKind % 2 == 0 ? CConnectionName(strOther) : CConnectionName();
        switch (nKind)
        {
            case 0:
            case 1:
                m_serve.Finished(nKind == 0, peer, strName, 7, 0.5);
                break;
            case 2:
            case 3:
                m_serve.Incomplete(nKind == 2, peer, strName, 3, 7, nKind == 2 ? strOther : "");
                break;
            case 4:
                m_serve.FolderCreated(peer, strName);
                break;
            case 5:
                m_serve.Deleted(peer, strName);
                break;
            case 6:
                m_serve.Refused(REQUESTS[strName.size() % 4], peer, strName, "refused");
                break;
            case 7:
                m_serve.Failed(REQUESTS[strName.size() % 4], peer, strName, "failed");
                break;
            case 8:
                m_serve.Connected(strName);
                break;
            case 9:
                m_serve.Disconnected(strName);
                break;
            case 10:
                m_serve.TurnedAway("10.0.0.7", "not allowed", nKind);
                break;
            default:
                m_serve.Stopped();
                break;
        }
        return "serve";
    }

    const char* TellMoved(size_t nKind, const std::string& strName, const std::string& strOther)
    {
        const bool bSubmit = nKind % 2 == 0;
        CProgress progress(m_output, m_bJson ? CProgress::STYLE_JSON : CProgress::STYLE_LINES,
                           bSubmit);
        CProgress::CFile file(progress, strName);
        file.Moves(50, 5, 10);
        switch (nKind)
        {
            case 0:
            case 1:
                file.Ends(10);
                break;
            case 2:
                file.FolderEnds();
                break;
            case 3:
                file.Fails(strName, "failed", true);
                break;
            case 4:
                progress.Connected(strOther);
                break;
            case 5:
                progress.Draw();
                break;
            default:
                progress.Finish();
                break;
        }
        return bSubmit ? "submit" : "download";
    }

    const char* TellChannel(size_t nKind, const std::string& strName, const std::string& strOther)
    {
        CSourceSpec spec;
        spec.m_eKind = SOURCE_FILE;
        spec.m_strPath = strName;
        CPublishLog published(m_log, m_output, false);
        CSubscribeLog subscribed(m_log, m_output, strName);
        switch (nKind)
        {
            case 0:
                published.Opened(spec);
                return "publish";
            case 1:
                published.Ended(CNoSource(spec, strOther));
                return "publish";
            case 2:
                published.Summary(CNoSource(spec, ""));
                return "publish";
            case 3:
                subscribed.Connected({1, 4294967295U});
                return "subscribe";
            case 4:
                subscribed.ConnectFailed();
                return "subscribe";
            default:
                subscribed.Lost();
                return "subscribe";
        }
    }

    COutput& m_output;
    const bool m_bJson;
    CEventLog m_log;
    CServeEvents m_serve;
};

void ExpectNoFaults(const CEventLines& lines)
{
    EXPECT_EQ(lines.Faults(), "");
}

// The lines of 10,000 events with such names.
class CHostileEventsTest : public ::testing::Test
{
protected:
    static constexpr size_t EVENTS = 10000;

    CHostileEventsTest()
    {
        CHostileText text;
        m_listNames.reserve(EVENTS);
        for (size_t i = 0; i < EVENTS; ++i)
        {
            m_listNames.push_back(text.Next());
        }
    }

    void TellAll(bool bJson)
    {
        CEveryEvent events(m_captured.Output(), bJson);
        for (size_t i = 0; i < EVENTS; ++i)
        {
            m_listCommands.emplace_back(
                events.Tell(i % CEveryEvent::KINDS, m_listNames[i], m_listNames[EVENTS - 1 - i]));
        }
    }

    CCapturedOutput m_captured;
    std::vector<std::string> m_listNames;
    std::vector<std::string> m_listCommands;
};

using HostileEvents = CHostileEventsTest;

}  // namespace

TEST_F(HostileEvents, EachIsOneLineOfTheSchemaAndKeepsItsName)
{
    TellAll(true);
    const std::vector<std::string> listLines = m_captured.Lines();
    ASSERT_EQ(listLines.size(), EVENTS);
    CEventLines lines;
    for (size_t i = 0; i < EVENTS; ++i)
    {
        ASSERT_TRUE(IsHarmlessLine(listLines[i])) << QuoteText(listLines[i]);
        const CEvent event = CEvent::Parse(listLines[i]);
        ASSERT_TRUE(event.Has("event")) << listLines[i];
        if (IsValidUTF8(m_listNames[i]) && event.Has("path"))
        {
            EXPECT_EQ(event["path"], m_listNames[i]) << listLines[i];
        }
        lines.Add(m_listCommands[i], listLines[i]);
    }
    if (!CEventLines::CanJudge())
    {
        GTEST_SKIP() << "the schema is not looked at: it needs python3-jsonschema";
    }
    ExpectNoFaults(lines);
}

TEST_F(HostileEvents, AreHarmlessLinesAsText)
{
    TellAll(false);
    const std::vector<std::string> listLines = m_captured.Lines();
    // Text has no line for a folder that was made, for a connection, and for the beginning of a
    // file.
    EXPECT_GT(listLines.size(), EVENTS / 2);
    EXPECT_LT(listLines.size(), EVENTS);
    for (const std::string& strLine : listLines)
    {
        ASSERT_TRUE(IsHarmlessLine(strLine)) << QuoteText(strLine);
    }
    const std::vector<std::string> listErrors = m_captured.Errors();
    EXPECT_GT(listErrors.size(), 0U);
    for (const std::string& strLine : listErrors)
    {
        ASSERT_TRUE(IsHarmlessLine(strLine)) << QuoteText(strLine);
        EXPECT_EQ(strLine.compare(0, 8, "osprey: "), 0) << strLine;
    }
}

namespace
{

// Runs of all commands with --json. Whatever they print goes into the lines.
class CEventSchemaTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!CEventLines::CanJudge())
        {
            GTEST_SKIP() << "needs python3-jsonschema";
        }
        m_local.WriteFile("source", "one\ntwo\n");
    }

    // Runs it to its end; returns the exit code.
    int Run(std::vector<std::string> listArguments)
    {
        listArguments.emplace_back("--json");
        const CToolRun run(listArguments);
        m_lines.AddOutput(listArguments.front(), run.m_strOutput);
        return run.m_nExitCode;
    }

    void MoveFiles()
    {
        CServedFolder served({"--channel", "9=" + m_local.GetPath("source")});
        const std::string strPeer = served.GetPeer();
        CToolProcess watch({"watch", m_local.GetPath(), strPeer, "--json", "--to", "watched"});
        EXPECT_FALSE(watch.WaitForEvent("sent").IsNull());
        watch.Signal(SIGTERM);
        EXPECT_EQ(watch.Wait(), 0);
        m_lines.AddOutput("watch", watch.GetOutput());
        EXPECT_EQ(Run({"submit", strPeer, m_local.GetPath(), "--to", "to", "--verify"}), 0);
        EXPECT_EQ(Run({"submit", strPeer, m_local.GetPath("missing")}), 1);
        const std::string strOut = m_local.GetPath("out");
        EXPECT_EQ(Run({"download", strPeer, "watched/source", "missing", "-o", strOut}), 1);
        EXPECT_EQ(Run({"download", strPeer, "watched/source", "--verify", "-o", strOut}), 24);
        CRawSocket peer = served.Connect();
        peer.Send(Wire::Upfi(2, 3, 0, u"../outside"));
        peer.ReceivePacket();
        peer.Send(Wire::Delt(2, u"watched/source"));
        peer.ReceivePacket();
        peer.Send(Wire::Upfi(2, 3, 0, u"half"));
        peer.ReceivePacket();
        peer.Reset();
        EXPECT_FALSE(served.Tool().WaitForEvent("incomplete").IsNull());
        EXPECT_EQ(served.Stop(), 0);
        m_lines.AddOutput("serve", served.Tool().GetOutput());
    }

    void MovePackets()
    {
        CPublisher publisher({"--channel", "1=" + m_local.GetPath("source"), "--lines", "--wait",
                              "--channel", "2=udp:0", "--channel", "3=/dev/zero"});
        const std::string strPeer = publisher.GetPeer();
        EXPECT_EQ(Run({"subscribe", strPeer, "-c", "1=hex", "--count", "2"}), 0);
        CToolProcess reader({"subscribe", strPeer, "--json", "-c", "3", "-c", "2"});
        EXPECT_FALSE(reader.WaitForEvent("stats").IsNull());
        EXPECT_EQ(Run({"download", strPeer, "f", "-o", m_local.GetPath()}), 1);
        EXPECT_EQ(publisher.Stop(), 0);
        EXPECT_FALSE(reader.WaitForEvent("connect_failed").IsNull());
        reader.Signal(SIGTERM);
        EXPECT_EQ(reader.Wait(), 0);
        m_lines.AddOutput("subscribe", reader.GetOutput());
        m_lines.AddOutput("publish", publisher.Tool().GetOutput());
    }

    CTempFolder m_local;
    CEventLines m_lines;
};

using EventSchema = CEventSchemaTest;

}  // namespace

TEST_F(EventSchema, DescribesEveryLineOfEveryCommandAndNoneBesides)
{
    MoveFiles();
    MovePackets();
    EXPECT_EQ(Run({"version"}), 0);
    {
        // What is rare in runs.
        CCapturedOutput captured;
        CEveryEvent events(captured.Output(), true);
        std::vector<const char*> listCommands;
        for (size_t nKind = 0; nKind < CEveryEvent::KINDS; ++nKind)
        {
            listCommands.push_back(events.Tell(nKind, "name", "other"));
        }
        const std::vector<std::string> listLines = captured.Lines();
        ASSERT_EQ(listLines.size(), listCommands.size());
        for (size_t i = 0; i < listLines.size(); ++i)
        {
            m_lines.Add(listCommands[i], listLines[i]);
        }
        CEventLog log(captured.Output(), CEventLog::STYLE_JSON);
        m_lines.Add("serve", log.GapLine(7));
    }
    ExpectNoFaults(m_lines);
    EXPECT_EQ(m_lines.Unseen(), "");
}

TEST_F(EventSchema, HoldsForHostileNamesOnTheDiskAndTheLine)
{
    CServedFolder served;
    CHostileText text;
    std::filesystem::create_directory(m_local.GetPath("in"));
    for (int i = 0; i < 300; ++i)
    {
        m_local.WriteFile("in/" + text.NextFileName(), "x");
    }
    EXPECT_EQ(Run({"submit", served.GetPeer(), m_local.GetPath("in"), "--jobs", "4"}), 1);
    CRawSocket peer = served.Connect();
    std::mt19937 random(7);
    for (uint32_t dwID = 2; dwID < 102 && !HasFailure(); ++dwID)
    {
        std::u16string strName = u"..\n";
        for (size_t nLeft = 1 + random() % 40; nLeft > 0; --nLeft)
        {
            strName += static_cast<char16_t>(1 + random() % (random() % 2 == 0 ? 0xA0 : 0xD7FF));
        }
        peer.Send(Wire::Cdir(dwID, strName));
        peer.ReceivePacket();
    }
    EXPECT_EQ(served.Stop(), 0);
    m_lines.AddOutput("serve", served.Tool().GetOutput());
    ExpectNoFaults(m_lines);
}

TEST(StandardOutput, HasNothingButJsonWhenARunFails)
{
    const CTempFolder folder;
    const std::string strNone = folder.GetPath("none");
    const std::vector<std::vector<std::string>> listRuns = {
        {"serve", "--root", strNone},
        {"submit", "127.0.0.1:1", strNone},
        {"submit", "127.0.0.1:1", folder.WriteFile("f", "")},
        {"download", "127.0.0.1:1", "f", "-o", folder.GetPath()},
        {"watch", strNone, "127.0.0.1:1"},
        {"publish", "--port", "0", "--channel", "1=" + strNone},
        {"subscribe", "127.0.0.1:1", "--channel", "1=" + strNone + "/x"},
        {"version", "surplus"},
    };
    for (std::vector<std::string> listArguments : listRuns)
    {
        listArguments.emplace_back("--json");
        const CToolRun run(listArguments);
        EXPECT_NE(run.m_nExitCode, 0) << listArguments.front();
        EXPECT_EQ(run.m_strErrors.compare(0, 8, "osprey: "), 0) << listArguments.front();
        CEventLines().AddOutput(listArguments.front(), run.m_strOutput);
    }
}
