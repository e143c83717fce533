// Tools/wxsp.lua in the packet analyser, over what real peers said to each other.

#include <algorithm>
#include <random>
#include <regex>
#include <sstream>

#include "CaptureFile.h"
#include "Conversations.h"
#include "Golden.h"
#include "Hex.h"
#include "Tshark.h"
#include "WireRecords.h"

namespace
{

// The lines of the dissector and, at their head, the number of each frame: the other layers are the
// analyser's own.
std::string DissectorLines(const std::string& strOutput)
{
    std::istringstream input(strOutput);
    std::string strResult;
    bool bOurs = false;
    for (std::string strLine; std::getline(input, strLine);)
    {
        if (!strLine.empty() && strLine[0] != ' ')
        {
            bOurs = strLine.compare(0, 4, "WXSP") == 0;
        }
        const bool bFrame = strLine.compare(0, 6, "Frame ") == 0;
        if (!strLine.empty() && (bOurs || bFrame))
        {
            strResult += (bFrame ? "\n" + strLine.substr(0, strLine.find(':')) : strLine) + "\n";
        }
    }
    return strResult;
}

// Makes conversations that nobody would have, the same ones from the same seed.
class CDamage
{
public:
    explicit CDamage(unsigned int dwSeed) : m_random(dwSeed) {}

    size_t Below(size_t n)
    {
        return n == 0 ? 0 : m_random() % n;
    }
    CConversation Damaged(CConversation conversation)
    {
        // Long blocks differ in nothing that matters, and make a long run.
        for (CRelayed& relayed : conversation)
        {
            relayed.m_strBytes.resize(std::min<size_t>(relayed.m_strBytes.size(), 3000));
        }
        for (size_t nFaults = 1 + Below(6); nFaults > 0; --nFaults)
        {
            CRelayed& relayed = conversation[Below(conversation.size())];
            relayed.m_bFromClient = relayed.m_bFromClient != (Below(8) == 0);
            DamageBytes(relayed.m_strBytes);
        }
        return conversation;
    }

private:
    void DamageBytes(std::string& strBytes)
    {
        const size_t nAt = Below(std::min<size_t>(strBytes.size(), 64));
        const std::string strMore = Pattern(1 + Below(20), static_cast<unsigned int>(Below(1000)));
        switch (Below(5))
        {
            case 0:
                strBytes.resize(nAt);
                break;
            case 1:
                strBytes.erase(nAt, strMore.size());
                break;
            case 2:
                strBytes.insert(nAt, strMore);
                break;
            case 3:
                strBytes.replace(std::min<size_t>(8, strBytes.size()), 4,
                                 Wire::U32(static_cast<uint32_t>(Below(100))));
                break;
            default:
                strBytes.replace(nAt, 1, strMore.substr(0, 1));
        }
    }

    std::mt19937 m_random;
};

class CDissector : public CConversations
{
protected:
    void SetUp() override
    {
        if (!IsTsharkInstalled())
        {
            GTEST_SKIP() << "tshark is not installed: the dissector cannot be run";
        }
    }

    CConversation DamagedPackets() const;

