#ifndef OSPREY_TESTS_SERVERSCENARIOS_H
#define OSPREY_TESTS_SERVERSCENARIOS_H

#include <memory>
#include <string>
#include <vector>

#include "FaultPlan.h"
#include "LibraryLoops.h"
#include "ServerRun.h"

// What a peer and the host do while a call of the server may fail.
class CServerScenario
{
public:
    virtual ~CServerScenario() = default;

    // Before anything may fail. The server runs after the base's.
    virtual void Prepare();
    // While the plan holds.
    virtual void Play() = 0;
    // Afterwards: what must hold whatever failed.
    virtual void Check() {}
    // What the peer was told, a word each.
    const std::string& GetTranscript() const
    {
        return m_talk.GetTranscript();
    }
    // Fails the test unless a new connection is served with everything, on a server that is started
    // again if it is not running; ends everything.
    void ExpectServes();

protected:
    CServerRun m_run;
    CTalk m_talk{m_run};
    bool m_bStarted = false;
};

struct CServerScenarioType
{
    const char* pszName;
    std::unique_ptr<CServerScenario> (*pfnMake)();
};
const std::vector<CServerScenarioType>& GetServerScenarios();

#endif
