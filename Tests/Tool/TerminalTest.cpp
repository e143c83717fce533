// The tool on a terminal: what it draws fits, and goes away.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "PeerScript.h"
#include "TempFolder.h"
#include "Text.h"
#include "ToolProcess.h"
#include "WireRecords.h"

namespace
{

// The texts that were written to one row each.
std::vector<std::string> Rows(const std::string& strOutput)
{
    std::vector<std::string> listRows(1);
    for (size_t i = 0; i < strOutput.size(); ++i)
    {
        const char c = strOutput[i];
        if (c == '\r' || c == '\n')
        {
            listRows.emplace_back();
        }
        else if (c == '\x1B')
        {
            i = strOutput.find_first_of("AJKhl", i);
        }
        else
        {
            listRows.back() += c;
        }
    }
    return listRows;
}

class CTerminalTest : public ::testing::TestWithParam<int>
{
protected:
    // Two files of 1,000 bytes, the first one in halves with a look at the bar between them.
    void Run()
    {
        CPeerScript peer;
        CToolProcess tool(
            {"download", peer.GetPeer(), "first/name", "second", "-o", m_folder.GetPath()},
            GetParam());
        peer.Accept();
        unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
        const std::string strHalf(500, 'x');
        peer.Socket().Send(Wire::Dfrt(dwID, 0, 1000, 0) + Wire::Dfrb(dwID, strHalf));
        EXPECT_TRUE(tool.WaitForOutput(" 50%"));
        peer.Socket().Send(Wire::Dfrb(dwID, strHalf));
        dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
        peer.Socket().Send(Wire::Dfrt(dwID, 0, 1000, 0) + Wire::Dfrb(dwID, strHalf + strHalf));
        EXPECT_EQ(tool.Wait(), 0);
        m_strOutput = tool.GetOutput();
    }

    CTempFolder m_folder;
    std::string m_strOutput;
};

using Terminal = CTerminalTest;

}  // namespace

TEST_P(Terminal, BarsFitAndSummaryComesLast)
{
    Run();
    for (const std::string& strRow : Rows(m_strOutput))
    {
        const bool bBar =
            !strRow.empty() && strRow.back() != ' ' && strRow.find(" in ") == std::string::npos;
        EXPECT_LT(bBar ? TextColumns(strRow) : 0, GetParam()) << strRow;
    }
    EXPECT_NE(m_strOutput.find("2 files received, "), std::string::npos);
    // Two rows of bars, the cursor at their beginning; taken off by clearing all from there on.
    EXPECT_NE(m_strOutput.find("\r\x1B[1A\x1B[?7h\r\x1B[K \x1B[J\r"), std::string::npos);
    EXPECT_TRUE(HasOnlyCursorSequences(m_strOutput));
    EXPECT_NE(m_strOutput.find("received first/name: 1000 B"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Columns, Terminal, ::testing::Values(20, 33, 44, 56, 80, 132, 300));

namespace
{

// A download of one file of 1,000 bytes, whose bytes come when the test says so.
class CSlowDownloadTest : public ::testing::Test
{
protected:
    void Start(const std::vector<std::string>& listOptions, int nColumns)
    {
        std::vector<std::string> listArguments = {"download", m_peer.GetPeer(), "f", "-o",
                                                  m_folder.GetPath()};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        m_pTool = std::make_unique<CToolProcess>(listArguments, nColumns);
        m_peer.Accept();
        m_dwID = Wire::GetU32(m_peer.Expect("DFIL"), 12);
        m_peer.Socket().Send(Wire::Dfrt(m_dwID, 0, 1000, 0));
    }
    void Send(size_t nBytes)
    {
        m_peer.Socket().Send(Wire::Dfrb(m_dwID, std::string(nBytes, 'x')));
    }

    CTempFolder m_folder;
    CPeerScript m_peer;
    std::unique_ptr<CToolProcess> m_pTool;
    unsigned int m_dwID = 0;
};

using SlowDownload = CSlowDownloadTest;

size_t Count(const std::string& strText, const std::string& strPart)
{
    size_t nCount = 0;
    for (size_t n = strText.find(strPart); n != std::string::npos;
         n = strText.find(strPart, n + strPart.size()))
    {
        ++nCount;
    }
    return nCount;
}

}  // namespace

TEST_F(SlowDownload, BarSaysStalledAndIsDrawnAtMostTenTimesASecond)
{
    const auto begin = std::chrono::steady_clock::now();
    Start({}, 80);
    Send(500);
    ASSERT_TRUE(m_pTool->WaitForOutput("stalled"));
    const double dSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    EXPECT_GE(dSeconds, 5.0);
    const size_t nDrawn = Count(m_pTool->GetOutput(), "\x1B[?7h");
    EXPECT_LE(static_cast<double>(nDrawn), 10.0 * dSeconds);
    EXPECT_GE(nDrawn, 2U);
    // A byte ends it.
    Send(100);
    ASSERT_TRUE(m_pTool->WaitForOutput(" 60%"));
    Send(400);
    EXPECT_EQ(m_pTool->Wait(), 0);
    const std::string& strOutput = m_pTool->GetOutput();
    EXPECT_EQ(strOutput.find("stalled", strOutput.find(" 60%")), std::string::npos);
}

TEST_F(SlowDownload, NarrowBarSaysStalledToo)
{
    Start({}, 20);
    Send(500);
    EXPECT_TRUE(m_pTool->WaitForOutput("stalled"));
}

TEST_F(SlowDownload, JsonSaysStalled)
{
    Start({"--json"}, 0);
    Send(500);
    CEvent event = m_pTool->WaitForEvent("progress");
    EXPECT_EQ(event["stalled"], false);
    while (!event.IsNull() && event["stalled"] == false)
    {
        event = m_pTool->WaitForEvent("progress");
    }
    EXPECT_EQ(event["stalled"], true);
    EXPECT_EQ(event["percent"], 50);
}

TEST_F(SlowDownload, PipeGetsALineForEachQuarterAtMost)
{
    Start({}, 0);
    Send(300);
    ASSERT_TRUE(m_pTool->WaitForOutput("receiving f: 30%, 300 B, "));
    Send(150);
    Send(350);
    ASSERT_TRUE(m_pTool->WaitForOutput("receiving f: 80%, 800 B, "));
    Send(200);
    EXPECT_EQ(m_pTool->Wait(), 0);
    const std::string& strOutput = m_pTool->GetOutput();
    EXPECT_LE(Count(strOutput, "receiving f: "), 3U) << strOutput;
    EXPECT_EQ(Count(strOutput, " 30%"), 1U) << strOutput;
    EXPECT_NE(strOutput.find("received f: 1000 B in "), std::string::npos);
    EXPECT_EQ(strOutput.find_first_of("\r\x1B"), std::string::npos);
}

TEST_F(SlowDownload, TerminalThatCannotMoveItsCursorGetsTheLinesOfAPipe)
{
    for (const char* pszTerm : {"dumb", ""})
    {
        const CWithTerm term(pszTerm);
        Start({}, 80);
        Send(600);
        ASSERT_TRUE(m_pTool->WaitForOutput("receiving f: 60%, 600 B, "));
        Send(400);
        EXPECT_EQ(m_pTool->Wait(), 0);
        EXPECT_EQ(m_pTool->GetOutput().find('\x1B'), std::string::npos);
        EXPECT_NE(m_pTool->GetOutput().find("1 file received, 1000 B in "), std::string::npos);
    }
}
