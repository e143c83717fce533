// The protocol's pattern with nothing around it: the same sizes on the wire, the same socket and
// file calls, blocking, one connection, no reactor, no timers, no checks. What the library cannot
// beat.
//
//   BarePattern serve DIR            prints its port; serves until its standard input ends
//   BarePattern get PORT DIR         fetches the files that standard input names into DIR
//   BarePattern put PORT DIR         sends the files of DIR that standard input names

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "WXSPProtocol.h"

namespace
{

[[noreturn]] void Fail(const char* pszWhat)
{
    perror(pszWhat);
    exit(1);
}

void SetNoDelay(int s)
{
    const int nOn = 1;
    setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn);
}

void SendAll(int s, const void* pData, size_t nSize)
{
    const char* pNext = static_cast<const char*>(pData);
    while (nSize > 0)
    {
        const ssize_t nSent = send(s, pNext, nSize, MSG_NOSIGNAL);
        if (nSent <= 0)
        {
            Fail("send");
        }
        pNext += nSent;
        nSize -= static_cast<size_t>(nSent);
    }
}

template <class Record>
void SendRecord(int s, uint32_t dwMagic, const Record& record, const std::string& strName = "")
{
    std::string strPacket(WXSP_HEADER_SIZE + sizeof record, '\0');
    const _WXS_PACKET header = {WXSP_VERSION, dwMagic,
                                static_cast<uint32_t>(sizeof record + strName.size())};
    memcpy(&strPacket[0], &header, sizeof header);
    memcpy(&strPacket[WXSP_HEADER_SIZE], &record, sizeof record);
    strPacket += strName;
    SendAll(s, strPacket.data(), strPacket.size());
}

// Cuts packets out of what recv gives, nReceive bytes at most at a time.
class CReader
{
public:
    CReader(int s, size_t nReceive) : m_s(s), m_nReceive(nReceive) {}

    // The next packet, valid until the next call; null when the peer has closed.
    const _WXS_PACKET* Next()
    {
        m_nStart += m_nPacket;
        m_nPacket = 0;
        while (!HasPacket())
        {
            if (!Receive())
            {
                return nullptr;
            }
        }
        m_nPacket = PacketSize();
        return Header();
    }

private:
    const _WXS_PACKET* Header() const
    {
        return reinterpret_cast<const _WXS_PACKET*>(m_buffer + m_nStart);
    }
    size_t PacketSize() const
    {
        return WXSP_HEADER_SIZE + Header()->dwDataSize;
    }
    bool HasPacket() const
    {
        return m_nEnd - m_nStart >= WXSP_HEADER_SIZE && m_nEnd - m_nStart >= PacketSize();
    }
    bool Receive()
    {
        if (m_nStart == m_nEnd)
        {
            m_nStart = m_nEnd = 0;
        }
        else if (m_nStart > sizeof m_buffer / 2)
        {
            memmove(m_buffer, m_buffer + m_nStart, m_nEnd - m_nStart);
            m_nEnd -= m_nStart;
            m_nStart = 0;
        }
        const size_t nFree = sizeof m_buffer - m_nEnd;
        const ssize_t nReceived =
            recv(m_s, m_buffer + m_nEnd, nFree < m_nReceive ? nFree : m_nReceive, 0);
        m_nEnd += nReceived > 0 ? static_cast<size_t>(nReceived) : 0;
        return nReceived > 0;
    }

    const int m_s;
    const size_t m_nReceive;
    size_t m_nStart = 0;
    size_t m_nEnd = 0;
    size_t m_nPacket = 0;
    char m_buffer[2 * WXSP_RING_SIZE];
};

template <class Record>
const Record& GetRecord(const _WXS_PACKET* pPacket)
{
    return *reinterpret_cast<const Record*>(pPacket + 1);
}

// Names are plain ASCII here.
std::string GetName(const _WXS_PACKET* pPacket, size_t nRecord)
{
    const char* pName = reinterpret_cast<const char*>(pPacket + 1) + nRecord;
    std::string strName;
    for (size_t i = 0; nRecord + i < pPacket->dwDataSize && pName[i] != '\0'; i += 2)
    {
        strName += pName[i];
    }
    return strName;
}

