#include "WXSPFraming.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "ConvertUTF.h"

namespace
{

const size_t UNIT_SIZE = sizeof(unsigned short);

bool IsTerminator(const byte* pUnit)
{
    return pUnit[0] == 0 && pUnit[1] == 0;
}

// Room for the packet and for one more receive behind it.
bool GrowFor(CRingTCPStreamBuffer& ring, unsigned long long ullPacketSize)
{
    const unsigned long long ullCapacity = ullPacketSize + WXSP_CLIENT_RECEIVE_SIZE;
    return ullCapacity <= INT_MAX && ring.Grow(static_cast<int>(ullCapacity));
}

void CutPackets(CRingTCPStreamBuffer& ring, IWXSPPacketSink& sink)
{
    for (;;)
    {
        const unsigned long long ullSize = GetPacketSize(ring);
        if (ullSize > static_cast<unsigned long long>(ring.GetBufferSize()))
        {
            GrowFor(ring, ullSize);
            return;
        }
        const PWXS_PACKET pPacket = GetCompletePacket(ring);
        if (pPacket == nullptr)
        {
            return;
        }
        sink.ProcessWXSPacket(pPacket);
        ring.RemoveData(static_cast<int>(ullSize));
    }
}

}  // namespace

unsigned long long GetPacketSize(CRingTCPStreamBuffer& ring)
{
    const byte* pData = ring.GetData(WXSP_HEADER_SIZE);
    if (pData == nullptr)
    {
        return 0;
    }
    const _WXS_PACKET* pPacket = reinterpret_cast<const _WXS_PACKET*>(pData);
    return static_cast<unsigned long long>(WXSP_HEADER_SIZE) + pPacket->dwDataSize;
}

PWXS_PACKET GetCompletePacket(CRingTCPStreamBuffer& ring)
{
    const unsigned long long ullSize = GetPacketSize(ring);
    if (ullSize == 0 || ullSize > static_cast<unsigned long long>(ring.GetDataSize()))
    {
        return nullptr;
    }
    return reinterpret_cast<PWXS_PACKET>(ring.GetData(static_cast<int>(ullSize)));
}

bool CollectPackets(CRingTCPStreamBuffer& ring, CTCPStreamBuffer& received, IWXSPPacketSink& sink)
{
    while (received.GetDataSize() > 0)
    {
        const int nPiece = std::min(received.GetDataSize(), ring.GetFreeSize());
        if (nPiece <= 0)
        {
            return false;
        }
        memcpy(ring.GetFree(nPiece), received.GetData(nPiece), static_cast<size_t>(nPiece));
        ring.AppendData(nPiece);
        received.RemoveData(nPiece);
        CutPackets(ring, sink);
    }
    return true;
}

CRequestPtr CreateRequest(unsigned int dwMagic, size_t nDataSize)
{
    CRequestPtr pRequest(new (std::nothrow) CSimpleTCPStreamBuffer);
    if (pRequest == nullptr || nDataSize > static_cast<size_t>(INT_MAX - WXSP_HEADER_SIZE) ||
        !pRequest->Create(WXSP_HEADER_SIZE + static_cast<int>(nDataSize)))
    {
        return nullptr;
    }
    const PWXS_PACKET pPacket = GetPacket(pRequest);
    pPacket->dwVersion = WXSP_VERSION;
    pPacket->dwMagic = dwMagic;
    pPacket->dwDataSize = static_cast<uint32_t>(nDataSize);
    return pRequest;
}

PWXS_PACKET GetPacket(const CRequestPtr& pRequest)
{
    return reinterpret_cast<PWXS_PACKET>(pRequest->GetFree(0));
}

bool SendRequest(CSendBufferOwner& buffersOut, CTCPStream& stream, CRequestPtr pRequest)
{
    const int nSize = WXSP_HEADER_SIZE + static_cast<int>(GetPacket(pRequest)->dwDataSize);
    return pRequest->AppendData(nSize) && buffersOut.Send(stream, pRequest.release());
}

bool HoldsRecord(const _WXS_PACKET* pPacket, size_t nRecordSize)
{
    return pPacket->dwDataSize >= nRecordSize;
}

bool HoldsNamedRecord(const _WXS_PACKET* pPacket, size_t nRecordSize)
{
    const byte* pPayload = reinterpret_cast<const byte*>(pPacket + 1);
    for (size_t i = nRecordSize; i + UNIT_SIZE <= pPacket->dwDataSize; i += UNIT_SIZE)
    {
        if (IsTerminator(pPayload + i))
        {
            return true;
        }
    }
    return false;
}

std::string ReadName(const void* pName)
{
    const byte* pBytes = static_cast<const byte*>(pName);
    size_t nUnits = 0;
    while (!IsTerminator(pBytes + nUnits * UNIT_SIZE))
    {
        ++nUnits;
    }
    // The bytes may stand at an odd address.
    CUTF16String strUnits(nUnits, 0);
    memcpy(&strUnits[0], pBytes, nUnits * UNIT_SIZE);
    return CConvertUTF::UTF16SToUTF8S(strUnits.c_str(), static_cast<int>(nUnits) + 1);
}

void WriteName(void* pDst, const CUTF16String& strName)
{
    memcpy(pDst, strName.c_str(), (strName.size() + 1) * UNIT_SIZE);
}
