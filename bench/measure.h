// The scenes of the comparison and the in-process paths of the daemon. Each adds its figures.
#pragma once

#include <random>
#include <vector>

#include "bench/session.h"

namespace bench {

// Amount of measurement.
struct Plan {
  int rounds;
  int probes;           // per latency figure and round
  double bulk_share;    // of the bytes of an ordinary run
  double line_seconds;  // line at its full rate, per number of clients, over all rounds
  double stop_seconds;  // with a client that stops reading
  double idle_seconds;  // per number of clients
  double path_seconds;  // minimum per in-process path
};

// Latency of single 7-byte probes each way, with the contender asleep before each.
void MeasureLatency(const Plan& plan, int round, Session* session);

// Maximum throughput each way, and the memory before and after.
void MeasureBulk(const Plan& plan, Session* session);

// The line at its full rate with one client and with ten.
void MeasureLine(const Plan& plan, Session* session);

// The line at its full rate with ten clients, one of which stops reading.
void MeasureStoppedClient(const Plan& plan, Session* session);

// All contenders idle at the same time: they do not disturb each other.
void MeasureIdle(const Plan& plan, Results* results);

// The paths in the daemon that every byte or command takes, one by one.
void MeasurePaths(const Plan& plan, Results* results);

}  // namespace bench
