#include "WXSPProtocol.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Hex.h"
#include "WireRecords.h"

namespace
{

template <class CRecord>
std::string Bytes(const CRecord& record)
{
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

// The payload of a packet without its name of no characters, which ends it.
std::string Fixed(const std::string& strPacket)
{
    return strPacket.substr(12, strPacket.size() - 14);
}

TEST(WXSPProtocol, CodesAreTheirLettersInReverseOnTheWire)
{
    const struct
    {
        uint32_t m_dwCode;
        const char* m_pszLetters;
    } codes[] = {{BROW, "BROW"}, {OCHS, "OCHS"}, {KEEP, "KEEP"}, {CPKT, "CPKT"}, {NAMC, "NAMC"},
                 {NAMR, "NAMR"}, {CDIR, "CDIR"}, {CDRT, "CDRT"}, {DELT, "DELT"}, {DTRT, "DTRT"},
                 {DFIL, "DFIL"}, {DFRT, "DFRT"}, {DFRB, "DFRB"}, {UPFI, "UPFI"}, {UPFR, "UPFR"},
                 {UPFB, "UPFB"}, {UPBR, "UPBR"}, {CAOP, "CAOP"}};
    for (const auto& code : codes)
    {
        EXPECT_EQ(code.m_dwCode, Wire::Code(code.m_pszLetters)) << code.m_pszLetters;
    }
    EXPECT_EQ(Wire::Keep().substr(4, 4), "PEEK");
    EXPECT_EQ(Wire::Keep().size(), 12U);
}

TEST(WXSPProtocol, HeaderIsVersionCodeSize)
{
    const _WXS_PACKET packet = {WXSP_VERSION, BROW, 0};
    EXPECT_EQ(Hex(Bytes(packet)), Hex(Wire::Brow()));
}

TEST(WXSPProtocol, RequestRecordsLieWhereTheWireHasThem)
{
    EXPECT_EQ(Hex(Bytes(_WXS_NAME_CONNECTION{7})), Hex(Fixed(Wire::Namc(7, u""))));
    EXPECT_EQ(Hex(Bytes(_WXS_CREATE_DIR{7})), Hex(Fixed(Wire::Cdir(7, u""))));
    EXPECT_EQ(Hex(Bytes(_WXS_DELETE_TREE{7})), Hex(Fixed(Wire::Delt(7, u""))));
    EXPECT_EQ(Hex(Bytes(_WXS_DOWN_FILE{7, 0x1122334455667788})),
              Hex(Fixed(Wire::Dfil(7, 0x1122334455667788, u""))));
    const _WXS_UPLOAD_FILE upload = {7,    0x01020304,         0x05060708,
                                     0x80, 0x1112131415161718, 0x2122232425262728};
    EXPECT_EQ(Hex(Bytes(upload)), Hex(Fixed(Wire::Upfi(7, 0x0102030405060708, 0x2122232425262728,
                                                       u"", 0x80, 0x1112131415161718))));
    EXPECT_EQ(Hex(Bytes(_WXS_UPLOAD_FILE_BLOCK{7, 1})), Hex(Wire::Upfb(7, 1, "").substr(12)));
    EXPECT_EQ(Hex(Bytes(_WXS_CANCEL{7})), Hex(Wire::Caop(7).substr(12)));
}

TEST(WXSPProtocol, ReplyRecordsLieWhereTheWireHasThem)
{
    EXPECT_EQ(Hex(Bytes(_WXS_RESULT{7, 8})), Hex(Wire::Result("CDRT", 7, 8).substr(12)));
    const _WXS_DOWN_FILE_RET ret = {7, 0, 1, 0, 0x80, 0x5F000000, 0};
    EXPECT_EQ(Hex(Bytes(ret)), Hex(Wire::Dfrt(7, 0, 0x100000000, 0x5F000000).substr(12)));
    EXPECT_EQ(Hex(Bytes(_WXS_DOWN_FILE_BLOCK{7})), Hex(Wire::Dfrb(7, "").substr(12)));
    EXPECT_EQ(Hex(Bytes(_WXS_UPLOAD_FILE_RET{7, 6, 0x1122334455667788})),
              Hex(Wire::Upfr(7, 6, 0x1122334455667788).substr(12)));
}

TEST(WXSPProtocol, NameOfNoCharactersGivesTheShortestRequests)
{
    EXPECT_EQ(Wire::GetU32(Wire::Namc(1, u""), 8), 6U);
    EXPECT_EQ(Wire::GetU32(Wire::Cdir(1, u""), 8), 6U);
    EXPECT_EQ(Wire::GetU32(Wire::Delt(1, u""), 8), 6U);
    EXPECT_EQ(Wire::GetU32(Wire::Dfil(1, 0, u""), 8), 14U);
    EXPECT_EQ(Wire::GetU32(Wire::Upfi(1, 0, 0, u""), 8), 34U);
    EXPECT_EQ(sizeof(_WXS_NAME_CONNECTION) + 2, 6U);
    EXPECT_EQ(sizeof(_WXS_DOWN_FILE) + 2, 14U);
    EXPECT_EQ(sizeof(_WXS_UPLOAD_FILE) + 2, 34U);
}

}  // namespace
