// A whole mode of the daemon in a world that acts by a script, which the fuzzer writes.
//
// The mode runs as it does on a device, on real sockets and a real pty, but in one thread with the
// world: whenever its pass sleeps, the world makes the next event of the script, or lets the
// passes that follow the last one run. Time is virtual. After every pass, and at the end, this
// holds:
//   - what clients and local processes send arrives at the far end of the line whole and in order,
//     between good frames of the mode and nothing else, while the line is there;
//   - what comes from the line arrives at every client, from its connecting on, and in the data
//     datagrams; nobody else is dropped but who takes nothing for CPTZSVR_SEND_LIMIT_S;
//   - a pass takes no longer than the mode's waits add up to, and the daemon does not spin;
//   - the mode ends when it is told to, and leaves no descriptor open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

struct ModeKind {
  const char* model;
  // What the mode puts on the line besides others' bytes.
  uint8_t sync;
  size_t frame_size;
  bool (*is_frame)(std::span<const uint8_t> frame);
  bool sends_serial_data;
  int64_t longest_pass_us;
};

// Runs the mode from opening its resources to releasing them, by the script `data`: a byte for how
// things are at first, then events (mode_world.cpp: kEvents).
void RunModeByScript(const ModeKind& kind, const uint8_t* data, size_t size);

}  // namespace fuzz
