#include "SumList.h"

#include <gtest/gtest.h>

#include "Digest.h"

namespace
{

using CNames = std::vector<std::string>;

const std::string ONES(64, '1');
const std::string LETTERS = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

// What is told of a list.
CNames ParseFaults(const std::string& strText, CSumList& sums)
{
    CNames listFaults;
    sums.Parse(strText, "list",
               [&](const std::string&, const std::string& strReason)
               { listFaults.push_back(strReason); });
    return listFaults;
}

std::string DigestOfText(const std::string& strText)
{
    CDigest digest;
    digest.Add(strText.data(), strText.size());
    return digest.Finish();
}

}  // namespace

TEST(Digest, IsSHA256)
{
    EXPECT_EQ(DigestOfText(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(DigestOfText("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Digest, ListsOfTextsDiffer)
{
    EXPECT_NE(DigestOf({"ab", "c"}), DigestOf({"a", "bc"}));
    EXPECT_NE(DigestOf({"a"}), DigestOf({"a", ""}));
}

TEST(SumList, LinesAreThoseOfSha256sum)
{
    CSumList sums;
    sums.Add("b/c d", ONES);
    sums.Add("a\nb\\", LETTERS);
    EXPECT_EQ(sums.ToString(), "\\" + LETTERS + "  a\\nb\\\\\n" + ONES + "  b/c d\n");
}

TEST(SumList, WhatSha256sumWritesIsRead)
{
    CSumList sums;
    EXPECT_EQ(
        ParseFaults(ONES + "  a\n" + ONES + " *b/c\n" + LETTERS + "  ./d\n\\" + ONES + "  e\\\\f\n",
                    sums),
        CNames());
    ASSERT_EQ(sums.Entries().size(), 4U);
    EXPECT_EQ(*sums.Find("b/c"), ONES);
    EXPECT_EQ(*sums.Find("d"), LETTERS);
    EXPECT_EQ(*sums.Find("e/f"), ONES);
    EXPECT_EQ(sums.Find("g"), nullptr);
}

TEST(SumList, WhatIsNoLineIsTold)
{
    for (const std::string& strLine :
         {std::string(), std::string("text"), ONES, ONES + "  ", ONES + " a", "1" + ONES + "  a",
          ONES.substr(1) + "  a", ONES.substr(1) + "g  a", "\\" + ONES + "  a\\q",
          LETTERS.substr(0, 63) + "F  a"})
    {
        CSumList sums;
        EXPECT_EQ(ParseFaults(strLine + "\n", sums),
                  CNames{"line 1 is none of a list of SHA-256 sums"})
            << strLine;
        EXPECT_TRUE(sums.Entries().empty());
    }
}

TEST(SumList, NamesThatLeadAnywhereElseAreTold)
{
    for (const char* pszName :
         {"../a", "/a", "a/../b", "a/..", "a//b", "a/", "..", ".", "a\\..\\b", "\\a", "a\x1B[2J",
          "a\tb", "\xFF", ".osprey-x", "a/.osprey-b", "././.", "a/./b"})
    {
        CSumList sums;
        EXPECT_EQ(ParseFaults(ONES + "  " + pszName + "\n", sums).size(), 1U) << pszName;
        EXPECT_TRUE(sums.Entries().empty()) << pszName;
    }
    const std::string strLong(256, 'a');
    CSumList sums;
    EXPECT_EQ(ParseFaults(ONES + "  " + strLong + "\n", sums).size(), 1U);
}

TEST(SumList, NameWithTwoSumsCountsForNothing)
{
    CSumList sums;
    EXPECT_EQ(
        ParseFaults(ONES + "  a\n" + LETTERS + "  a\n" + ONES + "  b\n" + ONES + "  b\n", sums),
        CNames{"\"a\" has two different sums"});
    EXPECT_EQ(sums.Find("a"), nullptr);
    EXPECT_NE(sums.Find("b"), nullptr);
}

TEST(SumList, NoBitCanFlipUnseen)
{
    const std::string strText = LETTERS + "  a.txt\n" + LETTERS + "  b/c\n";
    for (size_t nBit = 0; nBit < strText.size() * 8; ++nBit)
    {
        std::string strFlipped = strText;
        strFlipped[nBit / 8] = static_cast<char>(strFlipped[nBit / 8] ^ (1 << nBit % 8));
        CSumList sums;
        const bool bTold = !ParseFaults(strFlipped, sums).empty();
        const std::string* pFirst = sums.Find("a.txt");
        const std::string* pSecond = sums.Find("b/c");
        EXPECT_TRUE(bTold || pFirst == nullptr || *pFirst != LETTERS || pSecond == nullptr ||
                    *pSecond != LETTERS)
            << "bit " << nBit;
    }
}

TEST(SumList, RemoteNamesOfBothFormsAreOne)
{
    EXPECT_EQ(PlainRemoteName("a\\b/c"), "a/b/c");
    EXPECT_EQ(PlainRemoteName("FILESUBMIT|r|a\\b"), "r/a/b");
    EXPECT_EQ(PlainRemoteName("FILESUBMIT||a"), "a");
    EXPECT_EQ(PlainRemoteName("FILESUBMIT|a"), "a");
    EXPECT_EQ(PlainRemoteName("a|b"), "a|b");
}
