#ifndef OSPREY_TOOL_PUBLISHCOMMAND_H
#define OSPREY_TOOL_PUBLISHCOMMAND_H

#include "CommandLine.h"
#include "Output.h"

// osprey publish: puts packets into channels until every source has ended, or a signal came.
// Returns the exit code.
int RunPublish(const COptions& options, COutput& output);

#endif
