#ifndef OSPREY_TESTS_LIBRARYMEMORY_H
#define OSPREY_TESTS_LIBRARYMEMORY_H

// The memory that the library has allocated and nobody has given back, through new, malloc and
// realloc, in blocks. Allocations fail as the fault plan says.

int CountLibraryBlocks();

#endif
