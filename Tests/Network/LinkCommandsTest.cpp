// What the network simulator obeys, and when its link is dead.

#include <gtest/gtest.h>

#include "Commands.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

class CLinkCommands : public ::testing::Test
{
protected:
    bool Obeys(const std::string& strLine, int nAfterMs = 0)
    {
        return Obey(strLine, m_start + milliseconds(nAfterMs), m_settings, m_cuts);
    }
    bool IsCutAfter(int nAfterMs) const
    {
        return m_cuts.IsCut(m_start + milliseconds(nAfterMs));
    }

    CLinkSettings m_settings;
    CCuts m_cuts;
    CCuts::CTime m_start{std::chrono::hours(1)};
};
using LinkCommands = CLinkCommands;

TEST_F(LinkCommands, ChangeWhatTheLinkDoes)
{
    EXPECT_TRUE(Obeys("delay 100"));
    EXPECT_TRUE(Obeys("loss 2.5"));
    EXPECT_TRUE(Obeys("reorder-by 7"));
    EXPECT_EQ(m_settings.m_dDelayMs, 100);
    EXPECT_EQ(m_settings.m_dLoss, 2.5);
    EXPECT_EQ(m_settings.m_dReorderMs, 7);
}

TEST_F(LinkCommands, ThatAreNoneChangeNothing)
{
    for (const char* pszLine :
         {"", "loss", "loss x", "loss 101", "loss -1", "loss 5 5", "loss nan", "delay inf",
          "lose 5", "cut x", "cut -1", "cut 1 2", "join 1", "joint", "delay 1x"})
    {
        EXPECT_FALSE(Obeys(pszLine)) << pszLine;
    }
    EXPECT_EQ(m_settings.m_dLoss, 0);
    EXPECT_EQ(m_settings.m_dDelayMs, 0);
    EXPECT_FALSE(IsCutAfter(0));
}

TEST_F(LinkCommands, CutLastsUntilJoin)
{
    EXPECT_TRUE(Obeys("cut"));
    EXPECT_TRUE(IsCutAfter(0));
    EXPECT_TRUE(IsCutAfter(1000000));
    EXPECT_TRUE(Obeys("join", 5));
    EXPECT_FALSE(IsCutAfter(5));
}

TEST_F(LinkCommands, CutOfSecondsEndsByItself)
{
    EXPECT_TRUE(Obeys("cut 2.5", 100));
    EXPECT_EQ(m_cuts.GetNext(m_start + milliseconds(100)), m_start + milliseconds(2600));
    EXPECT_TRUE(IsCutAfter(2599));
    EXPECT_FALSE(IsCutAfter(2600));
    EXPECT_EQ(m_cuts.GetNext(m_start + milliseconds(2600)), CCuts::CTime::max());
}

TEST_F(LinkCommands, PlannedCutsBeginLaterAndOutliveAJoin)
{
    EXPECT_TRUE(AddCut("1:2", m_start, m_cuts));
    EXPECT_TRUE(AddCut("10", m_start, m_cuts));
    EXPECT_FALSE(IsCutAfter(999));
    EXPECT_TRUE(IsCutAfter(1000));
    EXPECT_TRUE(Obeys("join", 1500));
    EXPECT_FALSE(IsCutAfter(1500));
    EXPECT_TRUE(IsCutAfter(10000));
    EXPECT_EQ(m_cuts.GetNext(m_start + seconds(2)), m_start + seconds(10));
}

TEST_F(LinkCommands, PlanThatIsNoneIsRefused)
{
    for (const char* pszCut : {"", ":", "1:", ":1", "x", "1:x", "-1:2", "1:2:3"})
    {
        EXPECT_FALSE(AddCut(pszCut, m_start, m_cuts)) << pszCut;
    }
    EXPECT_EQ(m_cuts.GetNext(m_start), CCuts::CTime::max());
}

}  // namespace
