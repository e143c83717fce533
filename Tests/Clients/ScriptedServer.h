#ifndef OSPREY_TESTS_SCRIPTEDSERVER_H
#define OSPREY_TESTS_SCRIPTEDSERVER_H

#include "RawSocket.h"
#include "WireRecords.h"

// The peer of a client, played by the test: takes its connection and its first requests.
class CScriptedServer
{
public:
    unsigned short GetPort() const
    {
        return m_server.GetPort();
    }
    // Takes the connection, its BROW and its NAMC; fails the test when they are not those bytes.
    void AcceptClient(uint32_t dwNamcID = 1, const std::u16string& strName = u"device");
    // The same, and accepts the name.
    void WelcomeClient(uint32_t dwNamcID = 1);
    // Takes the connection of a channel client and its OCHS.
    void AcceptSubscriber(const std::vector<uint32_t>& channels = {1});
    // Fails the test when the client's next packet is not this one.
    void Expect(const std::string& strPacket);
    void Send(const std::string& strBytes);
    // Takes an upload request for the path; answers with the offset.
    void TakeUpload(uint32_t dwID, uint64_t ullSize, const std::u16string& strPath,
                    uint64_t ullOffset = 0);
    // Takes the next packet, and with it the mtime of an upload request that a test cannot know.
    std::string Take();

    CRawServer m_server;
    CRawSocket m_peer;
};

#endif
