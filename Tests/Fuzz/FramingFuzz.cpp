// Both cut rules, fed piece by piece through a receive ring, against the plain rule: a packet is as
// long as its header says, and is handed on once it has arrived.
//
// Input: who receives and how large the ring is; the rule of the pieces; the stream.

#include <algorithm>
#include <climits>
#include <cstring>

#include "FuzzInput.h"
#include "LittleMemory.h"
#include "WXSPFraming.h"

namespace
{

// Follows the stream and looks at every packet that is cut out of it.
class CCutCheck final : public IWXSPPacketSink
{
public:
    explicit CCutCheck(std::string_view stream) : m_stream(stream) {}

    Orb_BOOL ProcessWXSPacket(PWXS_PACKET pPacket) override
    {
        const uint64_t ullSize = GetNextSize();
        Require(ullSize != 0 && ullSize <= GetLeft(), "a packet is cut when it has arrived");
        const size_t nSize = static_cast<size_t>(ullSize);
        Require(memcmp(pPacket, m_stream.data() + m_nCut, nSize) == 0, "a packet keeps its bytes");
        m_nCut += nSize;
        return Orb_TRUE;
    }
    void AddArrived(size_t nSize)
    {
        m_nArrived += nSize;
        Require(m_nArrived <= m_stream.size(), "no byte is received twice");
    }
    // What has arrived and was not cut out.
    size_t GetLeft() const
    {
        return m_nArrived - m_nCut;
    }
    // Of the packet that is not cut out yet; 0 while its header has not arrived.
    uint64_t GetNextSize() const
    {
        return GetClaimedSize(m_stream.substr(m_nCut, GetLeft()));
    }
    void RequireNothingComplete() const
    {
        const uint64_t ullSize = GetNextSize();
        Require(ullSize == 0 || ullSize > GetLeft(), "a packet that has arrived is cut");
    }

private:
    const std::string_view m_stream;
    size_t m_nArrived = 0;
    size_t m_nCut = 0;
};

// As a stream of the server does it. A keep-alive's size is overwritten by its handler.
void CutAsServer(CRingTCPStreamBuffer& ring, CCutCheck& check)
{
    while (const PWXS_PACKET pPacket = GetCompletePacket(ring))
    {
        const int nSize = static_cast<int>(GetPacketSize(ring));
        check.ProcessWXSPacket(pPacket);
        if (pPacket->dwMagic == KEEP || pPacket->dwMagic == 0)
        {
            pPacket->dwDataSize = 0;
        }
        Require(ring.RemoveData(nSize), "the ring holds the packet");
    }
}

void ReceiveAsServer(CRingTCPStreamBuffer& ring, CCutCheck& check, std::string_view piece)
{
    while (!piece.empty())
    {
        const size_t nSize = std::min(piece.size(), static_cast<size_t>(ring.GetFreeSize()));
        if (nSize == 0)
        {
            Require(check.GetNextSize() > static_cast<uint64_t>(ring.GetBufferSize()),
                    "only a packet larger than the ring fills it");
            return;
        }
        memcpy(ring.GetFree(0), piece.data(), nSize);
        Require(ring.AppendData(static_cast<int>(nSize)), "the ring takes what it has room for");
        piece.remove_prefix(nSize);
        check.AddArrived(nSize);
        CutAsServer(ring, check);
        check.RequireNothingComplete();
    }
}

// A ring for a packet of this size, and one receive more, is to be had.
bool MayGrowFor(uint64_t ullSize)
{
    const uint64_t ullRing = ullSize + WXSP_CLIENT_RECEIVE_SIZE;
    return ullRing <= INT_MAX / 2 && 2 * ullRing <= MOST_MEMORY;
}

// False when the client would end the connection.
bool ReceiveAsClient(CRingTCPStreamBuffer& ring, CCutCheck& check, std::string_view piece)
{
    CSimpleTCPStreamBuffer received;
    received.Create(WXSP_CLIENT_RECEIVE_SIZE);
    while (!piece.empty())
    {
        const size_t nSize = std::min<size_t>(piece.size(), WXSP_CLIENT_RECEIVE_SIZE);
        memcpy(received.GetFree(0), piece.data(), nSize);
        received.AppendData(static_cast<int>(nSize));
        piece.remove_prefix(nSize);
        check.AddArrived(nSize);
        if (!CollectPackets(ring, received, check))
        {
            Require(ring.GetFreeSize() == 0 && !MayGrowFor(check.GetNextSize()),
                    "a client gives up only on a packet too large for its memory");
            return false;
        }
        Require(received.GetDataSize() == 0, "everything received goes into the ring");
        check.RequireNothingComplete();
        Require(static_cast<size_t>(ring.GetDataSize()) == check.GetLeft(),
                "the ring holds what was not cut");
    }
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    CFuzzInput input(pData, nSize);
    const unsigned char cMode = input.TakeByte();
    const unsigned char cRule = input.TakeByte();
    const std::string_view stream = input.TakeRest();
    CCutCheck check(stream);
    CRingTCPStreamBuffer ring;
    ring.Create(16 << (cMode / 2 % 8));
    for (CPieces pieces(cRule, stream); !pieces.IsEmpty();)
    {
        const std::string_view piece = pieces.Take();
        if (cMode % 2 == 0)
        {
            ReceiveAsServer(ring, check, piece);
        }
        else if (!ReceiveAsClient(ring, check, piece))
        {
            break;
        }
    }
    return 0;
}
