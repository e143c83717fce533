#ifndef OSPREY_BENCHMARKS_FREEPORT_H
#define OSPREY_BENCHMARKS_FREEPORT_H

// A port that was free a moment ago: a server of the library does not tell which one it got.
unsigned short FreePort();

#endif
