// What a broken or hostile peer may send: the server lives on, and other connections notice
// nothing.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <vector>

#include "ServerFixture.h"

namespace
{

class CBadInputTest : public CUntimedServerTest
{
protected:
    CBadInputTest()
    {
        Start();
        m_other = Named(u"other");
    }
    std::vector<std::string> NamedRequests() const
    {
        const std::u16string strPath = u"/dev/null/refused";
        return {Wire::Namc(1, u"n"), Wire::Cdir(1, strPath), Wire::Delt(1, strPath),
                Wire::Dfil(1, 0, strPath), Wire::Upfi(1, 1, 0, strPath)};
    }
    // The packet with its payload cut to nSize bytes, and a header that says so.
    static std::string CutShort(const std::string& strPacket, size_t nSize)
    {
        return strPacket.substr(0, 8) + Wire::U32(static_cast<uint32_t>(nSize)) +
               strPacket.substr(12, nSize);
    }

    CRawSocket m_other;
};
using BadInput = CBadInputTest;

TEST_F(BadInput, EveryRequestCutShortAtEachLengthIsRefused)
{
    for (const std::string& strRequest : NamedRequests())
    {
        for (size_t nSize = 0; nSize + 12 < strRequest.size(); ++nSize)
        {
            CRawSocket peer = Browse();
            peer.Send(CutShort(strRequest, nSize));
            ExpectRefused(peer);
        }
    }
    EXPECT_EQ(m_host.GetRequests().size(), 1U) << "the host is asked nothing";
    ExpectAlive(m_other);
}

TEST_F(BadInput, BlocksCutShortAtEachLengthAreRefused)
{
    for (size_t nSize = 0; nSize < 8; ++nSize)
    {
        CRawSocket peer = Browse();
        const std::u16string strPath = Widen(m_folder.GetPath("file"));
        Exchange(peer, Wire::Upfi(1, 100, 0, strPath), Wire::Upfr(1, 0, 0));
        peer.Send(CutShort(Wire::Upfb(1, 0, ""), nSize));
        ExpectRefused(peer);
    }
    EXPECT_EQ(ReadFile(m_folder.GetPath("file")), "");
    ExpectAlive(m_other);
}

// What lies in the ring behind the packet would end the name, but is not the packet's.
TEST_F(BadInput, NameWithoutATerminatorIsRefusedWhateverFollowsThePacket)
{
    for (const std::string& strRequest : NamedRequests())
    {
        CRawSocket peer = Browse();
        peer.Send(CutShort(strRequest, strRequest.size() - 14) + std::string(64, '\0'));
        ExpectRefused(peer);
    }
    EXPECT_EQ(m_host.GetRequests().size(), 1U);
}

TEST_F(BadInput, OddLengthsBehindTheTerminatorAreIgnored)
{
    CRawSocket peer = Browse();
    const std::string strPayload = Wire::Delt(4, u"/nothing").substr(12) + "odd";
    Exchange(peer, Wire::Packet("DELT", strPayload), Wire::Result("DTRT", 4, 0));
    EXPECT_EQ(m_host.GetRequests().back().m_strName, "/nothing");
}

TEST_F(BadInput, NameWithAnUnpairedSurrogateBecomesAReplacementCharacter)
{
    CRawSocket peer = Browse();
    Exchange(peer, Wire::Delt(4, {u'/', 0xD800, u'x'}), Wire::Result("DTRT", 4, 0));
    EXPECT_EQ(m_host.GetRequests().back().m_strName, "/\xEF\xBF\xBDx");
}

TEST_F(BadInput, LongestNamesThatAPacketHoldsAreAnswered)
{
    CRawSocket peer = Browse();
    const std::u16string strLong((131060 - 4 - 2) / 2, u'x');
    Exchange(peer, Wire::Delt(4, strLong), Wire::Result("DTRT", 4, 0));
    Exchange(peer, Wire::Cdir(5, strLong), Wire::Result("CDRT", 5, 8));
    Exchange(peer, Wire::Namc(6, strLong), Wire::Result("NAMR", 6, 0));
    ExpectAlive(peer);
}

TEST_F(BadInput, HugeSizesStallTheirOwnConnectionOnly)
{
    std::vector<CRawSocket> peers;
    for (const uint32_t dwSize : {131061U, 0x7FFFFFF3U, 0x7FFFFFF4U, 0x7FFFFFFFU, 0x80000000U,
                                  0xFFFFFFF3U, 0xFFFFFFF4U, 0xFFFFFFFFU})
    {
        for (const char* pszCode : {"KEEP", "UPFB", "NAMC", "????"})
        {
            peers.push_back(Browse());
            peers.back().SendWithoutWaiting(Wire::PacketWithSize(pszCode, dwSize, Pattern(140000)));
            ExpectAlive(m_other);
            EXPECT_TRUE(peers.back().IsSilent());
        }
    }
}

TEST_F(BadInput, RandomBytesHarmNobody)
{
    std::mt19937 random(7);
    for (unsigned int i = 0; i < 200; ++i)
    {
        CRawSocket peer = i % 2 == 0 ? Connect() : Browse();
        peer.SendWithoutWaiting(Pattern(random() % 5000, i));
        if (i % 10 == 0)
        {
            ExpectAlive(m_other);
        }
    }
    ExpectAlive(m_other);
}

// A good conversation with one byte changed: whatever that makes of it.
TEST_F(BadInput, ConversationWithAnyByteChangedHarmsNobody)
{
    const std::u16string strPath = Widen(m_folder.GetPath("f"));
    const std::string strGood = Wire::Brow() + Wire::Namc(1, u"n") + Wire::Upfi(2, 3, 0, strPath) +
                                Wire::Upfb(2, 0, "abc") + Wire::Upfb(2, 1, "") +
                                Wire::Dfil(3, 0, strPath) + Wire::Caop(3);
    for (size_t i = 0; i < strGood.size(); ++i)
    {
        // Names stay as they are: a changed one would be a file elsewhere.
        const size_t nPath = strGood.find(Wire::Name(strPath));
        const size_t nAgain = strGood.rfind(Wire::Name(strPath));
        const size_t nLength = Wire::Name(strPath).size();
        if ((i >= nPath && i < nPath + nLength) || (i >= nAgain && i < nAgain + nLength))
        {
            continue;
        }
        std::string strBad = strGood;
        strBad[i] = static_cast<char>(strBad[i] ^ 0x41);
        CRawSocket peer = Connect();
        peer.SendWithoutWaiting(strBad);
        peer.ShutdownSend();
        peer.ReceiveToEnd();
    }
    ExpectAlive(m_other);
}

TEST_F(BadInput, CancelsRaceWithEverything)
{
    const std::u16string strPath = Widen(m_folder.WriteFile("file", Pattern(200000)));
    for (int i = 0; i < 50; ++i)
    {
        CRawSocket peer = Browse();
        peer.Send(Wire::Caop(1) + Wire::Dfil(1, 0, strPath) + Wire::Caop(1) + Wire::Caop(1) +
                  Wire::Dfil(1, 0, strPath) + Wire::Dfil(1, 0, strPath) + Wire::Caop(1) +
                  Wire::Namc(1, u"x") + Wire::Caop(1));
        std::string strCode;
        do
        {
            strCode = Wire::GetCode(peer.ReceivePacket());
        } while (strCode == "DFRT" || strCode == "DFRB");
        EXPECT_EQ(strCode, "NAMR");
    }
    ExpectAlive(m_other);
}

int CountDescriptors()
{
    int nCount = 0;
    for (int h = 0; h < 1024; ++h)
    {
        nCount += access(("/proc/self/fd/" + std::to_string(h)).c_str(), F_OK) == 0 ? 1 : 0;
    }
    return nCount;
}

long ResidentKiB()
{
    long nSize = 0;
    long nResident = 0;
    FILE* pFile = fopen("/proc/self/statm", "re");
    EXPECT_EQ(fscanf(pFile, "%ld %ld", &nSize, &nResident), 2);
    fclose(pFile);
    return nResident * 4;
}

// Whatever was sent is freed at once, not when the connection ends.
TEST_F(BadInput, LongDownloadsLeaveNothingBehindOnALivingConnection)
{
    const std::string strPath = m_folder.WriteFile("sparse", "");
    ASSERT_EQ(truncate(strPath.c_str(), 32L * 1024 * 1024), 0);
    CRawSocket peer = Browse();
    long nResident = 0;
    for (int i = 0; i < 4; ++i)
    {
        peer.Send(Wire::Dfil(1, 0, Widen(strPath)));
        while (peer.ReceivePacket().size() != 16)
        {
        }
        nResident = i == 0 ? ResidentKiB() : nResident;
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(ResidentKiB(), nResident + 16L * 1024);
#else
    (void)nResident;
#endif
    ExpectAlive(m_other);
}

// The leak check of the sanitizer build counts the buffers; here nothing may pile up meanwhile.
TEST_F(BadInput, AThousandAbortedTransfersLeaveNothingBehind)
{
    const std::u16string strSource = Widen(m_folder.WriteFile("source", Pattern(300000)));
    const std::u16string strTarget = Widen(m_folder.GetPath("target"));
    int nDescriptors = 0;
    long nResident = 0;
    for (int i = 0; i < 1000; ++i)
    {
        {
            CRawSocket peer = Named(u"aborts");
            peer.Send(i % 2 == 0 ? Wire::Dfil(1, 0, strSource)
                                 : Wire::Upfi(1, 100, 0, strTarget) + Wire::Upfb(1, 0, "x"));
            peer.ReceivePacket();
            peer.Reset();
        }
        m_host.WaitForDisconnects(static_cast<size_t>(i) + 1);
        if (i == 100)
        {
            ExpectAlive(m_other);
            nDescriptors = CountDescriptors();
            nResident = ResidentKiB();
        }
    }
    ExpectAlive(m_other);
    EXPECT_LE(CountDescriptors(), nDescriptors + 1);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(ResidentKiB(), nResident + 4096) << "900 transfers of one block each";
#else
    (void)nResident;
#endif
}

}  // namespace
