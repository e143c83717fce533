#ifndef OSPREY_TOOL_REFUSINGHOST_H
#define OSPREY_TOOL_REFUSINGHOST_H

#include "LibOsprey.h"
#include "ServeEvents.h"

// The host of a server that has no files: every request for one is refused and told.
//
// Thread: worker of the server.
class CRefusingHost final : public IOspreyServerCallback
{
public:
    // events must outlive this object.
    explicit CRefusingHost(CServeEvents& events) : m_events(events) {}
    CRefusingHost(const CRefusingHost&) = delete;
    CRefusingHost& operator=(const CRefusingHost&) = delete;

    int OnRequest(KS_REQUEST eRequest, void* pRecord) override;
    void OnDisconnect(const char* pszName) override;

private:
    void Refuse(const char* pszRequest, const char* pszConnection, const char* pszName,
                std::string& strResolvedPath);

    CServeEvents& m_events;
};

#endif
