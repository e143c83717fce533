#ifndef OSPREY_TOOL_SERVECOMMAND_H
#define OSPREY_TOOL_SERVECOMMAND_H

#include "CommandLine.h"
#include "Output.h"

// osprey serve: serves a folder until a signal ends it. Returns the exit code.
int RunServe(const COptions& options, COutput& output);

#endif
