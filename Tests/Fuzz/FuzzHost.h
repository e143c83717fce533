#ifndef OSPREY_TESTS_FUZZHOST_H
#define OSPREY_TESTS_FUZZHOST_H

#include <string>

#include "FuzzRoot.h"
#include "OspreyServerCore.h"

// A server's host whose answers follow from the names that the peer sends: the first letter of a
// name says which place of the root it means, 'a' is the first. No name is ever used as it comes.
class CFuzzHost final : public IOspreyServerCallback, public IOspreyProgress
{
public:
    int OnRequest(KS_REQUEST eRequest, void* pRecord) override;
    void OnDisconnect(const char* pszName) override;
    void OnProgress(Orb_U64 ullDone, Orb_U64 ullTotal, Orb_U64 ullContext) override;

    // Before a run.
    void Begin(COspreyServer* pServer, bool bProgress, bool bTerminate);
    // After it: what the connection heard must fit together.
    void End();

private:
    template <class Record>
    void Resolve(Record& record, const char* pszName, bool bChanges);
    template <class Record>
    void ResolveTransfer(Record& record, bool bChanges);
    void Name(const KS_NAME_CONNECTION& record);

    CFuzzRoot m_root;
    COspreyServer* m_pServer = nullptr;
    bool m_bProgress = false;
    bool m_bTerminate = false;  // end the connection from inside the call that names it
    bool m_bNamed = false;
    std::string m_strName;
    int m_nDisconnects = 0;
};

#endif
