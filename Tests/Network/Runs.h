#ifndef OSPREY_TESTS_RUNS_H
#define OSPREY_TESTS_RUNS_H

#include "Link.h"
#include "Outcome.h"
#include "Setting.h"

// How long either side of a link that was cut for good may take to notice: the server ends a
// connection after 30 silent seconds, a client sends every 5 seconds and hears nothing for it.
const double MUST_KNOW_SECONDS = 35;
// How soon after the return of the link packets must come again, besides four times its delay: what
// says that the link is back, and what it held up, take a way each, there and back. Later where the
// first ones may be lost, since TCP takes a second to repeat the first packet of a connection.
const double MUST_BE_BACK_SECONDS = 2;
const double MUST_BE_BACK_LOSSY_SECONDS = 4;
// How long a run that neither ends nor breaks is watched, from the link's return or the cut for
// good.
const int WATCH_SECONDS = 150;

// A file up, or down. The file at the receiver must be exactly the sender's, or both hosts must
// have been told that it is not.
COutcome RunFile(const CSetting& setting, CLink& link);
// Many files up, or down, by the tool: first over one connection, then over several. All files must
// arrive, and the several must move nearly as many times more.
COutcome RunJobs(const CSetting& setting, CLink& link);
// Two channels. Every packet must come as it was put, in order, none missing on a connection.
COutcome RunChannel(const CSetting& setting, CLink& link);

// What the setting asks of the link must have happened in the run, or it has shown nothing; unless
// so few packets passed that chance may have spared them.
void ForbidIdleFaults(const CSetting& setting, CLink& link, COutcome& outcome);

#endif
