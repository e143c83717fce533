#include "HexWriter.h"

#include "HexDump.h"
#include "JsonLine.h"

bool CHexWriter::Write(const CPacketBatch& batch, std::string& strReason)
{
    const char* pData = batch.m_strBytes.data();
    for (const CPacketBatch::CPart& part : batch.m_listParts)
    {
        std::string strText;
        if (m_eStyle == CEventLog::STYLE_JSON)
        {
            CJsonLine json("packet");
            json.Number("channel", part.m_dwChannel).Number("size", part.m_nSize);
            strText = json.Text("hex", HexDigits(pData, part.m_nSize)).ToString();
        }
        else
        {
            strText = HexDump(part.m_dwChannel, pData, part.m_nSize);
            strText.pop_back();
        }
        m_output.Line(strText);
        pData += part.m_nSize;
    }
    if (m_output.IsBroken() || m_output.HasFailed())
    {
        strReason = "the output has failed";
        return false;
    }
    return true;
}

bool CHexWriter::Close(std::string&)
{
    return true;
}
