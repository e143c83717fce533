#ifndef OSPREY_TOOL_SUBSCRIBECOMMAND_H
#define OSPREY_TOOL_SUBSCRIBECOMMAND_H

#include "CommandLine.h"
#include "Output.h"

// osprey subscribe: takes the packets of channels until a signal, a number or a time ends it.
// Returns the exit code.
int RunSubscribe(const COptions& options, COutput& output);

#endif
