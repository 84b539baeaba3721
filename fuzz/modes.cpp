// In: a script of events around the daemon in one of its modes, FUZZ_MODE (mode_world.h).
// Holds: what mode_world.h says, with that mode's own frames: Pelco-D, micom or register frames.
#include <algorithm>
#include <string_view>

#include "fuzz/mode_world.h"
#include "fuzz/target.h"
#include "lens/i2m.h"
#include "module/hd_frame.h"
#include "relay/pelco_d.h"

namespace {

template <typename Frame, uint8_t (*checksum)(const Frame& frame)>
bool IsFrame(std::span<const uint8_t> bytes) {
  Frame frame;
  std::copy(bytes.begin(), bytes.end(), frame.begin());
  return frame.back() == checksum(frame);
}

bool IsPelcoFrame(std::span<const uint8_t> bytes) {
  return bytes[PELCO_ADDRESS_AT] == PELCO_ADDRESS && IsFrame<PelcoFrame, PelcoChecksum>(bytes);
}

struct ModeRow {
  std::string_view name;
  fuzz::ModeKind kind;
};

constexpr int64_t kPassUs = 500'000;
constexpr int64_t kLensPassUs = 120'000'000;

constexpr ModeRow kModes[] = {
    {"relay_mode", {"QB-620", PELCO_SYNC, PELCO_FRAME_SIZE, IsPelcoFrame, true, kPassUs}},
    {"sd_mode", {"QB-210", PELCO_SYNC, PELCO_FRAME_SIZE, IsPelcoFrame, true, kPassUs}},
    {"hd_mode", {"QB-310", HD_SYNC, HD_FRAME_SIZE, IsFrame<HdFrame, HdChecksum>, true, kPassUs}},
    {"lens_mode",
     {"QB-420", I2M_SYNC, I2M_FRAME_SIZE, IsFrame<I2mFrame, I2mChecksum>, false, kLensPassUs}},
};

constexpr const fuzz::ModeKind& kKind = std::ranges::find(kModes, FUZZ_MODE, &ModeRow::name)->kind;

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RunModeByScript(kKind, data, size);
  return 0;
}
