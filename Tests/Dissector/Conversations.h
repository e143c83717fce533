#ifndef OSPREY_TESTS_CONVERSATIONS_H
#define OSPREY_TESTS_CONVERSATIONS_H

#include "Relay.h"
#include "TransferTest.h"

// What real clients and a real server said to each other, through a relay. Nothing in it changes
// from run to run: the clock stands still meanwhile, so that no keep-alive comes in between.
class CConversations : public CTransferTest
{
protected:
    // A directory, a file of three blocks, an empty one, and one whose name is not ASCII.
    CConversation Upload();
    // A file of three blocks is stopped at its second: cancelled, and deleted at the server.
    CConversation StoppedUpload();
    // A file of two blocks, and one that is not there.
    CConversation Download();
    // Two channels, three packets, and a keep-alive.
    CConversation Channels();

    // The conversations that Docs/Protocol.md shows.
    CConversation DocumentedUpload();
    CConversation DocumentedChannel();

private:
    // A conversation with a server that lives by that clock.
    template <class CClock, class CTalk>
    CConversation During(const CTalk& fnTalk);
    CFileEntry LocalEntry(const std::string& strName, const std::string& strRemote = "root") const;
    void PutPacket(CRelay& relay, unsigned int dwChannel, std::string strData, int nTimes);
    CConversation Subscribed(const std::vector<unsigned int>& channels,
                             const std::vector<std::pair<unsigned int, std::string>>& listPackets);
};

#endif
