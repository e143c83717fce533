#include "Runs.h"

void ForbidIdleFaults(const CSetting& setting, CLink& link, COutcome& outcome)
{
    const auto ullTaken = link.Count("taken");
    const auto fnCheck = [&](int nPercent, const char* pszWhat)
    {
        const auto ullExpected = ullTaken * static_cast<unsigned int>(nPercent) / 100;
        outcome.Forbid(ullExpected >= 10 && link.Count(pszWhat) == 0,
                       std::string("the link had no packet ") + pszWhat);
    };
    fnCheck(setting.m_nLoss, "lost");
    fnCheck(setting.m_nReorder, "reordered");
    fnCheck(setting.m_nDuplicate, "duplicated");
    fnCheck(setting.m_nCorrupt, "corrupted");
    outcome.Forbid(setting.IsCut() && link.Count("cut") == 0, "the cut met no packet");
}
