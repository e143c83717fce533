#ifndef OSPREY_TOOL_SERVEOPTIONS_H
#define OSPREY_TOOL_SERVEOPTIONS_H

#include "CommandOptions.h"

// The options that limit what peers may do. For CommandLine.cpp and ChannelOptions.cpp only.

// --max-file and --max-total, of serve.
void AddQuotas(CLI::App& command, CRaw& raw);
// --max-connections and --allow, of what listens.
void AddAdmission(CLI::App& command, COptions& options, CRaw& raw);

// False with a reason when a value cannot be used.
bool CheckLimits(COptions& options, const CRaw& raw, std::string& strReason);

#endif
