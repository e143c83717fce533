// The real tool checks what it moved by SHA-256 sums; whatever differs is named and gives 24.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>

#include "Digest.h"
#include "Hex.h"
#include "PeerScript.h"
#include "ServedFolder.h"
#include "SumList.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

std::string DigestOfText(const std::string& strText)
{
    CDigest digest;
    digest.Add(strText.data(), strText.size());
    return digest.Finish();
}

class CVerifyToolTest : public ::testing::Test
{
protected:
    CVerifyToolTest()
    {
        fs::create_directories(m_local.GetPath("src/sub"));
        m_local.WriteFile("src/a", "hello");
        m_local.WriteFile("src/sub/big", Pattern(200000));
        m_local.WriteFile("src/empty", "");
    }
    CToolRun Submit(const CServedFolder& served, const CNames& listOptions = {}) const
    {
        CNames listArguments = {"submit", served.GetPeer(), m_local.GetPath("src"), "--verify"};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        return CToolRun(listArguments);
    }
    CToolRun Download(const CServedFolder& served, const CNames& listOptions) const
    {
        CNames listArguments = {"download", served.GetPeer(), "-o", Out()};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        return CToolRun(listArguments);
    }
    std::string Out(const std::string& strName = "") const
    {
        return m_local.GetPath("out") + (strName.empty() ? "" : "/" + strName);
    }
    static void FlipBit(const std::string& strPath, size_t nByte)
    {
        std::string strContents = ReadFile(strPath);
        strContents[nByte] = static_cast<char>(strContents[nByte] ^ 4);
        FILE* pFile = fopen(strPath.c_str(), "wb");
        ASSERT_NE(pFile, nullptr);
        fwrite(strContents.data(), 1, strContents.size(), pFile);
        fclose(pFile);
    }
    // A server's list of f1 and f2, "one" and "two".
    static std::string TwoSums()
    {
        return DigestOfText("one") + "  f1\n" + DigestOfText("two") + "  f2\n";
    }
    // A verified download of f1 and f2 from a scripted peer, which has its list already.
    std::unique_ptr<CToolProcess> StartTwo(CPeerScript& peer, const CNames& listOptions = {}) const
    {
        CNames listArguments = {"download", peer.GetPeer(), "f1", "f2", "--verify", "-o", Out()};
        listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
        auto pTool = std::make_unique<CToolProcess>(listArguments);
        peer.Accept();
        const std::string strRequest = peer.Expect("DFIL");
        EXPECT_EQ(strRequest.substr(24), Wire::Name(u"SHA256SUMS"));
        peer.Connection().GiveFile(TwoSums(), Wire::GetU32(strRequest, 12));
        peer.Accept();
        return pTool;
    }
    static void Give(CPeerScript& peer, const std::string& strBytes)
    {
        peer.Connection().GiveFile(strBytes, Wire::GetU32(peer.Expect("DFIL"), 12));
    }

    CTempFolder m_local;
};

using VerifyTool = CVerifyToolTest;

}  // namespace

TEST_F(VerifyTool, SubmitLeavesAListThatSha256sumAccepts)
{
    CServedFolder served;
    const CToolRun run = Submit(served, {"--to", "in", "--jobs", "3"});
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(run.m_strErrors, "");
    const std::string strCommand = "cd '" + served.GetPath("in") +
                                   "' && test $(wc -l <SHA256SUMS) -eq 3 && "
                                   "sha256sum --check --strict --quiet SHA256SUMS";
    EXPECT_EQ(system(strCommand.c_str()), 0);
    const CToolRun back = Download(served, {"--manifest", "in/SHA256SUMS"});
    EXPECT_EQ(back.m_nExitCode, 0) << back.m_strErrors;
    EXPECT_EQ(ListFolder(Out("src")), ListFolder(m_local.GetPath("src")));
    EXPECT_EQ(ReadFile(Out("src/sub/big")), Pattern(200000));
}

