#ifndef OSPREY_VERSIONX_H
#define OSPREY_VERSIONX_H

#include <string>

#include "OspreyExport.h"

namespace OrbComponent
{

// The build that this library comes from, as
// "version: 1.0.86 - master/1.0.86 (2021-06-06 19:09:46)": number, branch, number, build time.
// Returns a copy of its own for every caller. Any thread. The spelling is the exported name.
OSPREY_API std::string GetVerisonString();

}  // namespace OrbComponent

#endif
