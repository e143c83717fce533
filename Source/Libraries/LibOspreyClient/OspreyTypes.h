#ifndef OSPREY_OSPREYTYPES_H
#define OSPREY_OSPREYTYPES_H

// Types of the exported interfaces. Every integer on the interface has the width that its name or
// comment states on all targets (64-bit Linux: int 32, long 64, long long 64 bits).

// Result of an operation: zero is false, anything else true.
typedef int Orb_BOOL;

// Unsigned, 32 bits.
typedef unsigned int Orb_U32;

// Unsigned, 64 bits.
typedef unsigned long long Orb_U64;

enum : Orb_BOOL
{
    Orb_FALSE = 0,
    Orb_TRUE = 1
};

#endif
