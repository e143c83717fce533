// Docs/Protocol.md shows conversations as bytes: they are those that peers have.

#include <cstdio>
#include <sstream>

#include "Conversations.h"
#include "WireRecords.h"

namespace
{

using ProtocolDocument = CConversations;

// "    0010  41 00 00 00                                       A..."
std::string DumpLine(const std::string& strBytes, size_t nAt)
{
    char szPart[32];
    snprintf(szPart, sizeof szPart, "    %04zx ", nAt);
    std::string strHex = szPart;
    std::string strText;
    for (size_t n = nAt; n < strBytes.size() && n < nAt + 16; ++n)
    {
        const auto cByte = static_cast<unsigned char>(strBytes[n]);
        snprintf(szPart, sizeof szPart, "%s%02x", n == nAt + 8 ? "  " : " ", cByte);
        strHex += szPart;
        strText += cByte >= 0x20 && cByte < 0x7F ? strBytes[n] : '.';
    }
    strHex.resize(60, ' ');
    return strHex + strText + "\n";
}

// A packet as the document shows it, from its heading on.
std::string Shown(const CRelayed& relayed)
{
    std::string strResult = relayed.m_bFromClient ? "client to server" : "server to client";
    const std::string strCode = Wire::GetCode(relayed.m_strBytes);
    strResult += strCode == "KEEP" ? ", 5 seconds after the `OCHS`: `" : ": `";
    strResult += strCode + "`, " + std::to_string(relayed.m_strBytes.size()) + " bytes:\n\n";
    for (size_t n = 0; n < relayed.m_strBytes.size(); n += 16)
    {
        strResult += DumpLine(relayed.m_strBytes, n);
    }
    return strResult;
}

std::string Shown(const CConversation& conversation)
{
    std::string strResult;
    for (const CRelayed& relayed : conversation)
    {
        strResult += (strResult.empty() ? "" : "\n") + Shown(relayed);
    }
    return strResult;
}

TEST_F(ProtocolDocument, ShowsTheBytesOfARealUpload)
{
    const std::string strShown = Shown(DocumentedUpload());
    EXPECT_NE(ReadFile(OSPREY_PROTOCOL).find(strShown), std::string::npos)
        << "Docs/Protocol.md lacks:\n"
        << strShown;
}

TEST_F(ProtocolDocument, ShowsTheBytesOfARealChannel)
{
    const std::string strShown = Shown(DocumentedChannel());
    EXPECT_NE(ReadFile(OSPREY_PROTOCOL).find(strShown), std::string::npos)
        << "Docs/Protocol.md lacks:\n"
        << strShown;
}

}  // namespace
