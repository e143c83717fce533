#ifndef OSPREY_CLIENTTCPSTREAM_H
#define OSPREY_CLIENTTCPSTREAM_H

// Internal header.

#include "OspreyTypes.h"
#include "TCPStream.h"

// The stream of an outgoing connection: reports its events to a client's callback interface, and
// tells a failed attempt from the loss of an established connection.
//
// Ownership: borrows the callback, which may be null: every event is then dropped.
// Otherwise as CTCPStream.
class CClientTCPStream : public CTCPStream
{
public:
    class ICallback
    {
    public:
        virtual void OnConnectSuccessful() = 0;
        virtual void OnConnectFailed(int nError) = 0;
        // Both buffers are back in the callee's hands.
        virtual void OnDataReceived(CTCPStreamBuffer* pBuffer) = 0;
        virtual void OnDataSent(CTCPStreamBuffer* pBuffer) = 0;
        // nError is an errno value, 0 when the peer closed.
        virtual void OnNetworkError(int nError) = 0;
        virtual int OnRequest(unsigned int /*dwA*/, unsigned int /*dwB*/, unsigned int /*dwC*/)
        {
            return 0;
        }

    protected:
        ~ICallback() = default;
    };

    explicit CClientTCPStream(CIOEngine* pEngine);

    // Sends each request at once: a block's last segment would else wait for an acknowledgement.
    void SetNoDelay();
    // Tells the peer that nothing more will be sent; harmless without a connection.
    void ShutdownSend();

    void ProcessConnected() override;
    void ProcessDataReceived(CTCPStreamBuffer* pBuffer) override;
    void ProcessDataSent(CTCPStreamBuffer* pBuffer) override;
    void ProcessDisconnected() override;
    void ProcessNetworkError(int nError) override;
    void ProcessDestroied() override {}

    ICallback* m_pCallback = nullptr;
    // Set by the first success and never cleared here: an owner that connects again clears it.
    Orb_BOOL m_bConnectSuccessful = Orb_FALSE;
};

#endif
