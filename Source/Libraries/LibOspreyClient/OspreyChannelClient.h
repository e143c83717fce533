#ifndef OSPREY_OSPREYCHANNELCLIENT_H
#define OSPREY_OSPREYCHANNELCLIENT_H

// The channel client: subscribes to numbered channels of a peer's server, hands over every packet
// that arrives, and reconnects by itself for as long as it lives.
//
//   host thread                     worker thread (one a client)
//   -----------                     ----------------------------
//   CreateWXSPChannelClient
//   Connect  ----- starts ----->    OnConnected, then OnChannelPacket for every packet
//                                   lost:    OnDisconnected,  a new attempt 1 second later
//                                   refused: OnConnectFailed, a new attempt 1 second later
//   Release  ----- joins ------>    (no callback once Release has returned)
//
// The server keeps the newest 2,048 packets of a channel. A new subscription begins with the newest
// one stored, if any, and then gets every packet put after it, in order; a reader who falls further
// behind skips what was dropped meanwhile. Packets carry no number: put one into the data where it
// matters. What the server put while a connection was down is not repeated.
//
// Attempts go on without limit, also while memory is out, with one exception: when the system has
// no descriptor or socket for one, nothing is reported and no further one follows. A host that may
// run out of descriptors watches for silence and starts a new client.
//
// Calls into the host run on the worker thread, but for one case named at OnConnectFailed; answer
// promptly (nothing is received meanwhile), and do not throw. Release may be called from inside a
// callback: nothing is called any more, and it takes effect when the callback has returned. Connect
// and Release of one client belong to one host thread at a time.

#include "OspreyExport.h"
#include "OspreyTypes.h"

// The most channels that one client can read, and the most that a server takes.
enum
{
    OSPREY_MAX_CHANNELS = 10
};

// What a channel client tells its host. dwUserParam is the value given to the factory. Given to the
// factory, never deleted by the library; it must outlive Release.
class OSPREY_API IWXSPChannelClientCallback
{
public:
    // A connection was established; the channels are being asked for. There is no reply to that:
    // packets simply come, or the connection is lost.
    virtual void OnConnected(unsigned int dwUserParam) = 0;

    // An attempt failed: refused, unreachable, or not established within the connect timeout. The
    // next one begins 1 second later.
    //
    // An attempt that fails at once (no route, say) is reported with 0 instead of dwUserParam, and
    // again, properly, when its connect timeout has passed; the next one begins 1 second after
    // that. In the very first attempt this call with 0 comes inside Connect, on its thread.
    virtual void OnConnectFailed(unsigned int dwUserParam) = 0;

    // The established connection is lost: closed by the server, broken, or refused by it. The next
    // attempt begins 1 second later.
    virtual void OnDisconnected(unsigned int dwUserParam) = 0;

    // One packet. pData points to dwSize bytes, exactly as the server's host put them (0 to 1,500
    // from this library's server; another may send more). They are valid during the call only.
    virtual void OnChannelPacket(unsigned int dwUserParam, unsigned int dwChannel, void* pData,
                                 unsigned int dwSize) = 0;

protected:
    ~IWXSPChannelClientCallback() {}
};

// A channel client: one connection at a time, made anew whenever it is lost.
class OSPREY_API IWXSPChannelClient
{
public:
    // Begins to connect, on a worker thread of its own, and goes on until Release. Once for each
    // client.
    //
    //   dwReserved         not used
    //   dwIPAddress        IPv4 address of the peer, host byte order (127.0.0.1 is 0x7F000001)
    //   wPort              TCP port of the peer, host byte order
    //   dwConnectTimeoutMs how long each attempt may take, milliseconds; at most 2^31 - 1 counts
    //   dwNumChannels      how many channels, at most OSPREY_MAX_CHANNELS; 0 is allowed
    //   pdwChannels        their numbers; copied. A number given twice is delivered in turns
    //
    // True when the first attempt is under way. False when it failed at once: with an
    // OnConnectFailed(0) made, the client goes on trying, else nothing more will come. False also
    // when there are too many channels, pdwChannels is null with channels announced, a descriptor,
    // memory or the thread is not to be had, or the client was started before.
    virtual Orb_BOOL Connect(unsigned int dwReserved, unsigned int dwIPAddress,
                             unsigned short wPort, unsigned int dwConnectTimeoutMs,
                             unsigned int dwNumChannels, unsigned int* pdwChannels) = 0;

    // Ends the connection and deletes the client.
    virtual void Release() = 0;

    // Hosts call Release instead.
    virtual ~IWXSPChannelClient() {}
};

// Builds a client that is not started yet; opens nothing. pCallback may be null: nobody is told
// then. Throws std::bad_alloc; never returns null.
OSPREY_API IWXSPChannelClient* CreateWXSPChannelClient(IWXSPChannelClientCallback* pCallback,
                                                       unsigned int dwUserParam);

#endif
