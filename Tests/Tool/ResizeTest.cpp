// A terminal that is resized while bars and rows stand on it: none is wrapped, and none is left
// over.

#include <gtest/gtest.h>

#include <algorithm>

#include "PeerScript.h"
#include "Publisher.h"
#include "TempFolder.h"
#include "TerminalScreen.h"
#include "Text.h"
#include "WireRecords.h"

namespace
{

using CRows = std::vector<std::string>;

const int SPARE_COLUMNS = 3;
const int WIDTHS[] = {40, 300, 20, 79, 33, 132, 21, 80, 44, 20, 56};

class CResizeTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!CTerminalScreen::IsInstalled())
        {
            GTEST_SKIP() << "needs tmux";
        }
    }

    CTempFolder m_folder;
};

using Resize = CResizeTest;

bool BeginsWith(const std::string& strText, const std::string& strBegin)
{
    return strText.compare(0, strBegin.size(), strBegin) == 0;
}

// Nothing but the bar of a file and that of all, as wide as they should be.
bool AreBars(const CRows& listRows, int nColumns, const std::string& strPercent)
{
    return listRows.size() == 2 && BeginsWith(listRows[1], "total") &&
           TextColumns(listRows[0]) <= nColumns - SPARE_COLUMNS &&
           TextColumns(listRows[0]) >= nColumns - SPARE_COLUMNS - 12 &&
           listRows[0].find(strPercent) != std::string::npos;
}

}  // namespace

TEST_F(Resize, BarsFitEveryWidthAndLeaveNothing)
{
    CPeerScript peer;
    const CTerminalScreen screen(
        {"download", peer.GetPeer(), "first", "second", "-o", m_folder.GetPath()}, 80);
    peer.Accept();
    unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwID, 0, 1000, 0) + Wire::Dfrb(dwID, std::string(100, 'x')));
    ASSERT_TRUE(screen.WaitUntil(
        "the first bars", [](const CRows& listRows) { return AreBars(listRows, 80, " 10%"); }));
    int nPercent = 10;
    for (const int nColumns : WIDTHS)
    {
        screen.Resize(nColumns);
        peer.Socket().Send(Wire::Dfrb(dwID, std::string(20, 'x')));
        nPercent += 2;
        ASSERT_TRUE(screen.WaitUntil(
            "bars of " + std::to_string(nColumns) + " columns", [&](const CRows& listRows)
            { return AreBars(listRows, nColumns, " " + std::to_string(nPercent) + "%"); }));
    }
    screen.Resize(80);
    peer.Socket().Send(
        Wire::Dfrb(dwID, std::string(static_cast<size_t>(1000 - 10 * nPercent), 'x')));
    dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwID, 0, 5, 0) + Wire::Dfrb(dwID, "12345"));
    screen.WaitUntil("nothing but what is over",
                     [](const CRows& listRows)
                     {
                         return listRows.size() == 3 &&
                                BeginsWith(listRows[0], "received first: 1000 B") &&
                                BeginsWith(listRows[1], "received second: 5 B") &&
                                BeginsWith(listRows[2], "2 files received, 1005 B");
                     });
}

TEST_F(Resize, LinesAboveTheBarsStay)
{
    CPeerScript peer;
    const CTerminalScreen screen(
        {"download", peer.GetPeer(), "a", "b", "c", "-o", m_folder.GetPath()}, 60);
    peer.Accept();
    for (int i = 0; i < 2; ++i)
    {
        const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
        peer.Socket().Send(Wire::Dfrt(dwID, 0, 5, 0) + Wire::Dfrb(dwID, "12345"));
    }
    const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwID, 0, 1000, 0) + Wire::Dfrb(dwID, std::string(500, 'x')));
    // Where a terminal becomes narrower, its own wrapping scrolls lines off.
    for (const int nColumns : {60, 61, 132, 300})
    {
        screen.Resize(nColumns);
        ASSERT_TRUE(screen.WaitUntil(
            "two lines and two bars of " + std::to_string(nColumns) + " columns",
            [&](const CRows& listRows)
            {
                return listRows.size() == 4 && BeginsWith(listRows[0], "received a: 5 B") &&
                       BeginsWith(listRows[1], "received b: 5 B") &&
                       AreBars({listRows[2], listRows[3]}, nColumns, " 50%");
            }));
    }
}

TEST_F(Resize, RowsOfChannelsFitAndLeaveNothing)
{
    CPublisher publisher({"--rate", "100", "--channel", "1=/dev/zero", "--channel", "2=udp:0"});
    const CTerminalScreen screen(
        {"subscribe", publisher.GetPeer(), "--channel", "1", "--channel", "2"}, 80);
    for (const int nColumns : {80, 20, 132, 33, 80})
    {
        screen.Resize(nColumns);
        ASSERT_TRUE(screen.WaitUntil(
            "two rows of " + std::to_string(nColumns) + " columns",
            [&](const CRows& listRows)
            {
                // Above them a line tells of the connection, if it was not scrolled off.
                const size_t n = listRows.size();
                const auto nRows = std::count_if(listRows.begin(), listRows.end(),
                                                 [](const std::string& strRow)
                                                 { return BeginsWith(strRow, "channel "); });
                return nRows == 2 && BeginsWith(listRows[n - 2], "channel 1") &&
                       BeginsWith(listRows[n - 1], "channel 2") &&
                       TextColumns(listRows[n - 2]) <= nColumns - SPARE_COLUMNS;
            }));
    }
}
