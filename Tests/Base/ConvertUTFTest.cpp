#include "ConvertUTF.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

// Both directions are given the length with the terminator, as the library does.
std::string ToUTF8(const std::u16string& strText)
{
    const std::vector<unsigned short> units(strText.c_str(), strText.c_str() + strText.size() + 1);
    return CConvertUTF::UTF16SToUTF8S(units.data(), static_cast<int>(units.size()));
}

std::u16string ToUTF16(const std::string& strText)
{
    const CUTF16String strResult =
        CConvertUTF::UTF8SToUTF16S(strText.c_str(), static_cast<int>(strText.size()) + 1);
    return std::u16string(strResult.begin(), strResult.end());
}

struct CName
{
    const char* m_pszWhat;
    std::string m_strUTF8;
    std::u16string m_strUTF16;
};

// The bytes and units are written out, so that the compiler's own conversion is no part of it.
const CName NAMES[] = {
    {"Empty", "", u""},
    {"Latin", "report.txt", u"report.txt"},
    {"Umlauts", "\xC3\x84rger", u"\u00C4rger"},
    {"Greek", "\xCE\xB1\xCE\xB2", u"\u03B1\u03B2"},
    {"Cyrillic", "\xD0\x9C\xD0\xB8\xD1\x80", u"\u041C\u0438\u0440"},
    {"Hebrew", "\xD7\xA9\xD7\x9C", u"\u05E9\u05DC"},
    {"Devanagari", "\xE0\xA4\xA8\xE0\xA4\xAE", u"\u0928\u092E"},
    {"Han", "\xE6\xBC\xA2\xE5\xAD\x97", u"\u6F22\u5B57"},
    {"LastUnitBeforeSurrogates", "\xED\x9F\xBF", u"\uD7FF"},
    {"FirstUnitBehindSurrogates", "\xEE\x80\x80", u"\uE000"},
    {"FirstSurrogatePair", "\xF0\x90\x80\x80", u"\U00010000"},
    {"Smiley", "a\xF0\x9F\x98\x80z", u"a\U0001F600z"},
    {"LastCodePoint", "\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
};

class CConvertNames : public ::testing::TestWithParam<CName>
{
};
using ConvertUTFNames = CConvertNames;

TEST_P(ConvertUTFNames, ConvertToUTF8)
{
    EXPECT_EQ(ToUTF8(GetParam().m_strUTF16), GetParam().m_strUTF8);
}

TEST_P(ConvertUTFNames, ConvertToUTF16)
{
    EXPECT_EQ(ToUTF16(GetParam().m_strUTF8), GetParam().m_strUTF16);
}

INSTANTIATE_TEST_SUITE_P(Scripts, ConvertUTFNames, ::testing::ValuesIn(NAMES),
                         [](const auto& test) { return std::string(test.param.m_pszWhat); });

const char REPLACED[] = "\xEF\xBF\xBD";  // U+FFFD

TEST(ConvertUTF, LoneLeadSurrogateBecomesTheReplacementCharacter)
{
    EXPECT_EQ(ToUTF8({u'a', 0xD800, u'b'}), std::string("a") + REPLACED + "b");
}

TEST(ConvertUTF, LoneTrailSurrogateBecomesTheReplacementCharacter)
{
    EXPECT_EQ(ToUTF8({u'a', 0xDFFF, u'b'}), std::string("a") + REPLACED + "b");
}

TEST(ConvertUTF, LeadSurrogateAtTheEndBecomesTheReplacementCharacter)
{
    EXPECT_EQ(ToUTF8({u'a', 0xDBFF}), std::string("a") + REPLACED);
}

TEST(ConvertUTF, SwappedPairBecomesTwoReplacementCharacters)
{
    EXPECT_EQ(ToUTF8({0xDC00, 0xD800}), std::string(REPLACED) + REPLACED);
}

TEST(ConvertUTF, TwoLeadSurrogatesBeforeATrailKeepThePair)
{
    EXPECT_EQ(ToUTF8({0xD83D, 0xD83D, 0xDE00}), std::string(REPLACED) + "\xF0\x9F\x98\x80");
}

TEST(ConvertUTF, LengthOneOrLessGivesTheEmptyString)
{
    const unsigned short units[] = {'a', 0};
    EXPECT_EQ(CConvertUTF::UTF16SToUTF8S(units, 1), "");
    EXPECT_EQ(CConvertUTF::UTF16SToUTF8S(units, 0), "");
    EXPECT_EQ(CConvertUTF::UTF16SToUTF8S(units, -5), "");
    EXPECT_TRUE(CConvertUTF::UTF8SToUTF16S("a", 1).empty());
    EXPECT_TRUE(CConvertUTF::UTF8SToUTF16S("a", 0).empty());
    EXPECT_TRUE(CConvertUTF::UTF8SToUTF16S("a", -5).empty());
}

TEST(ConvertUTF, TheTerminatorIsDropped)
{
    EXPECT_EQ(ToUTF8(u"ab").size(), 2U);
    EXPECT_EQ(ToUTF16("ab").size(), 2U);
}

struct CMalformed
{
    const char* m_pszWhat;
    std::string m_strBytes;
};

const CMalformed MALFORMED[] = {
    {"LoneContinuation", "\x80"},
    {"StartWithoutContinuation", "\xC3"},
    {"TruncatedThree", "\xE6\xBC"},
    {"TruncatedFour", "\xF0\x9F\x98"},
    {"OverlongSlash", "\xC0\xAF"},
    {"EncodedSurrogate", "\xED\xA0\x80"},
    {"PastTheLastCodePoint", "\xF4\x90\x80\x80"},
    {"ByteFF", "\xFF"},
};

class CConvertMalformed : public ::testing::TestWithParam<CMalformed>
{
};
using ConvertUTFMalformed = CConvertMalformed;

// However many replacement characters stand for it: at least one, nothing else, neighbours intact.
TEST_P(ConvertUTFMalformed, BecomesReplacementCharactersOnly)
{
    const std::u16string strResult = ToUTF16("a" + GetParam().m_strBytes + "z");
    ASSERT_GE(strResult.size(), 3U);
    EXPECT_EQ(strResult.front(), u'a');
    EXPECT_EQ(strResult.back(), u'z');
    EXPECT_EQ(strResult.find_first_not_of(u'\uFFFD', 1), strResult.size() - 1);
}

TEST_P(ConvertUTFMalformed, AtTheEndIsNotReadPast)
{
    // Storage of its own, so that a read behind the text is one behind the allocation.
    const std::vector<char> bytes(GetParam().m_strBytes.begin(), GetParam().m_strBytes.end());
    const CUTF16String strResult =
        CConvertUTF::UTF8SToUTF16S(bytes.data(), static_cast<int>(bytes.size()) + 1);
    ASSERT_FALSE(strResult.empty());
    EXPECT_EQ(strResult.find_first_not_of(0xFFFD), CUTF16String::npos);
}

INSTANTIATE_TEST_SUITE_P(Bytes, ConvertUTFMalformed, ::testing::ValuesIn(MALFORMED),
                         [](const auto& test) { return std::string(test.param.m_pszWhat); });

TEST(ConvertUTF, EveryCodePointComesBack)
{
    std::u16string strAll;
    for (char32_t code = 1; code <= 0x10FFFF; code += 7)
    {
        if (code >= 0xD800 && code <= 0xDFFF)
        {
            continue;
        }
        if (code < 0x10000)
        {
            strAll += static_cast<char16_t>(code);
        }
        else
        {
            strAll += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
            strAll += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    EXPECT_TRUE(ToUTF16(ToUTF8(strAll)) == strAll);
}

}  // namespace
