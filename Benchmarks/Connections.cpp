// Plain clients that open many connections, to a server of files or to one of HTTP. None uses the
// library, so both servers meet the same client.
//
//   Connections wxsp|http rate PORT COUNT   connects, sends one request, reads its answer and
//                                           closes, again and again; prints how often a second
//   Connections wxsp|http hold PORT COUNT   opens all, each with one request and its answer; prints
//                                           a line then; closes when its standard input ends
//   Connections channel hold PORT COUNT     subscribes to channel 1; keeps the connections alive

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "WXSPProtocol.h"

namespace
{

const int KEEP_ALIVE_MS = 5000;

[[noreturn]] void Fail(const char* pszWhat)
{
    perror(pszWhat);
    exit(1);
}

void Append(std::string& strText, std::initializer_list<uint32_t> listFields)
{
    for (const uint32_t dwField : listFields)
    {
        strText.append(reinterpret_cast<const char*>(&dwField), sizeof dwField);
    }
}

// What a connection begins with, and how its answer ends (empty: none comes).
struct CRequest
{
    std::string m_strBytes;
    std::string m_strAnswerEnd;
};

CRequest MakeRequest(const std::string& strKind)
{
    CRequest request;
    if (strKind == "http")
    {
        return {"GET /nothing HTTP/1.1\r\nHost: h\r\n\r\n", "\r\n\r\n"};
    }
    if (strKind == "channel")
    {
        Append(request.m_strBytes, {WXSP_VERSION, OCHS, 8, 1, 1});
        return request;
    }
    // A name of one letter; its answer ends with the id of the request and the result.
    Append(request.m_strBytes, {WXSP_VERSION, BROW, 0, WXSP_VERSION, NAMC, 8, 7, 'n'});
    Append(request.m_strAnswerEnd, {NAMR, 8, 7, RESULT_SUCCESS});
    return request;
}

void Send(int s, const std::string& strBytes)
{
    if (send(s, strBytes.data(), strBytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(strBytes.size()))
    {
        Fail("send");
    }
}

bool EndsWith(const std::string& strText, const std::string& strEnd)
{
    return strText.size() >= strEnd.size() &&
           strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

int Open(int nPort, const CRequest& request)
{
    const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(nPort));
    if (s < 0 || connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    {
        Fail("connect");
    }
    const int nOn = 1;
    setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn);
    Send(s, request.m_strBytes);
    std::string strAnswer;
    while (!EndsWith(strAnswer, request.m_strAnswerEnd))
    {
        char szPart[1000];
        const ssize_t nReceived = recv(s, szPart, sizeof szPart, 0);
        if (nReceived <= 0)
        {
            Fail("recv");
        }
        strAnswer.append(szPart, static_cast<size_t>(nReceived));
    }
    return s;
}

void MeasureRate(int nPort, int nCount, const CRequest& request)
{
    const auto begun = std::chrono::steady_clock::now();
    for (int i = 0; i < nCount; ++i)
    {
        close(Open(nPort, request));
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begun;
    printf("%.1f\n", nCount / seconds.count());
}

// Standard input ends: true. After the time without that: false.
bool WaitForEnd(int nMilliseconds)
{
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, nMilliseconds) == 1;
}

void Hold(int nPort, int nCount, const CRequest& request, bool bChannel)
{
    std::vector<int> listSockets;
    listSockets.reserve(static_cast<size_t>(nCount));
    for (int i = 0; i < nCount; ++i)
    {
        listSockets.push_back(Open(nPort, request));
    }
    puts("open");
    fflush(stdout);
    std::string strKeep;
    Append(strKeep, {WXSP_VERSION, KEEP, 0});
    while (!WaitForEnd(bChannel ? KEEP_ALIVE_MS : -1))
    {
        for (const int s : listSockets)
        {
            Send(s, strKeep);
        }
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    const std::string strKind = nArguments == 5 ? ppszArguments[1] : "";
    const std::string strMode = nArguments == 5 ? ppszArguments[2] : "";
    if ((strKind != "wxsp" && strKind != "http" && strKind != "channel") ||
        (strMode != "rate" && strMode != "hold"))
    {
        fputs("usage: Connections wxsp|http|channel rate|hold PORT COUNT\n", stderr);
        return 2;
    }
    const CRequest request = MakeRequest(strKind);
    const int nPort = atoi(ppszArguments[3]);
    const int nCount = atoi(ppszArguments[4]);
    if (strMode == "rate")
    {
        MeasureRate(nPort, nCount, request);
    }
    else
    {
        Hold(nPort, nCount, request, strKind == "channel");
    }
    return 0;
}
