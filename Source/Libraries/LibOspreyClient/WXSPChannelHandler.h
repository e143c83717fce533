#ifndef OSPREY_WXSPCHANNELHANDLER_H
#define OSPREY_WXSPCHANNELHANDLER_H

// Internal header.

#include <list>
#include <vector>

#include "ChannelPacketServer.h"
#include "ChannelSimpleBuffer.h"
#include "IOEngine.h"
#include "LinkedList.h"
#include "MethodCallbackHandler.h"
#include "WXSPProtocolHandler.h"

// Streams the packets of up to 10 channels to one connection:
//
//   store --a batch of at most 32, the channels in turn--> m_listPackets --one at a time--> stream
//     ^                                                         | empty, nothing new
//     +---- the next batch once all is written                  v
//     +------------------------------------------- timer, or a flush of the host
//
// Only TCP's own back-pressure slows a connection down; what a slow one skips is decided by the
// store. An idle connection looks 100 ms after the request and every 200 ms from then on.
//
// A further OCHS replaces the list and leaves the channels of the earlier one registered in the
// store, also when the connection has ended; peers depend on it. So that nobody fills the store
// that way, the 65th channel left behind is refused, and those whose users have all gone give way.
//
// Ownership: owns every buffer from gathering to its return, and its reference to the packet;
//            borrows the store.
// Otherwise as CWXSPProtocolHandler. Listed in the server's waiting handlers while it waits.
class CWXSPChannelHandler final : public CWXSPProtocolHandler, public CDLinkedListNode
{
public:
    CWXSPChannelHandler(COspreyServer* pServer, COspreyServerStream* pStream);
    ~CWXSPChannelHandler() override;

    void OnSendComplete(CTCPStreamBuffer* pBuffer) override;
    void OnTimeout(unsigned int /*dwA*/, unsigned int /*dwB*/) override {}
    // REQUIRES: the transport has been torn down, so that no queue holds a buffer.
    void OnShutdown() override;
    Orb_BOOL ProcessRequest(PWXS_PACKET pPacket) override;

    Orb_BOOL ProcessOpenChannelRequest(PWXS_PACKET pPacket);
    // Gathers the next batch and starts it, or waits for packets. Nothing while a batch is left.
    void SendChannelPackets();
    void ProcessCheckPacketTimeout(void*);
    // Looks for packets ahead of the timer, whose time stays when there are none. What it finds
    // goes out at once, on this connection for good. REQUIRES: waiting for packets.
    void Flush();
    // Gives back what was gathered and not handed to the stream yet.
    void ClearPacketPool();

private:
    struct CLeftChannel
    {
        unsigned int m_dwChannel;
        bool m_bAdded;  // it is registered
    };

    long GetTask() const;
    int IsPeerLocal() const;
    bool LeaveChannelsBehind();
    void AddChannels();
    void GatherBatch(int bLocal);
    bool GatherPacket(unsigned int dwChannel, int bLocal);
    bool PrepareSpare();
    void SendFirst();
    void GiveBack(CChannelSimpleBuffer* pBuffer);
    void WaitForPackets();

    CCriticalSection m_cs;
    unsigned int m_dwNumChannels = 0;
    unsigned int m_dwChannels[WXSP_MAX_CHANNELS] = {};
    std::list<CChannelSimpleBuffer*> m_listPackets;
    CChannelPacketServer* m_pChannelPacketServer;
    CMethodCallbackHandler<CWXSPChannelHandler, CTimerHandler> m_timerCheckPacket;

    bool m_bAdded[WXSP_MAX_CHANNELS] = {};         // which of the channels are registered
    bool m_bMissing = false;                       // some are not
    unsigned int m_dwAddTime = 0;                  // when that was tried last
    std::vector<CLeftChannel> m_channelsLeft;      // those of earlier requests
    CDLinkedList m_listOut;                        // buffers at the stream
    std::list<CChannelSimpleBuffer*> m_listSpare;  // one buffer at most, for the next packet
    bool m_bNoDelay = false;                       // a flush has found packets
};

#endif
