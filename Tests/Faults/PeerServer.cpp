#include "PeerServer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>

#include "WireRecords.h"

namespace
{

const size_t BLOCK_SIZE = 65536;

// The name in a record, whose characters are all ASCII.
std::string ReadName(const std::string& strPacket, size_t nOffset)
{
    std::string strName;
    for (size_t n = nOffset; n + 1 < strPacket.size() && strPacket[n] != '\0'; n += 2)
    {
        strName += strPacket[n];
    }
    return strName;
}

}  // namespace

void CPeerServer::Serve(int nWaitMs)
{
    std::array<pollfd, 2> fds = {pollfd{m_server.GetHandle(), POLLIN, 0},
                                 pollfd{m_peer.GetHandle(), 0, 0}};
    fds[1].events =
        static_cast<short>((m_bRefused ? 0 : POLLIN) | (m_strOut.empty() ? 0 : POLLOUT));
    poll(fds.data(), fds.size(), nWaitMs);
    if ((fds[1].revents & (POLLIN | POLLERR | POLLHUP)) != 0)
    {
        Receive();
    }
    Flush();
    if (fds[0].revents != 0)
    {
        Accept();
    }
}

void CPeerServer::ServeUntil(const std::string& strFor, const std::function<bool()>& fnCondition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(WAIT_MS);
    while (!fnCondition())
    {
        Serve(1);
        if (std::chrono::steady_clock::now() > deadline)
        {
            ADD_FAILURE() << "waited in vain for " << strFor;
            return;
        }
    }
}

void CPeerServer::Accept()
{
    m_peer = m_server.Accept();
    m_strIn.clear();
    m_strOut.clear();
    m_bChosen = m_bRefused = false;
}

void CPeerServer::Receive()
{
    std::array<char, 65536> part;
    const ssize_t nReceived = recv(m_peer.GetHandle(), part.data(), part.size(), MSG_DONTWAIT);
    if (nReceived <= 0)
    {
        m_peer.Close();
        return;
    }
    m_strIn.append(part.data(), static_cast<size_t>(nReceived));
    CutPackets();
}

void CPeerServer::CutPackets()
{
    while (!m_bRefused && m_strIn.size() >= 12)
    {
        const size_t nSize = 12 + Wire::GetU32(m_strIn, 8);
        if (m_strIn.size() < nSize)
        {
            return;
        }
        Answer(m_strIn.substr(0, nSize));
        m_strIn.erase(0, nSize);
    }
}

void CPeerServer::Refuse()
{
    m_bRefused = true;
    m_peer.ShutdownSend();
}

void CPeerServer::Flush()
{
    if (m_peer.IsOpen() && !m_strOut.empty())
    {
        m_strOut.erase(0, m_peer.SendWithoutWaiting(m_strOut));
    }
}

bool CPeerServer::EndConnection()
{
    const bool bOpen = m_peer.IsOpen();
    m_peer.Close();
    return bOpen;
}

void CPeerServer::Answer(const std::string& strPacket)
{
    const std::string strCode = Wire::GetCode(strPacket);
    const uint32_t dwID = Wire::GetU32(strPacket, 12);
    m_codes.push_back(strCode);
    if (!m_bChosen && strCode != "BROW" && strCode != "OCHS" && strCode != "KEEP")
    {
        Refuse();
        return;
    }
    m_bChosen = m_bChosen || strCode != "KEEP";
    if (strCode == "NAMC")
    {
        m_strOut += Wire::Result("NAMR", dwID, 0);
    }
    else if (strCode == "CDIR")
    {
        m_uploads[ReadName(strPacket, 16)].m_bComplete = true;
        m_strOut += Wire::Result("CDRT", dwID, 0);
    }
    else if (strCode == "DELT")
    {
        m_strOut += Wire::Result("DTRT", dwID, 0);
    }
    else if (strCode == "UPFI")
    {
        AnswerUpload(strPacket);
    }
    else if (strCode == "UPFB")
    {
        AnswerBlock(strPacket);
    }
    else if (strCode == "DFIL")
    {
        AnswerDownload(strPacket);
    }
    else if (strCode == "OCHS")
    {
        AnswerSubscriber();
    }
}

void CPeerServer::AnswerUpload(const std::string& strPacket)
{
    m_strUploading = ReadName(strPacket, 44);
    m_uploads[m_strUploading] = CUpload();
    m_strOut += Wire::Upfr(Wire::GetU32(strPacket, 12), 0, 0);
}

void CPeerServer::AnswerBlock(const std::string& strPacket)
{
    CUpload& upload = m_uploads[m_strUploading];
    upload.m_strData += strPacket.substr(20);
    upload.m_bComplete = Wire::GetU32(strPacket, 16) != 0;
    m_strOut += m_bHoldsFiles ? "" : Wire::Result("UPBR", Wire::GetU32(strPacket, 12), 0);
}

void CPeerServer::AnswerDownload(const std::string& strPacket)
{
    const uint32_t dwID = Wire::GetU32(strPacket, 12);
    const std::string& strFile = m_files[ReadName(strPacket, 24)];
    m_strOut += Wire::Dfrt(dwID, 0, strFile.size(), 0);
    for (size_t n = 0; n < strFile.size(); n += BLOCK_SIZE)
    {
        m_strOut += Wire::Dfrb(dwID, strFile.substr(n, BLOCK_SIZE));
        if (m_bHoldsFiles)
        {
            return;
        }
    }
    m_strOut += Wire::Dfrb(dwID, "");
}

void CPeerServer::AnswerSubscriber()
{
    for (const std::string& strPacket : m_packets)
    {
        m_strOut += Wire::Cpkt(1, strPacket);
    }
}
