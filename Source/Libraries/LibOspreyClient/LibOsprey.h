#ifndef OSPREY_LIBOSPREY_H
#define OSPREY_LIBOSPREY_H

// Everything that a host needs: link with -lOspreyClient and include this header alone.
//
// The library prints trace lines to standard output, and writes debug records to the log4cplus
// logger "Harbor.Libraries.LibOspreyClient" at DEBUG level when the host has attached an appender
// to it or to a parent. A host that has no use for the trace lines points standard output at
// /dev/null, where every system call counts with a large buffer of its own (setvbuf(3)): a closed
// pipe there raises SIGPIPE, and a full one blocks the worker. The network never raises SIGPIPE,
// and no signal handler is installed. A broken invariant prints the failed condition to standard
// error and aborts, in every build.

#include "OspreyChannelClient.h"
#include "OspreyClient.h"
#include "OspreyServer.h"
#include "versionx.h"

#endif