TEST_F(VerifyTool, ListMayHaveAnotherNameButNotThatOfAFile)
{
    CServedFolder served;
    EXPECT_EQ(Submit(served, {"--manifest", "sums"}).m_nExitCode, 0);
    EXPECT_TRUE(FileExists(served.GetPath("sums")));
    const CToolRun run({"submit", served.GetPeer(), m_local.GetPath("src/a"), "--manifest", "a"});
    EXPECT_EQ(run.m_nExitCode, 2);
    EXPECT_NE(run.m_strErrors.find("would be replaced by the list of sums"), std::string::npos);
    for (const char* pszName : {"x/y", "..", "a|b", ".osprey-x"})
    {
        EXPECT_EQ(Submit(served, {"--manifest", pszName}).m_nExitCode, 2) << pszName;
    }
}

TEST_F(VerifyTool, FileThatComesBackOtherwiseGives24)
{
    CPeerScript peer;
    CToolProcess tool({"submit", peer.GetPeer(), m_local.GetPath("src/a"), "--verify"});
    peer.Accept();
    peer.Connection().TakeFile(Wire::GetU32(peer.Expect("UPFI"), 12));
    peer.Accept();
    const std::string strRequest = peer.Expect("DFIL");
    EXPECT_EQ(strRequest.substr(24), Wire::Name(u"FILESUBMIT||a"));
    peer.Connection().GiveFile("hellp", Wire::GetU32(strRequest, 12));
    // The list of what should be there goes to the server all the same.
    peer.Accept();
    peer.Connection().TakeFile(Wire::GetU32(peer.Expect("UPFI"), 12));
    EXPECT_EQ(tool.Wait(), 24);
    EXPECT_EQ(tool.GetErrors(), "osprey: a: SHA-256 differs\n");
}

TEST_F(VerifyTool, FileThatDoesNotComeBackAsItIsIsSentAgainByTheNextRun)
{
    CServedFolder served;
    const CNames listArguments = {"submit", served.GetPeer(), "--verify", m_local.GetPath("src/a"),
                                  m_local.GetPath("src/sub/big")};
    // Its folder is no place for the list: the run fails when all files are there.
    fs::create_directories(served.GetPath("SHA256SUMS"));
    EXPECT_EQ(CToolRun(listArguments).m_nExitCode, 1);
    FlipBit(served.GetPath("big"), 1234);
    EXPECT_EQ(CToolRun(listArguments).m_nExitCode, 24);
    fs::remove(served.GetPath("SHA256SUMS"));
    const CToolRun run(listArguments);
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_TRUE(ReadFile(served.GetPath("big")) == Pattern(200000));
}

TEST_F(VerifyTool, ConnectionLostWhileCheckingGives4)
{
    CPeerScript peer;
    CToolProcess tool({"submit", peer.GetPeer(), m_local.GetPath("src/a"), "--verify"});
    peer.Accept();
    peer.Connection().TakeFile(Wire::GetU32(peer.Expect("UPFI"), 12));
    peer.Accept();
    peer.Expect("DFIL");
    peer.Socket().Reset();
    EXPECT_EQ(tool.Wait(), 4);
    EXPECT_NE(tool.GetErrors().find("osprey: a: sent, but not verified: "), std::string::npos);
}

