#include "SoakEnemies.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <thread>
#include <utility>

#include "Hex.h"
#include "WireRecords.h"

namespace
{

const char* const CODES[] = {"BROW", "NAMC", "CDIR", "DELT", "DFIL", "UPFI", "UPFB",    "CAOP",
                             "KEEP", "OCHS", "NAMR", "DFRB", "CPKT", "ZZZZ", "\1\2\3\4"};
const size_t MOST_OPEN = 32;
const size_t KEPT_OPEN = 8;  // until the end: the server ends them after half a minute
const size_t LARGE_FILE = 16 << 20;

}  // namespace

CSoakEnemy::CSoakEnemy(CSoak& soak, unsigned int dwSeed) : m_soak(soak), m_dice(dwSeed)
{
    m_soak.m_served.WriteFile("enemy-large", std::string(LARGE_FILE, 'x'));
}

void CSoakEnemy::Run()
{
    while (!m_soak.m_bStop)
    {
        const unsigned int dwMark = m_soak.m_restarts.WaitForServer();
        CRawSocket peer;
        if (peer.Connect(m_soak.m_wPort))
        {
            peer.SendWithoutWaiting(MakeBytes());
            Leave(std::move(peer));
            ++m_soak.m_counts.m_enemies;
        }
        else
        {
            EXPECT_TRUE(m_soak.m_restarts.HasComeSince(dwMark)) << "nobody listens";
        }
        // The pace of the connections: they must not use up the system's ports.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::string CSoakEnemy::MakeBytes()
{
    std::string strBytes = MakeConversation();
    switch (m_dice.Roll(0, 8))
    {
        case 0:
            return m_dice.Bytes(m_dice.Roll(1, 5000));
        case 1:
            return Wire::Brow() + m_dice.Bytes(m_dice.Roll(1, 5000));
        case 2:
        case 3:
            for (unsigned int i = m_dice.Roll(1, 8); i > 0; --i)
            {
                strBytes[m_dice.Roll(0, static_cast<unsigned int>(strBytes.size() - 1))] =
                    m_dice.Bytes(1)[0];
            }
            return strBytes;
        case 4:
            return strBytes.substr(0, m_dice.Roll(0, static_cast<unsigned int>(strBytes.size())));
        case 5:
            return MakeHugePacket();
        case 6:
            return Wire::Brow() + Wire::Packet(CODES[m_dice.Roll(0, std::size(CODES) - 1)],
                                               m_dice.Bytes(m_dice.Roll(0, 300)));
        case 7:
            return MakeSubscription();
        default:
            return Wire::Brow() + Wire::Dfil(1, 0, u"enemy-large") +
                   Wire::Dfil(2, 0, u"enemy-large");
    }
}

std::string CSoakEnemy::MakeConversation()
{
    return Wire::Brow() + Wire::Namc(1, u"enemy") + Wire::Cdir(2, u"root/enemy-directory") +
           Wire::Upfi(3, 1000, 0, u"FILESUBMIT|root|enemy-file") +
           Wire::Upfb(3, 0, m_dice.Bytes(m_dice.Roll(0, 1000))) + Wire::Dfil(4, 0, u"enemy-file") +
           Wire::Caop(4) + Wire::Keep() + Wire::Upfb(3, 1, "") + Wire::Delt(5, u"root/enemy-file");
}

std::string CSoakEnemy::MakeHugePacket()
{
    static const uint32_t SIZES[] = {0xFFFFFFFF, 0xFFFFFFF4, 0x80000000,
                                     0x7FFFFFFF, 131061,     131060};
    return Wire::Brow() + Wire::PacketWithSize(CODES[m_dice.Roll(0, std::size(CODES) - 1)],
                                               SIZES[m_dice.Roll(0, std::size(SIZES) - 1)],
                                               std::string(m_dice.Roll(0, 200000), 'x'));
}

// Of the channels that others read, or of none that exists; with a count that may lie.
std::string CSoakEnemy::MakeSubscription()
{
    static const uint32_t COUNTS[] = {0, 2, 10, 11, 0x40000000, 0xFFFFFFFF};
    if (m_dice.Roll(0, 1) == 0)
    {
        return Wire::Ochs({m_dice.Roll(1, SOAK_CHANNELS), m_dice.Roll(1, 100000)});
    }
    return Wire::Packet("OCHS", Wire::U32(COUNTS[m_dice.Roll(0, std::size(COUNTS) - 1)]) +
                                    Wire::U32(1) + Wire::U32(m_dice.Roll(1, 100000)));
}

void CSoakEnemy::Leave(CRawSocket peer)
{
    switch (m_dice.Roll(0, 3))
    {
        case 0:
            peer.Close();
            return;
        case 1:
            peer.Reset();
            return;
        case 2:
            peer.ShutdownSend();
            break;
        default:
            break;
    }
    m_open.push_back(std::move(peer));
    if (m_open.size() > MOST_OPEN)
    {
        m_dice.Roll(0, 1) == 0 ? m_open[KEPT_OPEN].Close() : m_open[KEPT_OPEN].Reset();
        m_open.erase(m_open.begin() + KEPT_OPEN);
    }
}
