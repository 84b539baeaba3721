// In: camera-control payloads, as the command channel brings them.
// Holds: whatever the model, every command becomes at most three good Pelco-D frames that the
// bench's decoder reads back; the module modes' translations give good frames; a record encoded
// again is the same record.
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "module/hd_mode.h"
#include "module/sd_mode.h"
#include "relay/ptz_tables.h"
#include "sim/pelco_decoder.h"
#include "tools/frame_texts.h"

namespace {

constexpr int kLongestSequenceMs = 250;

void CheckFrame(const PelcoFrame& frame) {
  sim::PelcoDecoder decoder;
  int frames = 0;
  decoder.on_frame = [&](const PelcoFrame& decoded) {
    FUZZ_CHECK(decoded == frame);
    FUZZ_CHECK(!tools::PelcoWords(decoded).empty());
    ++frames;
  };
  decoder.on_noise = [](std::span<const uint8_t>) { fuzz::Fail("a frame is taken for noise"); };
  decoder.Feed(frame);
  FUZZ_CHECK(frames == 1);
}

void CheckRelay(const CameraControl& control) {
  for (const char* model : {"QB-610", "QB-620", "QB-100", ""}) {
    const PtzSequence sequence = PtzTranslate(PtzTableForModel(model), control);
    FUZZ_CHECK(sequence.count >= 0 && sequence.count <= 3);
    int waits_ms = 0;
    for (int i = 0; i < sequence.count; ++i) {
      waits_ms += sequence.steps[static_cast<size_t>(i)].wait_ms;
      CheckFrame(sequence.steps[static_cast<size_t>(i)].frame);
    }
    FUZZ_CHECK(waits_ms <= kLongestSequenceMs);
  }
}

void CheckModules(const CameraControl& control) {
  const SdSequence sequence = SdTranslate(control);
  FUZZ_CHECK(sequence.count >= 0 && sequence.count <= 2);
  for (int i = 0; i < sequence.count; ++i) {
    const SdFrame& frame = sequence.frames[static_cast<size_t>(i)];
    CheckFrame(PelcoBuild({0, frame.command2, 0, frame.data2}));
  }
  HdSetting setting = {.command = HD_VERSION, .data = HD_NO_VALUE};
  if (HdTranslate(control, &setting)) {
    FUZZ_CHECK(setting.command == HD_MENU_KEY || setting.command == HD_LENS ||
               setting.command == HD_PARAMETER);
    const HdFrame frame = HdBuild(setting.command, HD_SETTING, setting.data);
    FUZZ_CHECK(frame[HD_CHECKSUM_AT] == HdChecksum(frame));
  } else {
    FUZZ_CHECK(setting.command == HD_VERSION && setting.data == HD_NO_VALUE);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  while (!input.IsEmpty()) {
    uint8_t payload[CAMERA_CONTROL_SIZE] = {};
    const auto bytes = input.Bytes(sizeof(payload));
    memcpy(payload, bytes.data(), bytes.size());
    const CameraControl control = CameraControlDecode(payload);
    uint8_t again[CAMERA_CONTROL_SIZE];
    CameraControlEncode(control, again);
    memset(payload + 4, 0, 8);  // not used
    FUZZ_CHECK(memcmp(payload, again, sizeof(again)) == 0);
    CheckRelay(control);
    CheckModules(control);
  }
  return 0;
}