TEST_F(VerifyTool, BitThatFlippedOnTheServersDiskIsNamedAndGives24)
{
    CServedFolder served;
    ASSERT_EQ(Submit(served).m_nExitCode, 0);
    FlipBit(served.GetPath("src/sub/big"), 123456);
    fs::create_directories(Out("src/sub"));
    m_local.WriteFile("out/src/sub/big", "old");
    CToolRun run = Download(served, {"--manifest", "SHA256SUMS"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: src/sub/big: SHA-256 differs\n");
    EXPECT_EQ(ListVisible(Out()),
              (CNames{"src/", "src/a", "src/empty", "src/sub/", "src/sub/big"}));
    EXPECT_EQ(ReadFile(Out("src/sub/big")), "old");
    run = Download(served, {"src/a", "src/sub/big", "--verify", "--json"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: src/sub/big: SHA-256 differs\n");
    EXPECT_FALSE(FileExists(Out("big")));
    EXPECT_EQ(CEvent::Parse(run.m_listLines.back())["not_verified"], 1);
}

TEST_F(VerifyTool, BitThatFlippedInTheListIsNamedAndGives24)
{
    CServedFolder served;
    ASSERT_EQ(Submit(served).m_nExitCode, 0);
    // Of the digest, then of the name: the first line is that of src/a.
    FlipBit(served.GetPath("SHA256SUMS"), 10);
    CToolRun run = Download(served, {"--manifest", "SHA256SUMS"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: src/a: SHA-256 differs\n");
    FlipBit(served.GetPath("SHA256SUMS"), 10);
    FlipBit(served.GetPath("SHA256SUMS"), 70);
    run = Download(served, {"--manifest", "SHA256SUMS", "--restart"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: src/e: not found at the server, or refused\n");
    run = Download(served, {"src/a", "src/empty", "--verify"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: src/a: it is not in SHA256SUMS\n");
    EXPECT_FALSE(FileExists(Out("a")));
    EXPECT_TRUE(FileExists(Out("empty")));
}

TEST_F(VerifyTool, BitThatFlippedOnTheWireIsNamedAndGives24)
{
    CPeerScript peer;
    const auto pTool = StartTwo(peer);
    Give(peer, "onf");
    Give(peer, "two");
    EXPECT_EQ(pTool->Wait(), 24);
    EXPECT_EQ(pTool->GetErrors(), "osprey: f1: SHA-256 differs\n");
    EXPECT_EQ(ListVisible(Out()), CNames{"f2"});
}

TEST_F(VerifyTool, DifferenceComesBeforeALostConnectionAndAFailedFile)
{
    CPeerScript peer;
    auto pTool = StartTwo(peer);
    Give(peer, "onf");
    peer.Expect("DFIL");
    peer.Socket().Reset();
    EXPECT_EQ(pTool->Wait(), 24);
    pTool = StartTwo(peer);
    Give(peer, "onf");
    const unsigned int dwID = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwID, 5, 0, 0));
    EXPECT_EQ(pTool->Wait(), 24);
    // Without a difference they count themselves.
    pTool = StartTwo(peer);
    Give(peer, "one");
    peer.Expect("DFIL");
    peer.Socket().Reset();
    EXPECT_EQ(pTool->Wait(), 4);
    pTool = StartTwo(peer);
    const unsigned int dwLast = Wire::GetU32(peer.Expect("DFIL"), 12);
    peer.Socket().Send(Wire::Dfrt(dwLast, 5, 0, 0));
    EXPECT_EQ(pTool->Wait(), 1);
}

TEST_F(VerifyTool, InterruptAndTimeoutComeBeforeADifference)
{
    for (const bool bSignal : {true, false})
    {
        CPeerScript peer;
        const auto pTool = StartTwo(peer, bSignal ? CNames() : CNames{"--timeout", "8"});
        Give(peer, "onf");
        peer.Expect("DFIL");
        if (bSignal)
        {
            pTool->Signal(SIGINT);
        }
        EXPECT_EQ(pTool->Wait(), bSignal ? 130 : 30) << pTool->GetErrors();
        EXPECT_NE(pTool->GetErrors().find("osprey: f1: SHA-256 differs\n"), std::string::npos);
        EXPECT_EQ(ListVisible(Out()), CNames());
    }
}

TEST_F(VerifyTool, WithoutAListNothingIsVerified)
{
    CServedFolder served;
    served.Around().WriteFile("root/f", "1");
    CToolRun run = Download(served, {"f", "--verify"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: f: there is no list of SHA-256 sums to verify it by\n");
    EXPECT_FALSE(FileExists(Out("f")));
    run = Download(served, {"--manifest", "x/sums"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: x/sums: not found at the server, or refused\n");
}

TEST_F(VerifyTool, NearestListCounts)
{
    CServedFolder served;
    fs::create_directories(served.GetPath("a/b"));
    served.Around().WriteFile("root/a/b/f", "1");
    served.Around().WriteFile("root/SHA256SUMS", DigestOfText("2") + "  a/b/f\n");
    EXPECT_EQ(Download(served, {"a/b/f", "--verify"}).m_nExitCode, 24);
    served.Around().WriteFile("root/a/SHA256SUMS", DigestOfText("1") + "  b/f\n");
    const CToolRun run = Download(served, {"a\\b/f", "--verify"});
    EXPECT_EQ(run.m_nExitCode, 0) << run.m_strErrors;
    EXPECT_EQ(Download(served, {"a/b/f", "--manifest", "SHA256SUMS"}).m_nExitCode, 24);
}

TEST_F(VerifyTool, ListTooLargeToBeOneGives24)
{
    CServedFolder served;
    fs::resize_file(served.Around().WriteFile("root/SHA256SUMS", ""), (64U << 20) + 1);
    const CToolRun run = Download(served, {"--manifest", "SHA256SUMS"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors, "osprey: SHA256SUMS: it is too large for a list of SHA-256 sums\n");
}

TEST_F(VerifyTool, HostileNamesInAListReachNothing)
{
    CServedFolder served;
    served.Around().WriteFile("root/good", "1");
    std::string strList = DigestOfText("1") + "  good\n";
    for (const char* pszName : {"../evil", "/tmp/evil", "a/../../evil", "x\x1B[2J", ".osprey-evil"})
    {
        strList += DigestOfText("1") + "  " + pszName + "\n";
    }
    served.Around().WriteFile("root/SHA256SUMS", strList);
    const CToolRun run = Download(served, {"--manifest", "SHA256SUMS"});
    EXPECT_EQ(run.m_nExitCode, 24);
    EXPECT_EQ(run.m_strErrors.find('\x1B'), std::string::npos);
    EXPECT_NE(run.m_strErrors.find("line 2, \"../evil\": "), std::string::npos) << run.m_strErrors;
    EXPECT_EQ(ListVisible(m_local.GetPath("out")), CNames{"good"});
    EXPECT_FALSE(FileExists(m_local.GetPath("evil")));
}

TEST_F(VerifyTool, LongFormInAListIsAnOrdinaryName)
{
    const std::string strName = "FILESUBMIT|..|../evil";
    CServedFolder served;
    for (const std::string& strFolder : {std::string("root/"), std::string("root/sub/")})
    {
        fs::create_directories(served.Around().GetPath(strFolder + "FILESUBMIT|..|.."));
        served.Around().WriteFile(strFolder + strName, "1");
        served.Around().WriteFile(strFolder + SUM_LIST, DigestOfText("1") + "  " + strName + "\n");
    }
    fs::create_directories(m_local.GetPath("a/b/c"));
    const CNames listBefore = ListFolder(m_local.GetPath());
    for (const char* pszList : {"SHA256SUMS", "sub/SHA256SUMS"})
    {
        const CToolRun run(
            {"download", served.GetPeer(), "--manifest", pszList, "-o", m_local.GetPath("a/b/c")});
        fs::remove_all(m_local.GetPath("a/b/c/FILESUBMIT|..|.."));
        EXPECT_EQ(ListFolder(m_local.GetPath()), listBefore) << pszList << run.m_strErrors;
    }
}

TEST_F(VerifyTool, LinkInTheWayOfASubfolderIsNotFollowed)
{
    CServedFolder served;
    ASSERT_EQ(Submit(served).m_nExitCode, 0);
    fs::create_directories(Out("src"));
    fs::create_directories(m_local.GetPath("elsewhere"));
    fs::create_directory_symlink(m_local.GetPath("elsewhere"), Out("src/sub"));
    const CToolRun run = Download(served, {"--manifest", "SHA256SUMS"});
    EXPECT_EQ(run.m_nExitCode, 1);
    EXPECT_EQ(run.m_strErrors,
              "osprey: src/sub/big: " + Out("src/sub") + " is no folder, or a link to one\n");
    EXPECT_TRUE(ListFolder(m_local.GetPath("elsewhere")).empty());
    EXPECT_EQ(ReadFile(Out("src/a")), "hello");
}

TEST_F(VerifyTool, WhatAnEarlierRunFinishedIsVerifiedAsWell)
{
    CPeerScript peer;
    auto pTool = StartTwo(peer);
    Give(peer, "one");
    peer.Expect("DFIL");
    pTool->Signal(SIGKILL);
    pTool->Wait();
    // Other bytes, behind the back of size and time.
    const auto time = fs::last_write_time(Out("f1"));
    FlipBit(Out("f1"), 0);
    fs::last_write_time(Out("f1"), time);
    pTool = StartTwo(peer);
    Give(peer, "one");
    Give(peer, "two");
    EXPECT_EQ(pTool->Wait(), 0) << pTool->GetErrors();
    EXPECT_EQ(ReadFile(Out("f1")), "one");
}
