// Channels on a terminal: rows that fit, change in place and go away.

#include <gtest/gtest.h>
#include <signal.h>

#include "Publisher.h"
#include "TempFolder.h"
#include "Text.h"
#include "UdpEnd.h"

namespace
{

const char TWO_ROWS[] = "\r\x1B[1A\x1B[?7h";  // drawn, the cursor at their beginning
const char TWO_ROWS_OFF[] = "\r\x1B[1A\x1B[?7h\r\x1B[K \x1B[J\r";  // and taken off

// What was drawn as rows: between a row that was taken off and the next one.
std::vector<std::string> DrawnRows(const std::string& strOutput)
{
    std::vector<std::string> listRows;
    size_t nFrom = strOutput.find("\x1B[J\r");
    while (nFrom != std::string::npos)
    {
        nFrom += 4;
        const size_t nTo = strOutput.find_first_of("\r\n", nFrom);
        const std::string strRow = strOutput.substr(nFrom, nTo - nFrom);
        if (strRow.compare(0, 8, "channel ") == 0)
        {
            listRows.push_back(strRow);
        }
        nFrom = strOutput.find("\x1B[J\r", nFrom);
    }
    return listRows;
}

class CChannelTerminalTest : public ::testing::TestWithParam<int>
{
protected:
    void ExpectRows(const std::string& strOutput) const
    {
        const std::vector<std::string> listRows = DrawnRows(strOutput);
        EXPECT_FALSE(listRows.empty());
        EXPECT_TRUE(HasOnlyCursorSequences(strOutput));
        for (const std::string& strRow : listRows)
        {
            EXPECT_LE(TextColumns(strRow), GetParam() - 3) << strRow;
        }
    }
};

using ChannelTerminal = CChannelTerminalTest;

// Waits until rows were replaced several times.
void WaitForRows(CToolProcess& tool)
{
    EXPECT_TRUE(tool.WaitUntil("rows that change in place",
                               [&tool]
                               {
                                   const std::string& strOutput = tool.GetOutput();
                                   size_t nAt = 0;
                                   for (int i = 0; i < 4 && nAt != std::string::npos; ++i)
                                   {
                                       nAt = strOutput.find(TWO_ROWS, nAt + 1);
                                   }
                                   return nAt != std::string::npos;
                               }));
}

// The number that follows the text in the tool's output.
std::string NumberBehind(CToolProcess& tool, const std::string& strText)
{
    EXPECT_TRUE(tool.WaitForOutput(strText));
    const size_t nAt = tool.GetOutput().find(strText) + strText.size();
    EXPECT_TRUE(tool.WaitUntil(
        "a number behind " + strText, [&]
        { return tool.GetOutput().find_first_not_of("0123456789", nAt) != std::string::npos; }));
    return tool.GetOutput().substr(nAt,
                                   tool.GetOutput().find_first_not_of("0123456789", nAt) - nAt);
}

}  // namespace

TEST_P(ChannelTerminal, SubscriberDrawsARowForEachChannel)
{
    CPublisher publisher({"--rate", "100", "--channel", "1=/dev/zero", "--channel", "2=udp:0"});
    const CTempFolder folder;
    CToolProcess tool({"subscribe", publisher.GetPeer(), "--channel", "1", "--channel",
                       "2=" + folder.GetPath("out")},
                      GetParam());
    ASSERT_TRUE(tool.WaitForOutput("connected"));
    WaitForRows(tool);
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 0);
    ExpectRows(tool.GetOutput());
    // The rows stay as they were, and the summary comes below.
    const size_t nSummary = tool.GetOutput().find("summary");
    ASSERT_NE(nSummary, std::string::npos);
    EXPECT_LT(tool.GetOutput().rfind("\x1B[J"), nSummary);
}

TEST_P(ChannelTerminal, PublisherDrawsARowForEachChannel)
{
    CToolProcess tool({"publish", "--port", "0", "--rate", "100", "--channel", "1=/dev/zero",
                       "--channel", "4294967295=udp:0"},
                      GetParam());
    ASSERT_TRUE(tool.WaitForOutput("listening"));
    WaitForRows(tool);
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(), 0);
    ExpectRows(tool.GetOutput());
}

