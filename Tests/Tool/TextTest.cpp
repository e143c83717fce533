#include "Text.h"

#include <gtest/gtest.h>

#include <set>

TEST(Text, ShortestFormsOfEveryLengthAreValid)
{
    EXPECT_TRUE(IsValidUTF8(""));
    EXPECT_TRUE(IsValidUTF8("a\xC2\x80\xE0\xA0\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"));
}

TEST(Text, WhatIsNoUTF8IsTold)
{
    for (const char* psz : {"\x80", "\xC2", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80",
                            "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF",
                            "\xE2\x82", "\xE2\x28\xA1"})
    {
        EXPECT_FALSE(IsValidUTF8(psz)) << QuoteText(psz);
    }
}

TEST(Text, PrintableTextIsQuotedAsItIs)
{
    EXPECT_EQ(QuoteText("a b/ü 日本 😀.txt"), "\"a b/ü 日本 😀.txt\"");
}

TEST(Text, ControlsAppearEscaped)
{
    EXPECT_EQ(QuoteText("a\nb\tc\rd\x1B[2J\x7F"), "\"a\\nb\\tc\\rd\\x1B[2J\\x7F\"");
    EXPECT_EQ(QuoteText(std::string("\0", 1)), "\"\\x00\"");
    EXPECT_EQ(QuoteText("\xC2\x9B"), "\"\\u{009B}\"");
}

TEST(Text, MarksThatReorderALineAppearEscaped)
{
    EXPECT_EQ(QuoteText("a\xE2\x80\xAE"
                        "b"),
              "\"a\\u{202E}b\"");
    EXPECT_EQ(QuoteText("\xE2\x80\xA8"), "\"\\u{2028}\"");
}

TEST(Text, BytesThatAreNoUTF8AppearEscaped)
{
    EXPECT_EQ(QuoteText("a\xFF"
                        "b\xC3"),
              "\"a\\xFFb\\xC3\"");
}

TEST(Text, DifferentTextsNeverLookAlike)
{
    const std::set<std::string> setQuoted = {QuoteText("\n"), QuoteText("\\n"), QuoteText("\\\\n"),
                                             QuoteText("\""), QuoteText("\\\"")};
    EXPECT_EQ(setQuoted.size(), 5U);
}

TEST(Text, WideCharactersTakeTwoColumnsAndMarksNone)
{
    EXPECT_EQ(TextColumns("abc"), 3);
    EXPECT_EQ(TextColumns("日本"), 4);
    EXPECT_EQ(TextColumns("e\xCC\x81"), 1);
}

TEST(Text, ShortenedTextKeepsItsEndAndItsWidth)
{
    EXPECT_EQ(ShortenText("photos/a.jpg", 12), "photos/a.jpg");
    EXPECT_EQ(ShortenText("photos/a.jpg", 6), "…a.jpg");
    EXPECT_EQ(ShortenText("photos/a.jpg", 1), "…");
    EXPECT_EQ(ShortenText("photos/a.jpg", 0), "");
}

TEST(Text, ShorteningCutsBetweenCharacters)
{
    for (int nColumns = 0; nColumns < 20; ++nColumns)
    {
        const std::string strShort = ShortenText("日本e\xCC\x81語/ü😀x.txt", nColumns);
        EXPECT_TRUE(IsValidUTF8(strShort));
        EXPECT_LE(TextColumns(strShort), nColumns);
    }
}

TEST(Text, UTF16HasPairsAndATerminator)
{
    std::vector<unsigned short> listUnits;
    ASSERT_TRUE(ToUTF16("aü😀", listUnits));
    EXPECT_EQ(listUnits, (std::vector<unsigned short>{'a', 0xFC, 0xD83D, 0xDE00, 0}));
    EXPECT_FALSE(ToUTF16("\xFF", listUnits));
}
