#ifndef OSPREY_WXSPFRAMING_H
#define OSPREY_WXSPFRAMING_H

// Internal header. Cuts packets out of a receive ring, and reads and writes what they carry.
//
// A packet is 12 + dwDataSize bytes. Sizes are computed in 64 bits: what exceeds a ring never
// completes, it does not wrap.

#include <memory>
#include <string>

#include "OspreyTypes.h"
#include "RingTCPStreamBuffer.h"
#include "SendBufferOwner.h"
#include "UTF16String.h"
#include "WXSPProtocol.h"

// Whole size in bytes of the packet at the ring's start; 0 while its header is incomplete.
unsigned long long GetPacketSize(CRingTCPStreamBuffer& ring);

// The packet at the ring's start, contiguous, once it is complete; else null. The pointer is valid
// until the ring changes.
PWXS_PACKET GetCompletePacket(CRingTCPStreamBuffer& ring);

// Takes the packets that a client receives.
class IWXSPPacketSink
{
public:
    virtual Orb_BOOL ProcessWXSPacket(PWXS_PACKET pPacket) = 0;

protected:
    ~IWXSPPacketSink() = default;
};

// The clients' receive rule: moves all bytes of `received` into the ring, piece by piece, and hands
// on every packet that completes. The ring grows for a packet larger than itself. False when the
// ring is full and cannot grow; the rest of the bytes is then still in `received`.
bool CollectPackets(CRingTCPStreamBuffer& ring, CTCPStreamBuffer& received, IWXSPPacketSink& sink);

// A packet that a client builds and sends.
typedef std::unique_ptr<CSimpleTCPStreamBuffer> CRequestPtr;

// A request of exactly the size that its payload of nDataSize bytes needs, header filled in. Null
// without memory.
CRequestPtr CreateRequest(unsigned int dwMagic, size_t nDataSize);
// The packet in a request that was not sent yet.
PWXS_PACKET GetPacket(const CRequestPtr& pRequest);
// Queues a filled request; false when the stream refuses it.
bool SendRequest(CSendBufferOwner& buffersOut, CTCPStream& stream, CRequestPtr pRequest);

// The payload of a packet, as one of its records.
template <class CRecord>
CRecord* GetRecord(PWXS_PACKET pPacket)
{
    return reinterpret_cast<CRecord*>(pPacket + 1);
}

// True when the payload holds a record of nRecordSize bytes.
bool HoldsRecord(const _WXS_PACKET* pPacket, size_t nRecordSize);

// True when the payload holds the record and, behind it, a name with its terminator.
bool HoldsNamedRecord(const _WXS_PACKET* pPacket, size_t nRecordSize);

// The name behind a record, as UTF-8. REQUIRES: a terminator. Throws std::bad_alloc.
std::string ReadName(const void* pName);

// Copies a name and its terminator; pDst needs no alignment.
void WriteName(void* pDst, const CUTF16String& strName);

#endif
