#ifndef OSPREY_TOOL_DOWNLOADCOMMAND_H
#define OSPREY_TOOL_DOWNLOADCOMMAND_H

#include <string>
#include <vector>

#include "CommandLine.h"
#include "Output.h"

// One file to fetch.
struct CDownloadEntry
{
    std::string m_strName;    // at the peer
    std::string m_strTarget;  // local path
};

// Pairs each name with a file of its last part in strFolder. False with a reason when a name has no
// last part that can name a file, or two names would be written to one file.
bool PlanDownload(const std::vector<std::string>& listNames, const std::string& strFolder,
                  std::vector<CDownloadEntry>& listEntries, std::string& strReason);

// osprey download: fetches files. Returns the exit code.
int RunDownload(const COptions& options, COutput& output);

#endif