    std::string Details(const CCaptureFile& capture) const
    {
        return DissectorLines(RunTshark(capture.GetBytes(), {"-O", "wxsp", "-Y", "wxsp"}));
    }
    void AddAll(CCaptureFile& capture)
    {
        capture.Add(Upload());
        capture.Add(StoppedUpload());
        capture.Add(Download());
        capture.Add(Channels());
    }
};
using Dissector = CDissector;

const char* const CODES[] = {"BROW", "NAMC", "NAMR", "CDIR", "CDRT", "DELT",
                             "DTRT", "DFIL", "DFRT", "DFRB", "UPFI", "UPFR",
                             "UPFB", "UPBR", "CAOP", "KEEP", "OCHS", "CPKT"};

TEST_F(Dissector, ShowsEveryCodeAndFieldOfRealConversations)
{
    CCaptureFile capture;
    AddAll(capture);
    const std::string strDetails = Details(capture);
    for (const char* pszCode : CODES)
    {
        EXPECT_NE(strDetails.find(std::string("Code: ") + pszCode), std::string::npos) << pszCode;
    }
    ExpectGolden("conversations.details.txt", strDetails);
}

TEST_F(Dissector, TiesRepliesToRequestsAndFollowsTransfersAndChannels)
{
    CCaptureFile capture;
    AddAll(capture);
    std::vector<std::string> options = {"-Y", "wxsp", "-T", "fields", "-E", "header=y"};
    for (const char* pszField : {"frame.number", "wxsp.magic", "wxsp.request_id", "wxsp.request_in",
                                 "wxsp.reply_in", "wxsp.time", "wxsp.file", "wxsp.file_done",
                                 "wxsp.file_total", "wxsp.channel", "wxsp.packet_number"})
    {
        options.insert(options.end(), {"-e", pszField});
    }
    ExpectGolden("conversations.fields.txt", RunTshark(capture.GetBytes(), options));
    ExpectGolden("conversations.list.txt",
                 RunTshark(capture.GetBytes(), {"-Y", "wxsp", "-T", "fields", "-e", "frame.number",
                                                "-e", "_ws.col.Info"}));
}

// Each fault that the dissector knows, a connection a fault: what follows a lost place is lost.
TEST_F(Dissector, FlagsBadLengthsAndUnknownCodes)
{
    CCaptureFile capture;
    for (const CRelayed& relayed : DamagedPackets())
    {
        capture.Add({{true, Wire::Brow()}, relayed, {true, Wire::Caop(9)}});
    }
    ExpectGolden("damaged.details.txt", Details(capture));
}

TEST_F(Dissector, FindsItsConnectionsOnAnyPortUnlessToldNotTo)
{
    CCaptureFile capture(9000);
    capture.Add(Upload());
    const auto fnCodes = [&](const std::vector<std::string>& listMore)
    {
        std::vector<std::string> options = {"-T", "fields", "-e", "wxsp.magic", "-Y", "wxsp"};
        options.insert(options.end(), listMore.begin(), listMore.end());
        return RunTshark(capture.GetBytes(), options);
    };
    const std::string strFound = fnCodes({});
    EXPECT_NE(strFound.find("0x55504649"), std::string::npos);
    EXPECT_EQ(fnCodes({"-o", "wxsp.heuristic:FALSE"}), "");
    EXPECT_EQ(fnCodes({"-o", "wxsp.heuristic:FALSE", "-o", "wxsp.ports:9000"}), strFound);
}

// Every kind of damage to every conversation, thousands of connections in one capture, whole and
// cut short. What the dissector says of it is not looked at, as long as it says something and fails
// nowhere.
TEST_F(Dissector, NeverFailsOnDamagedConversations)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the analyser itself is the same in every build";
#endif
    const std::vector<CConversation> listGood = {Upload(), StoppedUpload(), Download(), Channels(),
                                                 DamagedPackets()};
    for (const size_t nLongest : {size_t{65535}, size_t{100}})
    {
        CDamage damage(20210606);
        CCaptureFile capture(7580, nLongest);
        for (int i = 0; i < 3000; ++i)
        {
            capture.Add(damage.Damaged(listGood[damage.Below(listGood.size())]));
        }
        const std::string strDetails = RunTshark(capture.GetBytes(), {"-V"});
        for (const char* pszFailure : {"Lua Error", "wxsp.lua:", "Dissector bug"})
        {
            const size_t nAt = strDetails.find(pszFailure);
            EXPECT_EQ(nAt, std::string::npos) << strDetails.substr(nAt, 500);
        }
        EXPECT_NE(strDetails.find("No such code"), std::string::npos);
        EXPECT_NE(strDetails.find("The record ends before its"), std::string::npos);
        EXPECT_NE(strDetails.find("The name has no end inside its packet"), std::string::npos);
    }
}

}  // namespace

// What a peer could send and should not.
CConversation CDissector::DamagedPackets() const
{
    const std::string strNoEnd("A\0B\0", 4);
    return {{true, Wire::Packet("ABCD", "payload")},
            {true, Wire::Packet("NAMC", "12")},
            {true, Wire::Packet("NAMC", Wire::U32(1) + strNoEnd)},
            {true, Wire::Packet("UPFI", Wire::U32(2) + Wire::HighLow(1))},
            {true, Wire::Packet("UPFB", Wire::U32(2))},
            {true, Wire::Packet("CAOP", "")},
            {true, Wire::Packet("OCHS", Wire::U32(11) + std::string(44, 'c'))},
            {true, Wire::Packet("OCHS", Wire::U32(3) + Wire::U32(1))},
            {true, Wire::Packet("KEEP", "more")},
            {false, Wire::Result("UPBR", 7, 11)},
            {false, Wire::Packet("DFRT", Wire::U32(2) + Wire::U32(5))},
            {false, Wire::Dfrb(3, "nobody asked")},
            {false, Wire::Packet("CPKT", "")},
            {false, Wire::Brow()},
            {true, Wire::PacketWithSize("UPFB", 0x7FFFFFFF, "large")},
            {true, Wire::PacketWithSize("UPFB", 200000, Wire::U32(2) + std::string(199996, 'x'))},
            {true, std::string("\0\1\2\3\4\5\6\7\xff\xff\xff\xff", 12)},
            {true, std::string(4, '\xff')}};
}
