#ifndef OSPREY_TESTS_REPLYCHECK_H
#define OSPREY_TESTS_REPLYCHECK_H

#include <string_view>

// The byte that every packet which a host puts on the channel consists of.
char GetChannelByte(unsigned int dwChannel);

// Fails unless the bytes are what a server sends: whole replies of their proper sizes, one after
// the other, the last of which may be cut off.
void RequireReplies(std::string_view bytes);

// The same for what a client sends. A host names nothing that does not end.
void RequireRequests(std::string_view bytes);

#endif
