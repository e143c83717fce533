#ifndef OSPREY_TOOL_WATCHCOMMAND_H
#define OSPREY_TOOL_WATCHCOMMAND_H

#include "CommandLine.h"
#include "Output.h"

// osprey watch: submits what appears in a folder, until a signal. Returns the exit code.
int RunWatch(const COptions& options, COutput& output);

#endif
