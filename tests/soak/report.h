// What a run counts, and what it finds wrong.
#pragma once

#include <cstdint>
#include <string>

#include "sim/wait.h"

namespace soak {

// Of one mode. Plain, since it is shared between processes.
struct Counters {
  long line_to_clients;  // records that clients received
  long line_to_data;     // records in datagrams
  long clients_to_line;  // records at the far end
  long datagrams_to_line;
  long frames;     // at the far end, of commands
  long connected;  // clients
  long left;       // in order, and half-closed
  long reset;      // by a reset of the connection
  long refused;    // beyond the tenth
  long stopped;    // dropped since they stopped reading
  long hostile;    // datagrams and packets of nonsense
  long ends;       // by SIGTERM or the order to stop
  long kills;      // by SIGKILL
  long line_losses;
  long clock_jumps;
  long still_points;   // at which everything had arrived and nothing was left over
  long lens_checks;    // the lens stood where the file says
  long lens_unjudged;  // it did not, after the run itself had paused
  long memory_first;   // anonymous memory after its first minute, KiB: of the life that grew most
  long memory_end;     // and at that life's end
  long descriptors_first;
  long descriptors_end;
  long violations;
};

// Prints the counters of several modes as a table.
struct Column {
  const char* mode;
  const Counters* counters;
};
void PrintTable(const Column* columns, size_t count);

class Report {
 public:
  Report(const char* mode, uint32_t seed, Counters* counters)
      : mode_(mode), seed_(seed), counters_(counters) {}

  // A line about something that must not be.
  void Violation(const std::string& what, const std::string& expected, const std::string& came);

  Counters& Count() { return *counters_; }

 private:
  const char* mode_;
  uint32_t seed_;
  Counters* counters_;
  sim::Clock::time_point start_ = sim::Clock::now();
};

}  // namespace soak
