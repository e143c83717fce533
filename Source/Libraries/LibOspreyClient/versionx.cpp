#include "versionx.h"

namespace OrbComponent
{

namespace
{

const char version_info_str[] = OSPREY_VERSION_INFO;

}  // namespace

std::string GetVerisonString()
{
    return version_info_str;
}

}  // namespace OrbComponent
