// The scenes of the comparison, each of which adds its figures, and the paths within the daemon.
#pragma once

#include <random>
#include <vector>

#include "bench/session.h"

namespace bench {

// How much is measured.
struct Plan {
  int rounds;
  int probes;           // of each latency figure in a round
  double bulk_share;    // of the bytes of the full form
  double line_seconds;  // line at its full rate, each number of clients, all rounds together
  double stop_seconds;  // with a client that does not read
  double idle_seconds;  // each number of clients
  double path_seconds;  // each path within the daemon, at least
};

// Probes of 7 bytes each way, one at a time, the contender asleep before each.
void MeasureLatency(const Plan& plan, int round, Session* session);

// Bytes each way as fast as they go, memory before and after.
void MeasureBulk(const Plan& plan, Session* session);

// The line at its full rate, with one client and with ten.
void MeasureLine(const Plan& plan, Session* session);

// The same with ten clients of which one stops reading.
void MeasureStoppedClient(const Plan& plan, Session* session);

// All contenders at rest, side by side: the idle do not disturb each other.
void MeasureIdle(const Plan& plan, Results* results);

// The paths inside the daemon that every byte or command takes, each alone.
void MeasurePaths(const Plan& plan, Results* results);

}  // namespace bench
