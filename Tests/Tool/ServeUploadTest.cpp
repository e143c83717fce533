// What becomes of uploads that end in every way, at the real server.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

#include "Descriptor.h"
#include "Hex.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

namespace fs = std::filesystem;

using CNames = std::vector<std::string>;

class CServeUploadTest : public ::testing::Test
{
protected:
    // Announces a file; returns the offset at which the server wants it.
    static uint64_t Begin(CRawSocket& peer, unsigned int dwID, uint64_t ullSize,
                          const std::u16string& strName, uint64_t ullOffset = 0)
    {
        peer.Send(Wire::Upfi(dwID, ullSize, ullOffset, strName));
        const std::string strReply = peer.ReceivePacket();
        EXPECT_EQ(Wire::GetU32(strReply, 16), 0U);
        return Wire::GetU64(strReply, 20);
    }
    static void Block(CRawSocket& peer, unsigned int dwID, const std::string& strData,
                      unsigned int dwLast = 0)
    {
        peer.Send(Wire::Upfb(dwID, dwLast, strData));
        EXPECT_EQ(Wire::WithoutVersion(peer.ReceivePacket()),
                  Wire::WithoutVersion(Wire::Result("UPBR", dwID, 0)));
    }
    std::string Contents(const std::string& strName) const
    {
        return ReadFile(m_served.GetPath(strName));
    }
    // Gives an upload up as a client does: the old file stays, and nothing else.
    void CancelAfter3Of(uint64_t ullSize)
    {
        m_served.Around().WriteFile("root/f", "old");
        CRawSocket peer = m_served.Connect();
        Begin(peer, 2, ullSize, u"f");
        Block(peer, 2, "new");
        peer.Send(Wire::Caop(2) + Wire::Delt(3, u"f"));
        EXPECT_EQ(Wire::WithoutVersion(peer.ReceivePacket()),
                  Wire::WithoutVersion(Wire::Result("DTRT", 3, 0)));
        EXPECT_EQ(m_served.List(), CNames{"f"});
        EXPECT_EQ(Contents("f"), "old");
        const CEvent event = m_served.Tool().WaitForEvent("incomplete");
        EXPECT_EQ(event["bytes"], 3);
        EXPECT_EQ(event["total"], ullSize);
        EXPECT_EQ(event["kept"], "f.osprey-partial");
        EXPECT_EQ(m_served.Tool().WaitForEvent("deleted")["path"], "f.osprey-partial");
    }

    CServedFolder m_served;
};

using ServeUpload = CServeUploadTest;

}  // namespace

TEST_F(ServeUpload, WholeFileGetsItsNameAndIsTold)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 5, u"FILESUBMIT|to|a\\f");
    Block(peer, 2, "12345");
    Block(peer, 2, "", 1);
    EXPECT_EQ(m_served.List(), (CNames{"to/", "to/a/", "to/a/f"}));
    EXPECT_EQ(Contents("to/a/f"), "12345");
    const CEvent event = m_served.Tool().WaitForEvent("upload");
    EXPECT_EQ(event["path"], "to/a/f");
    EXPECT_EQ(event["bytes"], 5);
    EXPECT_EQ(event["connection"], "peer");
}

TEST_F(ServeUpload, OneWhoBeginsTransfersWithoutEndEndsNobodyElses)
{
    m_served.Around().WriteFile("root/other", "1");
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 5, u"f");
    Block(peer, 2, "12");
    // Each is begun, fails, since there is nothing behind the end, and is given up.
    CRawSocket greedy = m_served.Connect();
    for (int i = 0; i < 4200; ++i)
    {
        greedy.Send(Wire::Dfil(3, 9, u"other"));
        ASSERT_EQ(Wire::GetU32(greedy.ReceivePacket(), 16), 7U);
        greedy.Send(Wire::Caop(3));
    }
    Block(peer, 2, "345", 1);
    EXPECT_EQ(m_served.List(), (CNames{"f", "other"}));
    EXPECT_EQ(Contents("f"), "12345");
}

