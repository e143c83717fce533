#ifndef OSPREY_TESTS_LIBRARYCALLS_H
#define OSPREY_TESTS_LIBRARYCALLS_H

// The port on which the library listens since its latest start, which the system chose.
unsigned short GetListeningPort();

#endif
