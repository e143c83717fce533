#ifndef OSPREY_TESTS_PEERSERVER_H
#define OSPREY_TESTS_PEERSERVER_H

// The peer of a client, played by the test on its own thread: answers every request as the
// protocol's server does, whatever becomes of its connections.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "RawSocket.h"

class CPeerServer
{
public:
    struct CUpload
    {
        std::string m_strData;
        bool m_bComplete = false;
    };

    unsigned short GetPort() const
    {
        return m_server.GetPort();
    }
    // Takes what has come, waiting for it at most so long, and answers it.
    void Serve(int nWaitMs);
    // Serves until the condition holds; fails the test at the deadline, with what it waited for.
    void ServeUntil(const std::string& strFor, const std::function<bool()>& fnCondition);
    bool IsConnected() const
    {
        return m_peer.IsOpen();
    }
    // False when there is no connection.
    bool EndConnection();

    // What downloads get, by name; what uploads brought, by name.
    std::map<std::string, std::string> m_files;
    std::map<std::string, CUpload> m_uploads;
    // Blocks go unanswered, and downloads stop after their first one.
    bool m_bHoldsFiles = false;
    // The codes of what came, in their order.
    std::vector<std::string> m_codes;
    // What each subscriber gets in channel 1.
    std::vector<std::string> m_packets;

private:
    void Accept();
    void Receive();
    void CutPackets();
    void Answer(const std::string& strPacket);
    void AnswerUpload(const std::string& strPacket);
    void AnswerBlock(const std::string& strPacket);
    void AnswerDownload(const std::string& strPacket);
    void AnswerSubscriber();
    void Refuse();
    void Flush();

    CRawServer m_server;
    CRawSocket m_peer;
    std::string m_strIn;
    std::string m_strOut;
    std::string m_strUploading;
    bool m_bChosen = false;   // the first packet said what the connection is for
    bool m_bRefused = false;  // nothing more is read
};

#endif