TEST_F(ServeUpload, LastBlockWithDataEndsItAtOnce)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 5, u"f");
    Block(peer, 2, "12345", 1);
    EXPECT_EQ(m_served.List(), CNames{"f"});
    EXPECT_EQ(Contents("f"), "12345");
}

TEST_F(ServeUpload, EmptyFileArrives)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 0, u"f");
    Block(peer, 2, "", 1);
    EXPECT_EQ(m_served.List(), CNames{"f"});
    EXPECT_EQ(m_served.Tool().WaitForEvent("upload")["bytes"], 0);
}

TEST_F(ServeUpload, FileThatShrankOnItsWayIsWhole)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 1000, u"f");
    Block(peer, 2, "123");
    Block(peer, 2, "", 1);
    EXPECT_EQ(Contents("f"), "123");
    EXPECT_EQ(m_served.Tool().WaitForEvent("upload")["bytes"], 3);
}

TEST_F(ServeUpload, UnderWayTheOldFileStands)
{
    m_served.Around().WriteFile("root/f", "old");
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 6, u"f");
    Block(peer, 2, "new");
    EXPECT_EQ(Contents("f"), "old");
    Block(peer, 2, "est");
    EXPECT_EQ(Contents("f"), "old") << "nobody has said yet that it is whole";
    Block(peer, 2, "", 1);
    EXPECT_EQ(Contents("f"), "newest");
}

TEST_F(ServeUpload, ReplacedFileHandsItsModeOn)
{
    m_served.Around().WriteFile("root/f", "old");
    ASSERT_EQ(chmod(m_served.GetPath("f").c_str(), 0750), 0);
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 1, u"f");
    Block(peer, 2, "1", 1);
    struct stat info
    {
    };
    ASSERT_EQ(stat(m_served.GetPath("f").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0750U);
}

TEST_F(ServeUpload, CancelledUploadLeavesTheOldFileAndNothingElse)
{
    CancelAfter3Of(100);
}

// As a client does that is interrupted before it has said that the file is whole.
TEST_F(ServeUpload, UploadThatIsCancelledWithAllItsBytesThereLeavesTheOldFile)
{
    CancelAfter3Of(3);
}

