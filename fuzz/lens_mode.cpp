// In: a script of events around the daemon in the motorized-lens mode (mode_world.h).
// Holds: what mode_world.h says, with register frames as the mode's own frames.
#include <algorithm>

#include "fuzz/mode_world.h"
#include "fuzz/target.h"
#include "lens/i2m.h"

namespace {

bool IsFrame(std::span<const uint8_t> bytes) {
  I2mFrame frame;
  std::copy(bytes.begin(), bytes.end(), frame.begin());
  return frame[I2M_CHECKSUM_AT] == I2mChecksum(frame);
}

constexpr fuzz::ModeKind kKind = {.model = "QB-420",
                                  .sync = I2M_SYNC,
                                  .frame_size = I2M_FRAME_SIZE,
                                  .is_frame = IsFrame,
                                  .sends_serial_data = false,
                                  .longest_pass_us = 120'000'000};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RunModeByScript(kKind, data, size);
  return 0;
}
