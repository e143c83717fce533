#ifndef OSPREY_TESTS_EVENTLINES_H
#define OSPREY_TESTS_EVENTLINES_H

#include <string>

#include "TempFolder.h"
#include "ToolProcess.h"

// Lines that commands printed with --json, to be judged by Docs/events.schema.json.
class CEventLines
{
public:
    // There is what judges them: python3 with its package for JSON schemas.
    static bool CanJudge();

    void Add(const std::string& strCommand, const std::string& strLine)
    {
        m_strLines += strCommand + " " + strLine + "\n";
    }
    // All of a run's standard output, which must be whole lines.
    void AddOutput(const std::string& strCommand, const std::string& strOutput);

    // What is wrong with them, a line each; empty when nothing is.
    std::string Faults() const;
    // The events of the schema that none of them is, likewise.
    std::string Unseen() const;

private:
    std::string Judge(bool bUnseen) const;

    std::string m_strLines;
};

#endif
