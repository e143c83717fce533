#ifndef OSPREY_TOOL_DESCRIPTORLIMIT_H
#define OSPREY_TOOL_DESCRIPTORLIMIT_H

#include <cstddef>

// Lets this process have as many descriptors as it may. Returns how many that are; 0: not known.
size_t RaiseDescriptorLimit();

#endif