std::string WideName(const std::string& strName)
{
    std::string strWide;
    for (const char c : strName + '\0')
    {
        strWide += {c, '\0'};
    }
    return strWide;
}

FILE* Open(const std::string& strPath, const char* pszMode)
{
    FILE* pFile = fopen(strPath.c_str(), pszMode);
    if (pFile == nullptr)
    {
        Fail(strPath.c_str());
    }
    setvbuf(pFile, nullptr, _IONBF, 0);
    return pFile;
}

void Write(FILE* pFile, const void* pData, size_t nSize)
{
    if (fwrite(pData, 1, nSize, pFile) < nSize)
    {
        Fail("fwrite");
    }
}

void SendFile(int s, const std::string& strPath)
{
    struct stat info = {};
    if (stat(strPath.c_str(), &info) != 0)
    {
        Fail(strPath.c_str());
    }
    FILE* pFile = Open(strPath, "rb");
    _WXS_DOWN_FILE_RET ret = {};
    ret.dwSizeHigh = static_cast<uint32_t>(static_cast<uint64_t>(info.st_size) >> 32);
    ret.dwSizeLow = static_cast<uint32_t>(info.st_size);
    SendRecord(s, DFRT, ret);
    static char szBlock[WXSP_HEADER_SIZE + sizeof(_WXS_DOWN_FILE_BLOCK) + WXSP_DOWNLOAD_BLOCK_SIZE];
    const size_t nHead = sizeof szBlock - WXSP_DOWNLOAD_BLOCK_SIZE;
    size_t nRead = 0;
    do
    {
        nRead = fread(szBlock + nHead, 1, WXSP_DOWNLOAD_BLOCK_SIZE, pFile);
        const _WXS_PACKET header = {WXSP_VERSION, DFRB,
                                    static_cast<uint32_t>(sizeof(_WXS_DOWN_FILE_BLOCK) + nRead)};
        memcpy(szBlock, &header, sizeof header);
        SendAll(s, szBlock, nHead + nRead);
    } while (nRead > 0);
    fclose(pFile);
}

void ServeConnection(int s, const std::string& strDir)
{
    static CReader reader(s, WXSP_RING_SIZE);
    FILE* pFile = nullptr;
    while (const _WXS_PACKET* pPacket = reader.Next())
    {
        if (pPacket->dwMagic == DFIL)
        {
            SendFile(s, strDir + "/" + GetName(pPacket, sizeof(_WXS_DOWN_FILE)));
        }
        else if (pPacket->dwMagic == UPFI)
        {
            pFile = Open(strDir + "/" + GetName(pPacket, sizeof(_WXS_UPLOAD_FILE)), "wb");
            SendRecord(s, UPFR, _WXS_UPLOAD_FILE_RET{});
        }
        else if (pPacket->dwMagic == UPFB)
        {
            const size_t nSize = pPacket->dwDataSize - sizeof(_WXS_UPLOAD_FILE_BLOCK);
            const auto& block = GetRecord<_WXS_UPLOAD_FILE_BLOCK>(pPacket);
            Write(pFile, &block + 1, nSize);
            if (block.dwLastBlock != 0)
            {
                fclose(pFile);
            }
            SendRecord(s, UPBR, _WXS_RESULT{});
        }
    }
}

void Serve(const std::string& strDir)
{
    const int hListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t nSize = sizeof address;
    if (bind(hListener, reinterpret_cast<sockaddr*>(&address), nSize) != 0 ||
        listen(hListener, 10) != 0 ||
        getsockname(hListener, reinterpret_cast<sockaddr*>(&address), &nSize) != 0)
    {
        Fail("listen");
    }
    printf("%d\n", ntohs(address.sin_port));
    fflush(stdout);
    const int s = accept(hListener, nullptr, nullptr);
    SetNoDelay(s);
    ServeConnection(s, strDir);
    close(s);
    while (getchar() != EOF)
    {
    }
}

