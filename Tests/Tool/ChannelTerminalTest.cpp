// Channels on a terminal: rows that fit, change in place and go away.

#include <gtest/gtest.h>
#include <signal.h>

#include "Publisher.h"
#include "TempFolder.h"
#include "Text.h"

namespace
{

const char ROWS_OFF[] = "\r\x1B[1A\x1B[J";  // two rows

// What was drawn as rows: between a row that was taken off and the next one.
std::vector<std::string> DrawnRows(const std::string& strOutput)
{
    std::vector<std::string> listRows;
    size_t nFrom = strOutput.find("\x1B[J");
    while (nFrom != std::string::npos)
    {
        nFrom += 3;
        const size_t nTo = strOutput.find_first_of("\r\n", nFrom);
        const std::string strRow = strOutput.substr(nFrom, nTo - nFrom);
        if (strRow.compare(0, 8, "channel ") == 0)
        {
            listRows.push_back(strRow);
        }
        nFrom = strOutput.find("\x1B[J", nFrom);
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
                                       nAt = strOutput.find(ROWS_OFF, nAt + 1);
                                   }
                                   return nAt != std::string::npos;
                               }));
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
    const size_t nLine = strOutput.rfind(ROWS_OFF, strOutput.find("lost"));
    ASSERT_NE(nLine, std::string::npos);
    // "12:34:56 lost" follows at once.
    EXPECT_EQ(strOutput.find("lost", nLine), nLine + sizeof ROWS_OFF - 1 + 9);
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
    CToolProcess tool({"subscribe", publisher.GetPeer(), "--quiet", "--channel", "1", "--for", "1"},
                      80);
    EXPECT_EQ(tool.Wait(), 0);
    EXPECT_EQ(tool.GetOutput(), "");
}