TEST_F(ServeUpload, CancelledUploadLeavesTheOldFileWhateverHappensBeforeTheDeletion)
{
    m_served.Around().WriteFile("root/f", "old");
    CRawSocket peer = m_served.Connect();
    CRawSocket other = m_served.Connect(u"other");
    Begin(peer, 2, 100, u"f");
    Block(peer, 2, "new");
    peer.Send(Wire::Namc(4, u"renamed"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    peer.Send(Wire::Caop(2));
    EXPECT_FALSE(m_served.Tool().WaitForEvent("incomplete").IsNull());
    Begin(other, 2, 3, u"g");
    Block(other, 2, "123", 1);
    peer.Send(Wire::Delt(3, u"f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(m_served.List(), (CNames{"f", "g"}));
    EXPECT_EQ(Contents("f"), "old");
}

TEST_F(ServeUpload, DeletionMeansTheFileUnlessTheSamePeerHasJustCancelledItsUpload)
{
    m_served.Around().WriteFile("root/f", "old");
    for (const bool bNamed : {false, true})
    {
        CRawSocket peer = bNamed ? m_served.Connect() : m_served.ConnectUnnamed();
        CRawSocket twin = bNamed ? m_served.Connect() : m_served.ConnectUnnamed();
        Begin(peer, 2, 100, u"f");
        Block(peer, 2, "new");
        peer.Send(Wire::Caop(2));
        EXPECT_FALSE(m_served.Tool().WaitForEvent("incomplete").IsNull());
        twin.Send(Wire::Delt(3, u"f"));
        EXPECT_EQ(Wire::GetU32(twin.ReceivePacket(), 16), 0U);
        EXPECT_EQ(m_served.List(), CNames{"f.osprey-partial"});
        // Between the two there was another request.
        m_served.Around().WriteFile("root/f", "old");
        Begin(peer, 4, 1, u"g");
        Block(peer, 4, "1", 1);
        peer.Send(Wire::Delt(5, u"f") + Wire::Delt(6, u"g"));
        peer.ReceivePacket();
        peer.ReceivePacket();
        EXPECT_EQ(m_served.List(), CNames{"f.osprey-partial"});
    }
}

TEST_F(ServeUpload, DeletionAfterACancelLeavesWhatAnotherPeerHasKeptSince)
{
    CRawSocket peer = m_served.Connect();
    CRawSocket other = m_served.Connect(u"other");
    Begin(peer, 2, 100, u"f");
    Begin(other, 2, 100, u"f");
    Block(peer, 2, "abc");
    Block(other, 2, "uvwxyz");
    peer.Send(Wire::Caop(2));
    EXPECT_EQ(m_served.Tool().WaitForEvent("incomplete")["connection"], "peer");
    other.Close();
    EXPECT_EQ(m_served.Tool().WaitForEvent("disconnected")["connection"], "other");
    peer.Send(Wire::Delt(3, u"f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_EQ(m_served.List(), CNames{"f.osprey-partial"});
    EXPECT_EQ(Contents("f.osprey-partial"), "uvwxyz");
}

TEST_F(ServeUpload, LastBlockWithDataEndsAFileThatShrankToo)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 10, u"f");
    Block(peer, 2, "123", 1);
    EXPECT_EQ(m_served.List(), CNames{"f"});
    EXPECT_EQ(Contents("f"), "123");
}

TEST_F(ServeUpload, DeletionWhileItIsWrittenTakesTheOldFileOnly)
{
    m_served.Around().WriteFile("root/f", "old");
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 6, u"f");
    Block(peer, 2, "new");
    peer.Send(Wire::Delt(3, u"f"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    EXPECT_FALSE(FileExists(m_served.GetPath("f")));
    Block(peer, 2, "est", 1);
    EXPECT_EQ(Contents("f"), "newest");
}

TEST_F(ServeUpload, LostConnectionKeepsWhatArrivedUnderAnotherName)
{
    m_served.Around().WriteFile("root/f", "old");
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 100, u"f");
    Block(peer, 2, "new");
    peer.Reset();
    EXPECT_EQ(m_served.Tool().WaitForEvent("incomplete")["kept"], "f.osprey-partial");
    EXPECT_EQ(m_served.List(), (CNames{"f", "f.osprey-partial"}));
    EXPECT_EQ(Contents("f"), "old");
    EXPECT_EQ(Contents("f.osprey-partial"), "new");
}

TEST_F(ServeUpload, NothingArrivedLeavesNothing)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 100, u"f");
    peer.Close();
    EXPECT_FALSE(m_served.Tool().WaitForEvent("incomplete").Has("kept"));
    EXPECT_TRUE(m_served.List().empty());
}

TEST_F(ServeUpload, InterruptKeepsWhatArrived)
{
    CRawSocket peer = m_served.Connect();
    CRawSocket unnamed = m_served.ConnectUnnamed();
    Begin(peer, 2, 100, u"f");
    Block(peer, 2, "123");
    Begin(unnamed, 2, 100, u"g");
    Block(unnamed, 2, "4567");
    EXPECT_EQ(m_served.Stop(), 0);
    EXPECT_EQ(m_served.List(), (CNames{"f.osprey-partial", "g.osprey-partial"}));
    EXPECT_EQ(Contents("f.osprey-partial"), "123");
    EXPECT_EQ(Contents("g.osprey-partial"), "4567");
}

// As a pipeline that is interrupted: its reader is gone first.
TEST_F(ServeUpload, SignalKeepsWhatArrivedAlsoWhenNobodyReadsTheOutput)
{
    CRawSocket peer = m_served.Connect();
    CNames listKept;
    for (unsigned int i = 0; i < 100; ++i)
    {
        const std::string strName = std::to_string(100 + i);
        Begin(peer, 2 + i, 100, std::u16string(strName.begin(), strName.end()));
        Block(peer, 2 + i, "123");
        listKept.push_back(strName + ".osprey-partial");
    }
    m_served.Tool().CloseOutput();
    m_served.Tool().Signal(SIGTERM);
    EXPECT_EQ(m_served.Tool().Wait(), 0);
    EXPECT_EQ(m_served.List(), listKept);
}

TEST_F(ServeUpload, ContinuedUploadGoesOnWithWhatWasKept)
{
    {
        CRawSocket peer = m_served.Connect();
        Begin(peer, 2, 6, u"f");
        Block(peer, 2, "abc");
    }
    m_served.Tool().WaitForEvent("incomplete");
    CRawSocket peer = m_served.Connect();
    EXPECT_EQ(Begin(peer, 2, 6, u"f", ~0ULL), 3U);
    Block(peer, 2, "def");
    Block(peer, 2, "", 1);
    EXPECT_EQ(m_served.List(), CNames{"f"});
    EXPECT_EQ(Contents("f"), "abcdef");
}

TEST_F(ServeUpload, ContinuedUploadHasTheModeOfTheFileThatItReplaces)
{
    m_served.Around().WriteFile("root/f.osprey-partial", "abc");
    m_served.Around().WriteFile("root/f", "private");
    ASSERT_EQ(chmod(m_served.GetPath("f").c_str(), 0600), 0);
    CRawSocket peer = m_served.Connect();
    EXPECT_EQ(Begin(peer, 2, 6, u"f", ~0ULL), 3U);
    Block(peer, 2, "def", 1);
    EXPECT_EQ(Contents("f"), "abcdef");
    struct stat info
    {
    };
    ASSERT_EQ(stat(m_served.GetPath("f").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

TEST_F(ServeUpload, ContinuedUploadWithoutABeginningStartsAnew)
{
    m_served.Around().WriteFile("root/f", "old");
    CRawSocket peer = m_served.Connect();
    EXPECT_EQ(Begin(peer, 2, 6, u"f", ~0ULL), 0U);
    Block(peer, 2, "abcdef", 1);
    EXPECT_EQ(Contents("f"), "abcdef");
}

TEST_F(ServeUpload, UploadThatBeginsAnewRemovesWhatWasKeptOfAnEarlierOne)
{
    m_served.Around().WriteFile("root/f.osprey-partial", "ab");
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 1, u"f");
    EXPECT_FALSE(FileExists(m_served.GetPath("f.osprey-partial")));
    Block(peer, 2, "1", 1);
    EXPECT_EQ(m_served.List(), CNames{"f"});
}

TEST_F(ServeUpload, TwoConnectionsOfOneNameDoNotEndEachOthersUploads)
{
    CRawSocket first = m_served.Connect(u"twin");
    CRawSocket second = m_served.Connect(u"twin");
    Begin(first, 2, 6, u"a");
    Block(first, 2, "abc");
    Begin(second, 2, 6, u"b");
    Block(second, 2, "uvw");
    first.Close();
    EXPECT_EQ(m_served.Tool().WaitForEvent("incomplete")["path"], "a");
    Block(second, 2, "xyz", 1);
    EXPECT_EQ(Contents("b"), "uvwxyz");
}

TEST_F(ServeUpload, TwoUploadsOfOneFileDoNotMix)
{
    CRawSocket first = m_served.Connect(u"one");
    CRawSocket second = m_served.Connect(u"two");
    Begin(first, 2, 4, u"f");
    Begin(second, 2, 4, u"f");
    Block(first, 2, "aa");
    Block(second, 2, "bb");
    Block(first, 2, "aa", 1);
    EXPECT_EQ(Contents("f"), "aaaa");
    Block(second, 2, "bb", 1);
    EXPECT_EQ(Contents("f"), "bbbb");
    EXPECT_EQ(m_served.List(), CNames{"f"});
}

TEST_F(ServeUpload, UnnamedConnectionsLeaveNothingUnderConstruction)
{
    {
        CRawSocket unnamed = m_served.ConnectUnnamed();
        Begin(unnamed, 2, 100, u"f");
        Block(unnamed, 2, "123");
    }
    EXPECT_EQ(m_served.Tool().WaitForEvent("incomplete")["kept"], "f.osprey-partial");
    EXPECT_EQ(m_served.List(), CNames{"f.osprey-partial"});
}

TEST_F(ServeUpload, NamesOfIncompleteFilesAreRefused)
{
    CRawSocket peer = m_served.Connect();
    peer.Send(Wire::Upfi(2, 1, 0, u"f.osprey-partial"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 6U);
    EXPECT_EQ(m_served.Tool().WaitForEvent("refused")["reason"],
              "the name is kept for incomplete files");
}

TEST_F(ServeUpload, LongestNameIsTaken)
{
    CRawSocket peer = m_served.Connect();
    const std::u16string strName(255, u'n');
    Begin(peer, 2, 3, strName);
    Block(peer, 2, "123", 1);
    EXPECT_EQ(m_served.List(), CNames{std::string(255, 'n')});
}

TEST_F(ServeUpload, LinkIsNeitherFollowedNorReplaced)
{
    m_served.Around().WriteFile("root/real", "old");
    fs::create_symlink("real", m_served.GetPath("link"));
    CRawSocket peer = m_served.Connect();
    peer.Send(Wire::Upfi(2, 3, 0, u"link"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 6U);
    EXPECT_EQ(m_served.Tool().WaitForEvent("refused")["reason"], "it is a symbolic link");
    EXPECT_TRUE(fs::is_symlink(m_served.GetPath("link")));
    EXPECT_EQ(Contents("real"), "old");
}

TEST_F(ServeUpload, FolderThatIsMovedMeanwhileTakesItsUploadsAlong)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 6, u"dir/f");
    Block(peer, 2, "abc");
    fs::rename(m_served.GetPath("dir"), m_served.GetPath("moved"));
    fs::create_symlink("..", m_served.GetPath("dir"));
    Block(peer, 2, "def", 1);
    EXPECT_EQ(Contents("moved/f"), "abcdef");
    EXPECT_FALSE(FileExists(m_served.Around().GetPath("f")));
}

TEST_F(ServeUpload, FileWhoseNameAFolderTookMeanwhileIsNotTakenForStored)
{
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 6, u"f");
    Block(peer, 2, "abc");
    fs::create_directory(m_served.GetPath("f"));
    peer.Send(Wire::Upfb(2, 1, "def"));
    const CEvent event = m_served.Tool().WaitForEvent("failed");
    EXPECT_EQ(event["name"], "f");
    EXPECT_EQ(event["reason"], "Is a directory, kept as f.osprey-partial");
    EXPECT_EQ(peer.ReceiveToEnd(), "") << "the end, and no answer before it";
    EXPECT_EQ(m_served.List(), (CNames{"f.osprey-partial", "f/"}));
    EXPECT_EQ(Contents("f.osprey-partial"), "abcdef");
}

TEST_F(ServeUpload, NoLastBlockIsAnsweredForAFileThatCannotBeStored)
{
    for (const std::string strData : {"", "abc"})
    {
        CRawSocket peer = m_served.Connect();
        Begin(peer, 2, strData.size(), u"f");
        fs::create_directory(m_served.GetPath("f"));
        peer.Send(Wire::Upfb(2, 1, strData) + Wire::Delt(3, u"other"));
        EXPECT_EQ(peer.ReceiveToEnd(), "") << "the end, and no answer before it: " << strData;
        EXPECT_FALSE(m_served.Tool().WaitForEvent("disconnected").IsNull());
        fs::remove_all(m_served.GetRoot() + "/f");
        fs::remove(m_served.GetPath("f.osprey-partial"));
    }
}

TEST_F(ServeUpload, GivenUpAndBegunAnewAtOnceGoesOnOrLeavesNothing)
{
    CRawSocket peer = m_served.Connect();
    for (unsigned int dwID = 2; dwID < 100 && !HasFailure(); dwID += 3)
    {
        Begin(peer, dwID, 6, u"f");
        Block(peer, dwID, "abc");
        peer.Send(Wire::Caop(dwID));
        EXPECT_EQ(Begin(peer, dwID + 1, 6, u"f", ~0ULL), 3U);
        peer.Send(Wire::Caop(dwID + 1));
        Begin(peer, dwID + 2, 3, u"f");
        Block(peer, dwID + 2, "new", 1);
        EXPECT_EQ(m_served.List(), CNames{"f"});
    }
}

namespace
{

// A process that has the file locked, as one that is writing it.
CDescriptor Lock(const std::string& strPath)
{
    CDescriptor file(open(strPath.c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(flock(file.Get(), LOCK_EX | LOCK_NB), 0);
    return file;
}

CNames ServeAndList(const std::string& strRoot, const std::vector<std::string>& listOptions)
{
    std::vector<std::string> listArguments = {"serve", "--root", strRoot, "--port", "0", "--json"};
    listArguments.insert(listArguments.end(), listOptions.begin(), listOptions.end());
    CToolProcess tool(listArguments);
    EXPECT_FALSE(tool.WaitForEvent("listening").IsNull());
    return ListFolder(strRoot);
}

}  // namespace

TEST_F(ServeUpload, WhatAKilledServerLeavesIsRemovedByTheNextOne)
{
    const std::string strRoot = m_served.GetRoot();
    {
        CRawSocket peer = m_served.Connect();
        Begin(peer, 2, 100, u"kept");
        Block(peer, 2, "123");
        peer.Reset();
        EXPECT_FALSE(m_served.Tool().WaitForEvent("incomplete").IsNull());
    }
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 100, u"dir/f");
    Block(peer, 2, "123");
    Begin(peer, 3, 100, u"kept", ~0ULL);
    ASSERT_EQ(m_served.List().size(), 3U) << "the folder, and two files under construction";
    m_served.Tool().Signal(SIGKILL);
    m_served.Tool().Wait();
    const CNames listLeft = m_served.List();
    EXPECT_EQ(listLeft.size(), 3U);
    EXPECT_EQ(ServeAndList(strRoot, {"--read-only"}), listLeft) << "there is nothing to write";
    EXPECT_EQ(ServeAndList(strRoot, {"--max-total", "1000"}), CNames{"dir/"});
}

TEST_F(ServeUpload, WhatOthersAreWritingStaysWhenAServerStarts)
{
    m_served.Around().WriteFile("root/.osprey-0123456789abcdef.part", "dead");
    m_served.Around().WriteFile("root/.osprey-0123456789abcdee.part", "alive");
    m_served.Around().WriteFile("root/.osprey-0123456789abcdef.journal", "notes of a download");
    m_served.Around().WriteFile("root/f.part", "not of this program");
    m_served.Around().WriteFile("root/.osprey-notes.part", "of somebody who likes the name");
    ASSERT_EQ(mkfifo(m_served.GetPath(".osprey-0123456789abcde0.part").c_str(), 0600), 0);
    const CDescriptor locked = Lock(m_served.GetPath(".osprey-0123456789abcdee.part"));
    CRawSocket peer = m_served.Connect();
    Begin(peer, 2, 6, u"whole");
    Block(peer, 2, "abc");
    const CNames listNames = ServeAndList(m_served.GetRoot(), {});
    EXPECT_EQ(listNames.size(), 6U) << "all but the dead one";
    Block(peer, 2, "def", 1);
    EXPECT_EQ(
        m_served.List(),
        (CNames{".osprey-0123456789abcde0.part", ".osprey-0123456789abcdee.part",
                ".osprey-0123456789abcdef.journal", ".osprey-notes.part", "f.part", "whole"}));
    EXPECT_EQ(Contents("whole"), "abcdef");
}
