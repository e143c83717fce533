#ifndef OSPREY_TESTS_FILECLIENTFUZZ_H
#define OSPREY_TESTS_FILECLIENTFUZZ_H

// What the targets of both file clients share.
//
// Input: inside which call of the client its host releases it, 0 for none; how many files the host
// has, and a byte for each of them: its place, and which of some numbers comes with it; then what
// CHostileServer reads.

#include <netinet/in.h>
#include <unistd.h>

#include <climits>
#include <utility>
#include <vector>

#include "FuzzEngine.h"
#include "FuzzRoot.h"
#include "HostileServer.h"
#include "LibOsprey.h"

// Hands out the files of the input, and sees to it that the calls come in their order.
template <class CCallback>
class CFileFuzzHost final : public CCallback
{
public:
    CFileFuzzHost(CFuzzRoot& root, CFuzzInput& input)
        : m_root(root), m_nReleaseIn(input.TakeByte()), m_nFiles(input.TakeBelow(4))
    {
        for (size_t i = 0; i < m_nFiles; ++i)
        {
            m_files.push_back(input.TakeByte());
        }
    }

    void OnConnected() override
    {
        Require(!m_bConnected && !m_bOver, "a run connects once");
        m_bConnected = true;
        CountCall();
    }
    void OnStartFailed(int nReason) override
    {
        Require(nReason == 0 && !m_bConnected && !m_bOver, "only a start fails to start");
        m_bOver = true;
        CountCall();
    }
    void OnDisconnected(int /*nError*/) override
    {
        Require(!m_bDisconnected && !m_bOver, "a connection is lost once");
        m_bDisconnected = true;
        m_bOver = m_bConnected;
        m_bInFile = false;
        CountCall();
    }
    bool GetNextFile(std::string& strLocalPath, std::string& strRemote,
                     long long& llNumber) override;
    void OnProgress(unsigned int dwPercent) override
    {
        Require(m_bInFile, "progress is that of a file");
        Require(dwPercent <= 100, "no file comes to more than all of it");
        CountCall();
    }
    void OnFileCompleted() override
    {
        EndFile(true);
    }
    void OnFileFailed(int nCode) override
    {
        Require(nCode != 0, "a failure has a code");
        EndFile(false);
    }

    // To be set before the start: releases the client.
    std::function<void()> m_fnRelease;
    // Whether the local file is what the client writes: a download.
    bool m_bWritesFile = false;

private:
    void CountCall()
    {
        Require(!m_bReleased, "nobody is called after the release");
        if (++m_nCalls == m_nReleaseIn)
        {
            m_bReleased = true;
            m_fnRelease();
        }
    }
    void EndFile(bool bComplete);

    CFuzzRoot& m_root;
    const int m_nReleaseIn;
    const size_t m_nFiles;
    std::vector<unsigned int> m_files;
    size_t m_nNext = 0;
    int m_nCalls = 0;
    bool m_bConnected = false;
    bool m_bDisconnected = false;
    bool m_bOver = false;
    bool m_bInFile = false;
    bool m_bReleased = false;
    std::string m_strLocalPath;
    unsigned int m_dwPlace = 0;
};

template <class CCallback>
bool CFileFuzzHost<CCallback>::GetNextFile(std::string& strLocalPath, std::string& strRemote,
                                           long long& llNumber)
{
    static const long long NUMBERS[] = {0, 5, -1, 1000, LLONG_MAX, LLONG_MIN};
    Require(m_bConnected && !m_bOver && !m_bInFile, "files are asked for one after the other");
    Require(strLocalPath.empty() && strRemote.empty() && llNumber == 0, "the answer is empty");
    const bool bMore = m_nNext < m_nFiles;
    if (bMore)
    {
        m_dwPlace = m_files[m_nNext] % PLACE_COUNT;
        m_strLocalPath = m_root.GetPathToChange(m_dwPlace);
        strLocalPath = m_strLocalPath;
        strRemote = m_nNext == 0 ? "root" : "other/root";
        llNumber = NUMBERS[m_files[m_nNext] / PLACE_COUNT % std::size(NUMBERS)];
        ++m_nNext;
    }
    m_bInFile = bMore;
    CountCall();
    m_bInFile = m_bInFile && !m_bReleased;
    return bMore;
}

template <class CCallback>
void CFileFuzzHost<CCallback>::EndFile(bool bComplete)
{
    Require(m_bInFile && !m_bOver, "a file that was handed out ends, and once");
    m_bInFile = false;
    if (m_bWritesFile && m_dwPlace == PLACE_NEW)
    {
        Require((access(m_strLocalPath.c_str(), F_OK) == 0) == bComplete,
                "a file is there when it is complete, and only then");
    }
    CountCall();
}

// One run of a client that pfnCreate makes. pfnStart and pfnStop are its own.
template <class CClient, class CCallback>
void RunFileClient(CFuzzInput& input, CClient* (*pfnCreate)(CCallback*),
                   Orb_BOOL (CClient::*pfnStart)(unsigned short*, unsigned int, unsigned int,
                                                 unsigned short, unsigned int),
                   Orb_BOOL (CClient::*pfnStop)(), bool bWritesFile)
{
    static CFuzzRoot s_root;
    static unsigned short s_name[] = {'d', 'e', 'v', 'i', 'c', 'e', 0};
    DropOutput();
    const int nDescriptors = CountOpenDescriptors();
    {
        CFileFuzzHost<CCallback> host(s_root, input);
        CHostileServer server(input);
        CClient* pClient = pfnCreate(&host);
        host.m_fnRelease = [&] { std::exchange(pClient, nullptr)->Release(); };
        host.m_bWritesFile = bWritesFile;
        if ((pClient->*pfnStart)(s_name, 0, INADDR_LOOPBACK, 1, 1000) != 0)
        {
            server.WaitForEnd([&] { (pClient->*pfnStop)(); });
        }
        if (pClient != nullptr)
        {
            pClient->Release();
        }
    }
    Require(CountOpenDescriptors() == nDescriptors, "no descriptor is left open");
    s_root.Restore();
}

#endif
