#ifndef OSPREY_TESTS_LITTLEMEMORY_H
#define OSPREY_TESTS_LITTLEMEMORY_H

// In a program linked with LittleMemory.cpp, malloc has nothing for whoever wants more than this at
// once (the linker routes the library's calls there, --wrap): a peer may ask for gigabytes.

#include <cstddef>

const size_t MOST_MEMORY = size_t{1} << 20;

#endif
