#ifndef OSPREY_TOOL_SANDBOX_H
#define OSPREY_TOOL_SANDBOX_H

#include "Descriptor.h"

// Has the kernel (Landlock) confine what this thread, and those that it starts from then on, may
// open, create, rename and delete: what is below a folder, for reading alone or also for changes,
// and /dev/null. What is open already stays usable. There is no way back.
//
// Threads that were there before are not confined, those of the logging library above all: this
// holds off what a peer may get the server's worker to do, not somebody who has taken over the
// process.
//
// The second wall: the first one is that nothing outside is ever named (CRootFolder).
//
// False when the kernel has no such thing, or does not let this process have it, and under the
// address sanitizer; nothing is confined then.
bool ConfineTo(const CDescriptor& folder, bool bReadOnly);

#endif
