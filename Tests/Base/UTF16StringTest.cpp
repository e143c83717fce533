#include "UTF16String.h"

#include <gtest/gtest.h>

namespace
{

const unsigned short ABC[] = {'a', 'b', 'c', 0, 'x'};

TEST(UTF16String, LengthCountsUnitsBeforeTheTerminator)
{
    const unsigned short empty[] = {0};
    EXPECT_EQ(UTF16StrLen(ABC), 3);
    EXPECT_EQ(UTF16StrLen(empty), 0);
}

TEST(UTF16String, CopyTakesTheTerminatorAndNothingBehindIt)
{
    unsigned short copy[5] = {7, 7, 7, 7, 7};
    UTF16Copy(copy, ABC);
    EXPECT_EQ(copy[2], 'c');
    EXPECT_EQ(copy[3], 0);
    EXPECT_EQ(copy[4], 7);
}

TEST(UTF16String, StringEndsAtTheFirstZeroUnit)
{
    const CUTF16String strText(ABC);
    EXPECT_EQ(strText.size(), 3U);
    EXPECT_EQ(strText.c_str()[3], 0);
}

TEST(UTF16String, OrdersByUnsignedUnits)
{
    const unsigned short high[] = {0xFFFF, 0};
    const unsigned short low[] = {0x0001, 0};
    EXPECT_LT(CUTF16String(low), CUTF16String(high));
    EXPECT_LT(CUTF16String(ABC), CUTF16String(high));
    EXPECT_EQ(CUTF16String(ABC).compare(ABC), 0);
}

TEST(UTF16String, ComparesUpToTheFirstDifference)
{
    const unsigned short abd[] = {'a', 'b', 'd', 0};
    EXPECT_LT(utf_traits::compare(ABC, abd, 3), 0);
    EXPECT_GT(utf_traits::compare(abd, ABC, 3), 0);
    EXPECT_EQ(utf_traits::compare(ABC, abd, 2), 0);
    EXPECT_TRUE(utf_traits::lt(0x00FF, 0x0100));
    EXPECT_FALSE(utf_traits::lt(0xFFFF, 0x0001)) << "units are unsigned";
}

TEST(UTF16String, CopyOfNothingNeedsNoPlace)
{
    EXPECT_EQ(utf_traits::copy(nullptr, nullptr, 0), nullptr);
    unsigned short target[] = {7, 7};
    const unsigned short empty[] = {0};
    UTF16Copy(target, empty);
    EXPECT_EQ(target[0], 0);
    EXPECT_EQ(target[1], 7);
}

TEST(UTF16String, UnitsAndIntegersConvertBothWays)
{
    for (const unsigned int dwUnit : {0U, 0x41U, 0xD83DU, 0xFFFFU})
    {
        const unsigned short wUnit = utf_traits::to_char_type(dwUnit);
        EXPECT_TRUE(utf_traits::eq_int_type(utf_traits::to_int_type(wUnit), dwUnit));
        EXPECT_FALSE(utf_traits::eq_int_type(utf_traits::to_int_type(wUnit), utf_traits::eof()));
    }
}

TEST(UTF16String, FindsUnitsAndParts)
{
    const CUTF16String strText(ABC);
    EXPECT_EQ(strText.find('c'), 2U);
    EXPECT_EQ(strText.find('z'), CUTF16String::npos);
    EXPECT_EQ(strText.find(strText.substr(1)), 1U);
}

TEST(UTF16String, GrowsInsertsAndErases)
{
    CUTF16String strText;
    for (int i = 0; i < 1000; ++i)
    {
        strText.push_back(static_cast<unsigned short>(i));
    }
    strText.insert(0, 3, 'x');
    strText.erase(0, 2);
    strText += CUTF16String(ABC);
    EXPECT_EQ(strText.size(), 1004U);
    EXPECT_EQ(strText[0], 'x');
    EXPECT_EQ(strText[1000], 999);
    EXPECT_EQ(strText[1003], 'c');
}

TEST(UTF16String, EndOfFileIsNoUnit)
{
    EXPECT_NE(utf_traits::eof(), utf_traits::to_int_type(0xFFFF));
    EXPECT_NE(utf_traits::not_eof(utf_traits::eof()), utf_traits::eof());
    EXPECT_EQ(utf_traits::not_eof(0xFFFF), 0xFFFFU);
}

}  // namespace
