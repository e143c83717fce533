#ifndef OSPREY_TESTS_OUTCOME_H
#define OSPREY_TESTS_OUTCOME_H

#include <string>
#include <vector>

#include "Setting.h"

// How one run went. A time that has no meaning in it is negative.
struct COutcome
{
    // What must not be.
    void Forbid(bool bIs, const std::string& strWhat);
    // One row of the table, and a line for each violation under it.
    std::string GetText(const CSetting& setting) const;

    std::string m_strEnd;       // "whole", "lost 104", "failed 5", "no end"
    double m_dSeconds = -1;     // from the start to that
    double m_dClientKnew = -1;  // from the cut until the client's host was told of a loss
    double m_dServerKnew = -1;  // from the cut until the server gave the connection up
    double m_dBack = -1;  // from the link's return until the first packet put after it, channels
    std::vector<std::string> m_violations;
};

// The columns of the table.
std::string GetTableHead();

#endif
