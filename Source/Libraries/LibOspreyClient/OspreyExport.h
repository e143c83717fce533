#ifndef OSPREY_OSPREYEXPORT_H
#define OSPREY_OSPREYEXPORT_H

// Marks what the shared library shows to its hosts; everything else is hidden at build time.
#define OSPREY_API __attribute__((visibility("default")))

#endif
