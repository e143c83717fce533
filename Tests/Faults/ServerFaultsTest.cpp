// The server, with each of its calls failing in turn. Whatever fails, the peer is refused or its
// connection ends, nothing is left behind, and the next connection is served.

#include <gtest/gtest.h>

#include "FaultSweep.h"
#include "ServerScenarios.h"

namespace
{

std::string RunScenario(const CServerScenarioType& type, const CFault* pFault)
{
    const CNothingLeft nothing;
    std::string strOutcome;
    {
        const std::unique_ptr<CServerScenario> pScenario = type.pfnMake();
        pScenario->Prepare();
        {
            const CFaultPlan plan(pFault);
            pScenario->Play();
        }
        pScenario->Check();
        strOutcome = pScenario->GetTranscript();
        pScenario->ExpectServes();
    }
    nothing.Expect();
    return strOutcome;
}

class CServerFaults : public ::testing::TestWithParam<CServerScenarioType>
{
protected:
    // What the process sets up once, records of a first connection among it, is no leak.
    static void SetUpTestSuite()
    {
        const std::unique_ptr<CServerScenario> pScenario = GetServerScenarios().back().pfnMake();
        pScenario->Prepare();
        pScenario->ExpectServes();
    }
    const CScenarioRun m_run = [](const CFault* pFault) { return RunScenario(GetParam(), pFault); };
};
using ServerFaults = CServerFaults;

TEST_P(ServerFaults, AnyAllocationMayFail)
{
    ShowFaults(SweepAllocations(m_run));
}

TEST_P(ServerFaults, AnySystemCallMayFail)
{
    EXPECT_GT(ShowFaults(SweepCalls(m_run)), 0);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ServerFaults, ::testing::ValuesIn(GetServerScenarios()),
                         [](const auto& scenario) { return std::string(scenario.param.pszName); });

}  // namespace
