#ifndef OSPREY_TESTS_WIRERECORDS_H
#define OSPREY_TESTS_WIRERECORDS_H

// Packets as they travel, built byte by byte and not with the library's own records, so that a test
// compares against the wire and not against the code under test.

#include <cstdint>
#include <string>
#include <vector>

namespace Wire
{

const uint32_t VERSION = 0x00010000;

// The value of a four-letter code: "BROW" is 0x42524F57.
uint32_t Code(const char* pszLetters);

std::string U32(uint32_t dwValue);
std::string U64(uint64_t ullValue);
// Two words, the high one first.
std::string HighLow(uint64_t ullValue);
// UTF-16LE with its terminator.
std::string Name(const std::u16string& strName);

// A whole packet; the header's size is the payload's, or the given one.
std::string Packet(const char* pszCode, const std::string& strPayload);
std::string PacketWithSize(const char* pszCode, uint32_t dwDataSize, const std::string& strPayload);

// Requests.
std::string Brow();
std::string Keep();
std::string Namc(uint32_t dwID, const std::u16string& strName);
std::string Cdir(uint32_t dwID, const std::u16string& strPath);
std::string Delt(uint32_t dwID, const std::u16string& strPath);
std::string Dfil(uint32_t dwID, uint64_t ullOffset, const std::u16string& strName);
std::string Upfi(uint32_t dwID, uint64_t ullSize, uint64_t ullOffset, const std::u16string& strName,
                 uint32_t dwAttributes = 0x80, uint64_t ullTime = 0);
std::string Upfb(uint32_t dwID, uint32_t dwLast, const std::string& strData);
std::string Caop(uint32_t dwID);
std::string Ochs(const std::vector<uint32_t>& channels);

// Replies.
// Id and result only: NAMR, CDRT, DTRT, UPBR. The version word of these is not compared: see
// WithoutVersion.
std::string Result(const char* pszCode, uint32_t dwID, uint32_t dwResult);
std::string Dfrt(uint32_t dwID, uint32_t dwResult, uint64_t ullSize, uint32_t dwTime);
std::string Dfrb(uint32_t dwID, const std::string& strData);
std::string Upfr(uint32_t dwID, uint32_t dwResult, uint64_t ullOffset);
std::string Cpkt(uint32_t dwChannel, const std::string& strData);

// Fields of a received packet; 0 past its end.
uint32_t GetU32(const std::string& strPacket, size_t nOffset);
uint64_t GetU64(const std::string& strPacket, size_t nOffset);
// The code's letters, "????" for a packet without a header.
std::string GetCode(const std::string& strPacket);
// The packet from its code on: receivers ignore the version word.
std::string WithoutVersion(const std::string& strPacket);

}  // namespace Wire

#endif