int Connect(const char* pszPort)
{
    const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(atoi(pszPort)));
    if (connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    {
        Fail("connect");
    }
    SetNoDelay(s);
    return s;
}

void Get(int s, CReader& reader, const std::string& strDir, const std::string& strName)
{
    SendRecord(s, DFIL, _WXS_DOWN_FILE{}, WideName(strName));
    const std::string strPath = strDir + "/" + strName;
    FILE* pFile = nullptr;
    uint64_t ullLeft = 0;
    while (const _WXS_PACKET* pPacket = reader.Next())
    {
        if (pPacket->dwMagic == DFRT)
        {
            const auto& ret = GetRecord<_WXS_DOWN_FILE_RET>(pPacket);
            ullLeft = static_cast<uint64_t>(ret.dwSizeHigh) << 32 | ret.dwSizeLow;
            pFile = Open(strPath, "wb");
        }
        else if (pPacket->dwMagic == DFRB && pFile != nullptr)  // else the end of the file before
        {
            const size_t nSize = pPacket->dwDataSize - sizeof(_WXS_DOWN_FILE_BLOCK);
            Write(pFile, &GetRecord<_WXS_DOWN_FILE_BLOCK>(pPacket) + 1, nSize);
            ullLeft -= nSize;
            if (ullLeft == 0)
            {
                fclose(pFile);
                return;
            }
        }
    }
    Fail("recv");
}

void Put(int s, CReader& reader, const std::string& strDir, const std::string& strName)
{
    struct stat info = {};
    const std::string strPath = strDir + "/" + strName;
    if (stat(strPath.c_str(), &info) != 0)
    {
        Fail(strPath.c_str());
    }
    FILE* pFile = Open(strPath, "rb");
    _WXS_UPLOAD_FILE request = {};
    request.dwSizeHigh = static_cast<uint32_t>(static_cast<uint64_t>(info.st_size) >> 32);
    request.dwSizeLow = static_cast<uint32_t>(info.st_size);
    SendRecord(s, UPFI, request, WideName(strName));
    static char szBlock[WXSP_HEADER_SIZE + sizeof(_WXS_UPLOAD_FILE_BLOCK) + WXSP_UPLOAD_BLOCK_SIZE];
    const size_t nHead = sizeof szBlock - WXSP_UPLOAD_BLOCK_SIZE;
    bool bLast = false;
    while (!bLast && reader.Next() != nullptr)
    {
        const size_t nRead = fread(szBlock + nHead, 1, WXSP_UPLOAD_BLOCK_SIZE, pFile);
        bLast = nRead == 0;
        const _WXS_PACKET header = {WXSP_VERSION, UPFB,
                                    static_cast<uint32_t>(sizeof(_WXS_UPLOAD_FILE_BLOCK) + nRead)};
        const _WXS_UPLOAD_FILE_BLOCK block = {0, bLast ? 1U : 0U};
        memcpy(szBlock, &header, sizeof header);
        memcpy(szBlock + sizeof header, &block, sizeof block);
        SendAll(s, szBlock, nHead + nRead);
    }
    if (!bLast || reader.Next() == nullptr)
    {
        Fail("recv");
    }
    fclose(pFile);
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    const std::string strMode = nArguments > 1 ? ppszArguments[1] : "";
    if (strMode == "serve" && nArguments == 3)
    {
        Serve(ppszArguments[2]);
        return 0;
    }
    if ((strMode != "get" && strMode != "put") || nArguments != 4)
    {
        fputs("usage: BarePattern serve DIR | get PORT DIR | put PORT DIR\n", stderr);
        return 2;
    }
    const int s = Connect(ppszArguments[2]);
    static CReader reader(s, WXSP_CLIENT_RECEIVE_SIZE);
    for (std::string strName; std::getline(std::cin, strName);)
    {
        (strMode == "get" ? Get : Put)(s, reader, ppszArguments[3], strName);
    }
    close(s);
    return 0;
}
