#ifndef OSPREY_WXSPPROTOCOL_H
#define OSPREY_WXSPPROTOCOL_H

// Internal header. The WXSP protocol as bytes: header, codes, records. Docs/Protocol.md tells the
// conversation.
//
// All integers are little-endian and all records packed, so that they may be read and written in
// place at any address. Names follow their record as UTF-16LE units up to and including a zero
// unit.

#include <cstdint>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are used in place: a big-endian host must convert every field");

// "BROW" is 0x42524F57: the big-endian reading of the letters, sent little-endian as every field.
enum WXSP_CODE : uint32_t
{
    BROW = 0x42524F57,  // file clients: opens a file connection, and keeps it alive; no payload
    OCHS = 0x4F434853,  // channel client: opens a channel connection
    KEEP = 0x4B454550,  // channel client: keeps the connection alive; no payload
    CPKT = 0x43504B54,  // server: one channel packet
    NAMC = 0x4E414D43,  // file clients: name the connection
    NAMR = 0x4E414D52,  // server: reply
    CDIR = 0x43444952,  // submit client: create a directory
    CDRT = 0x43445254,  // server: reply
    DELT = 0x44454C54,  // submit client: delete a file
    DTRT = 0x44545254,  // server: reply
    DFIL = 0x4446494C,  // download client: send me a file
    DFRT = 0x44465254,  // server: reply
    DFRB = 0x44465242,  // server: one block of the file
    UPFI = 0x55504649,  // submit client: take a file
    UPFR = 0x55504652,  // server: reply
    UPFB = 0x55504642,  // submit client: one block of the file
    UPBR = 0x55504252,  // server: reply to the block
    CAOP = 0x43414F50,  // file clients: cancel a request; no reply
};

// Results in replies. 0 is success.
enum WXSP_RESULT : uint32_t
{
    RESULT_SUCCESS = 0,
    RESULT_NO_MEMORY = 4,      // NAMR
    RESULT_NOT_FOUND = 5,      // DFRT: the file cannot be examined
    RESULT_OPEN_FAILED = 6,    // DFRT, UPFR: cannot be opened or positioned
    RESULT_PAST_END = 7,       // DFRT: the offset lies beyond the end
    RESULT_DIR_FAILED = 8,     // CDRT: cannot be created or made writable
    RESULT_WRITE_FAILED = 11,  // UPBR: fewer bytes written than the block carried
};

const uint32_t WXSP_VERSION = 0x00010000;    // never examined by a receiver
const uint32_t WXSP_ATTRIBUTES = 0x80;       // of every file
const uint64_t WXSP_CONTINUE = ~0ULL;        // start offset that asks to continue an existing file
const int WXSP_RING_SIZE = 0x20000;          // receive ring: the largest packet a server takes
const int WXSP_CLIENT_RECEIVE_SIZE = 1024;   // one receive of a client
const int WXSP_UPLOAD_BLOCK_SIZE = 32768;    // file data in an UPFB, at most
const int WXSP_DOWNLOAD_BLOCK_SIZE = 65536;  // file data in a DFRB, at most
const int WXSP_MAX_CHANNELS = 10;            // numbers in an OCHS, at most
const int WXSP_CHANNEL_DATA_SIZE = 1500;     // data in a CPKT, at most

struct __attribute__((packed)) _WXS_PACKET
{
    uint32_t dwVersion;
    uint32_t dwMagic;
    uint32_t dwDataSize;  // bytes that follow
};
typedef _WXS_PACKET* PWXS_PACKET;

const int WXSP_HEADER_SIZE = sizeof(_WXS_PACKET);

// Payloads of requests. The first field of every payload is the request id.

struct __attribute__((packed)) _WXS_NAME_CONNECTION
{
    uint32_t dwRequestID;
};

struct __attribute__((packed)) _WXS_CREATE_DIR
{
    uint32_t dwRequestID;
};

struct __attribute__((packed)) _WXS_DELETE_TREE
{
    uint32_t dwRequestID;
};

struct __attribute__((packed)) _WXS_DOWN_FILE
{
    uint32_t dwRequestID;
    uint64_t ullOffset;
};

struct __attribute__((packed)) _WXS_UPLOAD_FILE
{
    uint32_t dwRequestID;
    uint32_t dwSizeHigh;
    uint32_t dwSizeLow;
    uint32_t dwAttributes;
    uint64_t ullModificationTime;
    uint64_t ullOffset;
};

struct __attribute__((packed)) _WXS_UPLOAD_FILE_BLOCK
{
    uint32_t dwRequestID;
    uint32_t dwLastBlock;
};

struct __attribute__((packed)) _WXS_CANCEL
{
    uint32_t dwRequestID;
};

// Payload of an OCHS; the channel numbers follow, 4 bytes each.
struct __attribute__((packed)) _WXS_OPEN_CHANNELS
{
    uint32_t dwNumChannels;
};

// Payload of a CPKT; the data follows.
struct __attribute__((packed)) _WXS_CHANNEL_PACKET
{
    uint32_t dwChannel;
};

// Payloads of replies.

struct __attribute__((packed)) _WXS_RESULT  // NAMR, CDRT, DTRT, UPBR
{
    uint32_t dwRequestID;
    uint32_t dwResult;
};

struct __attribute__((packed)) _WXS_DOWN_FILE_RET
{
    uint32_t dwRequestID;
    uint32_t dwResult;
    uint32_t dwSizeHigh;
    uint32_t dwSizeLow;
    uint32_t dwAttributes;
    uint32_t dwModificationTime;
    uint32_t dwReserved;
};

struct __attribute__((packed)) _WXS_DOWN_FILE_BLOCK
{
    uint32_t dwRequestID;
};

struct __attribute__((packed)) _WXS_UPLOAD_FILE_RET
{
    uint32_t dwRequestID;
    uint32_t dwResult;
    uint64_t ullOffset;
};

static_assert(sizeof(_WXS_PACKET) == 12, "wire layout");
static_assert(sizeof(_WXS_DOWN_FILE) == 24 - 12, "wire layout");
static_assert(sizeof(_WXS_UPLOAD_FILE) == 44 - 12, "wire layout");
static_assert(sizeof(_WXS_UPLOAD_FILE_BLOCK) == 20 - 12, "wire layout");
static_assert(sizeof(_WXS_OPEN_CHANNELS) == 16 - 12, "wire layout");
static_assert(sizeof(_WXS_CHANNEL_PACKET) == 16 - 12, "wire layout");
static_assert(sizeof(_WXS_RESULT) == 20 - 12, "wire layout");
static_assert(sizeof(_WXS_DOWN_FILE_RET) == 40 - 12, "wire layout");
static_assert(sizeof(_WXS_DOWN_FILE_BLOCK) == 16 - 12, "wire layout");
static_assert(sizeof(_WXS_UPLOAD_FILE_RET) == 28 - 12, "wire layout");

#endif
