#ifndef OSPREY_TOOL_DOWNLOADCOMMAND_H
#define OSPREY_TOOL_DOWNLOADCOMMAND_H

#include <string>
#include <vector>

#include "CommandLine.h"
#include "Output.h"
#include "Reception.h"

// Pairs each name with a file of its last part in strFolder. False with a reason when a name has no
// last part that can name a file, or two names would be written to one file.
bool PlanDownload(const std::vector<std::string>& listNames, const std::string& strFolder,
                  std::vector<CDownloadEntry>& listEntries, std::string& strReason);

// Makes the folders on the way from strFolder down to the file strName, a name without fault (see
// NameFault). False with a reason: one of them is a link, which may lead out, or no folder, or
// cannot be made.
bool MakeFolders(const std::string& strFolder, const std::string& strName, std::string& strReason);

// osprey download: fetches files. Returns the exit code.
int RunDownload(const COptions& options, COutput& output);

#endif
