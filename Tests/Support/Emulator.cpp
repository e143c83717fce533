#include "Emulator.h"

#include <cstdlib>

bool IsEmulated()
{
    // Where the emulator finds the libraries; the preset sets it.
    return getenv("QEMU_LD_PREFIX") != nullptr;
}
