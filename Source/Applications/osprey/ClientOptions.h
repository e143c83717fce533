#ifndef OSPREY_TOOL_CLIENTOPTIONS_H
#define OSPREY_TOOL_CLIENTOPTIONS_H

#include "CommandOptions.h"

// The commands that move files to and from a server. For CommandLine.cpp only.

void AddSubmit(CLI::App& app, COptions& options, CRaw& raw);
void AddDownload(CLI::App& app, COptions& options, CRaw& raw);
void AddWatch(CLI::App& app, COptions& options, CRaw& raw);

// False with a reason when a value of theirs cannot be used.
bool CheckClient(COptions& options, std::string& strReason);

#endif
