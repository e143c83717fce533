// The tool on a terminal: what it draws fits, and goes away.

#include <gtest/gtest.h>

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
            i = strOutput.find_first_of("AJ", i);
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
    // Two rows of bars: taken off by going up one row and clearing the rest.
    EXPECT_NE(m_strOutput.find("\r\x1B[1A\x1B[J"), std::string::npos);
    EXPECT_NE(m_strOutput.find("received first/name: 1000 B"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Columns, Terminal, ::testing::Values(20, 33, 44, 56, 80, 132, 300));
