#ifndef OSPREY_TESTS_EMULATOR_H
#define OSPREY_TESTS_EMULATOR_H

// Whether an emulator runs this program, as the aarch64 preset has it: the system then counts the
// emulator's memory as the program's, tells of threads a little longer, and what the emulator does
// not know of the kernel is missing.
bool IsEmulated();

#endif
