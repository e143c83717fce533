// In the build that counts what runs. A process that aborts leaves no counts, so that what a broken
// assertion runs would seem never to have run: write them first.

#include <csignal>

extern "C" int __llvm_profile_write_file();

namespace
{

void WriteCounts(int nSignal)
{
    __llvm_profile_write_file();
    signal(nSignal, SIG_DFL);  // abort() raises it again
}

const auto g_pfnBefore = signal(SIGABRT, WriteCounts);

}  // namespace