INSTANTIATE_TEST_SUITE_P(Columns, ChannelTerminal, ::testing::Values(20, 44, 80, 200));

TEST(ChannelOnTerminal, LinesTakeTheRowsOff)
{
    const CTempFolder folder;
    CPublisher publisher({"--rate", "50", "--channel", "1=/dev/zero", "--channel", "2=udp:0"});
    CToolProcess tool({"subscribe", publisher.GetPeer(), "--channel", "1", "--channel", "2"}, 80);
    ASSERT_TRUE(tool.WaitForOutput("connected"));
    WaitForRows(tool);
    EXPECT_EQ(publisher.Stop(), 0);
    ASSERT_TRUE(tool.WaitForOutput("lost"));
    const std::string& strOutput = tool.GetOutput();
    const size_t nLine = strOutput.rfind(TWO_ROWS_OFF, strOutput.find("lost"));
    ASSERT_NE(nLine, std::string::npos);
    // "12:34:56 lost" follows at once.
    EXPECT_EQ(strOutput.find("lost", nLine), nLine + sizeof TWO_ROWS_OFF - 1 + 9);
    ASSERT_TRUE(tool.WaitForOutput("not connected"));
}

TEST(ChannelOnTerminal, RawDataIsRefused)
{
    CToolProcess tool({"subscribe", "127.0.0.1", "--channel", "1=-"}, 80);
    EXPECT_EQ(tool.Wait(), 2);
    EXPECT_EQ(tool.GetErrors(),
              "osprey: cannot write standard output: it is a terminal, which is no place for raw "
              "data; hex is\n");
    EXPECT_EQ(tool.GetOutput(), "");
}

TEST(ChannelOnTerminal, QuietDrawsNothing)
{
    CPublisher publisher({"--rate", "50", "--channel", "1=/dev/zero"});
    // Long enough for a connection on a slow machine.
    CToolProcess tool({"subscribe", publisher.GetPeer(), "--quiet", "--channel", "1", "--for", "5"},
                      80);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_EQ(tool.GetOutput(), "");
}

TEST(ChannelOnTerminal, StoppedOutputStopsNoPackets)
{
    CToolProcess publisher({"publish", "--port", "0", "--channel", "1=udp:0"}, 80);
    const std::string strUdp = NumberBehind(publisher, "udp:127.0.0.1:");
    const std::string strPort = NumberBehind(publisher, "on port ");
    CUdpEnd end;
    CToolProcess subscriber(
        {"subscribe", "127.0.0.1:" + strPort, "--channel", "1=" + end.GetName(), "--quiet"});
    const unsigned short wUdp = static_cast<unsigned short>(std::stoi(strUdp));
    std::string strData;
    ASSERT_TRUE(publisher.WaitUntil("the first packet",
                                    [&]
                                    {
                                        end.Send(wUdp, "first");
                                        return end.Receive(strData, 10);
                                    }));
    publisher.Type("\x13");
    // Rows are drawn eight times a second: there are many while these go through.
    for (int i = 0; i < 20 && !testing::Test::HasFailure(); ++i)
    {
        const std::string strNumber = std::to_string(i);
        end.Send(wUdp, strNumber);
        do
        {
            strData = end.Receive();
        } while (strData == "first");
        EXPECT_EQ(strData, strNumber);
    }
    publisher.Signal(SIGTERM);
    EXPECT_EQ(publisher.Wait(), 0);
}

TEST(ChannelOnTerminal, SecondSignalEndsASubscriberWhoseOutputIsStopped)
{
    const CEndWithoutJoin forced;
    CPublisher publisher({"--rate", "50", "--channel", "1=/dev/zero"});
    CToolProcess tool({"subscribe", publisher.GetPeer(), "--channel", "1", "--channel", "2"}, 80);
    ASSERT_TRUE(tool.WaitForOutput("connected"));
    WaitForRows(tool);
    tool.Type("\x13");
    tool.SignalUntilEnd(SIGTERM);
    EXPECT_FALSE(testing::Test::HasFailure());
}
