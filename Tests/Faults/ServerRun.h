#ifndef OSPREY_TESTS_SERVERRUN_H
#define OSPREY_TESTS_SERVERRUN_H

// A server of the library in which calls may fail, and peers that take whatever comes of it.

#include <memory>
#include <string>

#include "FaultPlan.h"
#include "LibOsprey.h"
#include "RawSocket.h"
#include "RecordingHost.h"
#include "TempFolder.h"

// A recording host whose own calls never fail and do not count.
class COutsideHost final : public IOspreyServerCallback, public IOspreyProgress
{
public:
    int OnRequest(KS_REQUEST eRequest, void* pRecord) override;
    void OnDisconnect(const char* pszName) override;
    void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) override;

    CRecordingHost m_host;
};

// Each operation runs inside the library.
class CServerRun
{
public:
    CServerRun() = default;
    ~CServerRun();
    CServerRun(const CServerRun&) = delete;
    CServerRun& operator=(const CServerRun&) = delete;

    // CreateOspreyServer and Startup. False when either was refused.
    bool Start();
    // EndAllConnections, Shutdown, Release.
    void End();
    unsigned int Put(unsigned int dwChannel, const std::string& strData);

    unsigned short GetPort() const
    {
        return m_wPort;
    }
    const CTempFolder& GetFolder() const
    {
        return m_folder;
    }
    // Peers name paths of the folder by themselves.
    std::u16string GetWidePath(const std::string& strName) const;

    COutsideHost m_host;

private:
    bool Create();

    CTempFolder m_folder;
    IOspreyServer* m_pServer = nullptr;
    unsigned short m_wPort = 0;
};

// A peer that writes down, a word each, what it is answered: "DTRT:0". A connection that the server
// ends is "end".
class CTalk
{
public:
    explicit CTalk(const CServerRun& run) : m_run(run) {}

    void Open();
    // Connects, begins a conversation about files, and waits until it is answered.
    bool Browse();
    // Sends a request and takes the reply. Empty when the connection has ended.
    std::string Ask(const std::string& strRequest);
    void Send(const std::string& strBytes);
    // The next packet, empty when the connection has ended.
    std::string Take();
    void Note(const std::string& strWord);
    // Ends the connection so that the server notices in any case.
    void Close();

    bool HasEnded() const
    {
        return m_bEnded;
    }
    const std::string& GetTranscript() const
    {
        return m_strTranscript;
    }
    CRawSocket& GetSocket()
    {
        return m_peer;
    }

    // A whole upload or download of a file. True when the protocol's replies say that it is
    // complete.
    bool Upload(unsigned int dwID, const std::string& strName, const std::string& strData);
    bool Download(unsigned int dwID, const std::string& strName, std::string& strData);

private:
    bool TakeBytes(std::string& strBytes, size_t nSize);
    bool IsStopped(unsigned int dwProbe, const std::string& strPacket) const;
    std::string Probe(unsigned int dwID) const;

    const CServerRun& m_run;
    CRawSocket m_peer;
    bool m_bEnded = false;
    std::string m_strTranscript;
};

#endif
