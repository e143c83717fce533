#ifndef OSPREY_TOOL_SUBMITCOMMAND_H
#define OSPREY_TOOL_SUBMITCOMMAND_H

#include "CommandLine.h"
#include "LibOsprey.h"
#include "Output.h"

// osprey submit: sends files and folders. Returns the exit code.
int RunSubmit(const COptions& options, COutput& output);

// How far an upload is, in bytes. The library tells whole percents, once a block: the number of
// blocks refines that, and the percents bound it should the block size be another.
Orb_U64 EstimateSent(Orb_U64 ullBlocks, unsigned int dwPercent, Orb_U64 ullSize);

#endif
