// In: a script of events around the daemon in the mode of an HD camera module (mode_world.h).
// Holds: what mode_world.h says, with micom frames as the mode's own frames.
#include <algorithm>

#include "fuzz/mode_world.h"
#include "fuzz/target.h"
#include "module/hd_frame.h"

namespace {

bool IsFrame(std::span<const uint8_t> bytes) {
  HdFrame frame;
  std::copy(bytes.begin(), bytes.end(), frame.begin());
  return frame[HD_CHECKSUM_AT] == HdChecksum(frame);
}

constexpr fuzz::ModeKind kKind = {.model = "QB-310",
                                  .sync = HD_SYNC,
                                  .frame_size = HD_FRAME_SIZE,
                                  .is_frame = IsFrame,
                                  .sends_serial_data = true,
                                  .longest_pass_us = 500'000};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RunModeByScript(kKind, data, size);
  return 0;
}
