#ifndef OSPREY_TOOL_CHANNELOPTIONS_H
#define OSPREY_TOOL_CHANNELOPTIONS_H

#include "CommandOptions.h"

// The part of the command line that has to do with channels.

void AddPublish(CLI::App& app, COptions& options, CRaw& raw);
void AddSubscribe(CLI::App& app, COptions& options, CRaw& raw);

// --channel N=SOURCE, and what goes with it.
CLI::Option* AddSources(CLI::App& command, COptions& options, CRaw& raw);

// False with a reason when a value cannot be used.
bool CheckSources(COptions& options, const CRaw& raw, std::string& strReason);
bool CheckSinks(COptions& options, const CRaw& raw, std::string& strReason);

#endif
