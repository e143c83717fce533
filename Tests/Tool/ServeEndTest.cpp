// The end of the real server amid a crowd.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "DescriptorLimit.h"
#include "Hex.h"
#include "ServedFolder.h"
#include "WireRecords.h"

namespace
{

const size_t EACH = 250;

// What a peer is doing when the end comes.
void StaySilent(CRawSocket& /*peer*/, unsigned int /*dwNumber*/) {}

void TakeAName(CRawSocket& peer, unsigned int dwNumber)
{
    const std::string strName = "peer-" + std::to_string(dwNumber);
    peer.Send(Wire::Brow() + Wire::Namc(1, std::u16string(strName.begin(), strName.end())));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
}

void Upload(CRawSocket& peer, unsigned int dwNumber)
{
    const std::string strName = "upload-" + std::to_string(dwNumber);
    TakeAName(peer, dwNumber);
    peer.Send(Wire::Upfi(2, 1000, 0, std::u16string(strName.begin(), strName.end())));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
    peer.Send(Wire::Upfb(2, 0, "begun"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
}

// Asks for a large file and never reads it: the server's buffers are full.
void NotRead(CRawSocket& peer, unsigned int dwNumber)
{
    TakeAName(peer, dwNumber);
    peer.Send(Wire::Dfil(2, 0, u"large"));
    EXPECT_EQ(Wire::GetU32(peer.ReceivePacket(), 16), 0U);
}

}  // namespace

TEST(ServeEnd, ThousandPeersDoNotHoldItUp)
{
    ASSERT_GE(RaiseDescriptorLimit(), 8 * EACH) << "needs that many descriptors";
    CServedFolder served;
    served.Around().WriteFile("root/large", Pattern(8000000));
    std::vector<CRawSocket> listPeers;
    listPeers.reserve(4 * EACH);
    for (const auto pfnAct : {StaySilent, TakeAName, Upload, NotRead})
    {
        for (size_t i = 0; i < EACH; ++i)
        {
            listPeers.emplace_back();
            ASSERT_TRUE(listPeers.back().Connect(served.GetPort()));
            pfnAct(listPeers.back(), static_cast<unsigned int>(listPeers.size()));
        }
    }
    const auto start = std::chrono::steady_clock::now();
    served.Tool().Signal(SIGTERM);
    EXPECT_EQ(served.Tool().Wait(), 0);
    const auto taken = std::chrono::steady_clock::now() - start;
    RecordProperty(
        "milliseconds",
        static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count()));
    EXPECT_LT(taken, std::chrono::seconds(2));
    EXPECT_EQ(served.Tool().GetErrors(), "");
    const std::vector<std::string> listNames = served.List();
    EXPECT_EQ(std::count_if(listNames.begin(), listNames.end(),
                            [](const std::string& strName)
                            { return strName.find(".osprey-partial") != std::string::npos; }),
              static_cast<std::ptrdiff_t>(EACH));
    EXPECT_EQ(listNames.size(), EACH + 1);
}
