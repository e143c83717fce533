#include "Journal.h"

#include <gtest/gtest.h>

#include "TempFolder.h"

namespace
{

class CJournalTest : public ::testing::Test
{
protected:
    std::unique_ptr<CJournal> Make() const
    {
        return std::make_unique<CJournal>(m_folder.GetPath("j"), CJournal::SYNC_ALWAYS,
                                          [](const std::string& strText)
                                          { ADD_FAILURE() << strText; });
    }
    static CFileStamp Stamp(Orb_U64 ullSize)
    {
        CFileStamp stamp;
        stamp.m_ullSize = ullSize;
        stamp.m_llChanged = 1234567890123456789LL;
        stamp.m_ullInode = 5;
        return stamp;
    }

    CTempFolder m_folder;
};

using Journal = CJournalTest;

}  // namespace

TEST_F(Journal, NamesOfEveryKindComeBack)
{
    const std::string listNames[] = {"a", "", " b ", "c\nd", "e\\n", "\xFF", "f\r"};
    auto pJournal = Make();
    ASSERT_EQ(pJournal->Open(false), CJournal::OPEN_DONE);
    EXPECT_FALSE(FileExists(m_folder.GetPath("j")));
    for (const std::string& strName : listNames)
    {
        pJournal->Add(strName, Stamp(strName.size()));
    }
    pJournal = Make();
    ASSERT_EQ(pJournal->Open(false), CJournal::OPEN_DONE);
    for (const std::string& strName : listNames)
    {
        EXPECT_TRUE(pJournal->Has(strName, Stamp(strName.size()))) << strName;
        EXPECT_FALSE(pJournal->Has(strName, Stamp(77))) << strName;
    }
    EXPECT_FALSE(pJournal->Has("b", Stamp(3)));
}

TEST_F(Journal, EveryTornEndIsPassedOverAndWrittenOn)
{
    auto pJournal = Make();
    pJournal->Open(false);
    pJournal->Add("one", Stamp(1));
    pJournal->Add("two", Stamp(2));
    pJournal.reset();
    const std::string strWhole = ReadFile(m_folder.GetPath("j"));
    for (size_t nSize = 0; nSize <= strWhole.size(); ++nSize)
    {
        m_folder.WriteFile("j", strWhole.substr(0, nSize));
        pJournal = Make();
        ASSERT_EQ(pJournal->Open(false), CJournal::OPEN_DONE);
        EXPECT_EQ(pJournal->Has("two", Stamp(2)), nSize == strWhole.size()) << nSize;
        pJournal->Add("three", Stamp(3));
        pJournal = Make();
        ASSERT_EQ(pJournal->Open(false), CJournal::OPEN_DONE);
        EXPECT_TRUE(pJournal->Has("three", Stamp(3))) << nSize;
        pJournal.reset();
    }
}

TEST_F(Journal, LinesThatMakeNoSenseArePassedOver)
{
    m_folder.WriteFile("j",
                       "osprey journal 1\n\nnonsense\n1 2\n1 2 3\n1 2 3x\n1 2 3 \\q\n"
                       "7 1234567890123456789 5 good\n");
    const auto pJournal = Make();
    ASSERT_EQ(pJournal->Open(false), CJournal::OPEN_DONE);
    EXPECT_TRUE(pJournal->Has("good", Stamp(7)));
}

TEST_F(Journal, FileOfAnotherKindIsForgotten)
{
    m_folder.WriteFile("j", "osprey journal 2\n7 1234567890123456789 5 name\n");
    auto pJournal = Make();
    ASSERT_EQ(pJournal->Open(false), CJournal::OPEN_DONE);
    EXPECT_FALSE(pJournal->Has("name", Stamp(7)));
    pJournal->Add("next", Stamp(1));
    pJournal = Make();
    pJournal->Open(false);
    EXPECT_TRUE(pJournal->Has("next", Stamp(1)));
}

TEST_F(Journal, OnlyOneHasIt)
{
    const auto pFirst = Make();
    EXPECT_EQ(pFirst->Open(true), CJournal::OPEN_DONE);
    const auto pSecond = Make();
    EXPECT_EQ(pSecond->Open(false), CJournal::OPEN_BUSY);
    pSecond->Add("name", Stamp(1));
    pSecond->Remove();
    EXPECT_TRUE(FileExists(m_folder.GetPath("j")));
    EXPECT_FALSE(pFirst->Has("name", Stamp(1)));
    pFirst->Remove();
    EXPECT_FALSE(FileExists(m_folder.GetPath("j")));
}

TEST_F(Journal, CompactKeepsWhatIsWanted)
{
    auto pJournal = Make();
    pJournal->Open(true);
    for (Orb_U64 i = 0; i < 10; ++i)
    {
        pJournal->Add("kept", Stamp(i));
        pJournal->Add("gone", Stamp(i));
    }
    EXPECT_EQ(pJournal->Lines(), 20U);
    pJournal->Compact([](const std::string& strName) { return strName == "kept"; });
    EXPECT_EQ(pJournal->Lines(), 1U);
    pJournal->Add("more", Stamp(1));
    EXPECT_EQ(Make()->Open(false), CJournal::OPEN_BUSY) << "the lock is that of the new file";
    pJournal = Make();
    ASSERT_EQ(pJournal->Open(false), CJournal::OPEN_DONE);
    EXPECT_TRUE(pJournal->Has("kept", Stamp(9)));
    EXPECT_TRUE(pJournal->Has("more", Stamp(1)));
    EXPECT_FALSE(pJournal->Has("gone", Stamp(9)));
}

TEST_F(Journal, RestartForgetsInTheFileAsWell)
{
    auto pJournal = Make();
    pJournal->Open(true);
    pJournal->Add("name", Stamp(1));
    pJournal->Restart();
    EXPECT_FALSE(pJournal->Has("name", Stamp(1)));
    pJournal = Make();
    pJournal->Open(false);
    EXPECT_FALSE(pJournal->Has("name", Stamp(1)));
}
