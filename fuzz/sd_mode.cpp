// In: a script of events around the daemon in the mode of an SD camera module (mode_world.h).
// Holds: what mode_world.h says, with Pelco-D frames as the mode's own frames.
#include <algorithm>

#include "fuzz/mode_world.h"
#include "fuzz/target.h"
#include "relay/pelco_d.h"

namespace {

bool IsFrame(std::span<const uint8_t> bytes) {
  PelcoFrame frame;
  std::copy(bytes.begin(), bytes.end(), frame.begin());
  return frame[PELCO_ADDRESS_AT] == PELCO_ADDRESS &&
         frame[PELCO_CHECKSUM_AT] == PelcoChecksum(frame);
}

constexpr fuzz::ModeKind kKind = {.model = "QB-210",
                                  .sync = PELCO_SYNC,
                                  .frame_size = PELCO_FRAME_SIZE,
                                  .is_frame = IsFrame,
                                  .sends_serial_data = true,
                                  .longest_pass_us = 500'000};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RunModeByScript(kKind, data, size);
  return 0;
}
