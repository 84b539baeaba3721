#include "relay/relay_loop.h"

#include "relay/mode_pass.h"
#include "relay/ptz_tables.h"
#include "serial/serial_io.h"
#include "util/sleep.h"

namespace {

constexpr int kUsPerMs = 1000;

void OnCameraControl(void* mode, const CameraControl& control) {
  const auto* table = static_cast<const std::span<const PtzRow>*>(mode);
  const PtzSequence sequence = PtzTranslate(*table, control);
  for (int i = 0; i < sequence.count; ++i) {
    const PtzStep& step = sequence.steps[static_cast<size_t>(i)];
    if (step.wait_ms != 0) CUTIL_SleepUs(static_cast<int64_t>(step.wait_ms) * kUsPerMs);
    SerialSend(SERIAL_ONE_PORT, step.frame.data(), PELCO_FRAME_SIZE);
  }
}

constexpr ModeHooks kHooks = {.name = "relay",
                              .periodic = nullptr,
                              .camera_control = OnCameraControl,
                              .command = nullptr,
                              .serial_bytes = nullptr,
                              .sends_serial_data = true};

}  // namespace

int RelayLoop(Rs232Context* context) {
  std::span<const PtzRow> table = PtzTableForModel(context->settings->model);
  ModePass pass;
  ModePassInit(&pass, context, &kHooks, &table);
  pass.Run(&pass);
  return 0;
}
