#ifndef OSPREY_TOOL_SUBMITCOMMAND_H
#define OSPREY_TOOL_SUBMITCOMMAND_H

#include "CommandLine.h"
#include "Output.h"

// osprey submit: sends files and folders. Returns the exit code.
int RunSubmit(const COptions& options, COutput& output);

#endif
