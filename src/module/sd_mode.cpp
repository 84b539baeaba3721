#include "module/sd_mode.h"

#include <cstdio>
#include <span>

#include "module/camera_info.h"
#include "module/module_send.h"
#include "relay/mode_pass.h"
#include "relay/pelco_d.h"
#include "serial/serial_io.h"

namespace {

// --- Control codes -----------------------------------------------------------------------------

constexpr SdFrame kStop = {PELCO_NO_BITS, 0};
constexpr SdFrame kTele = {PELCO2_ZOOM_TELE, 0};
constexpr SdFrame kWide = {PELCO2_ZOOM_WIDE, 0};

// A menu key: the frame to send, followed by a stop frame.
struct KeyRow {
  uint16_t code;
  SdFrame frame;
};

constexpr std::array<KeyRow, 6> kKeys = {{
    {CAMERA_CODE_MENU, {PELCO_SET_PRESET, SD_MENU_PRESET}},
    {CAMERA_CODE_MENU_ENTER, {PELCO_SET_PRESET, SD_MENU_PRESET}},
    {CAMERA_CODE_UP, {PELCO2_TILT_UP, 0}},
    {CAMERA_CODE_DOWN, {PELCO2_TILT_DOWN, 0}},
    {CAMERA_CODE_LEFT, {PELCO2_PAN_LEFT, 0}},
    {CAMERA_CODE_RIGHT, {PELCO2_PAN_RIGHT, 0}},
}};

// Zoom runs until a stop frame (direction 0).
SdFrame ZoomFrame(int8_t direction) {
  if (direction > 0) return kTele;
  return direction < 0 ? kWide : kStop;
}

// --- The mode ----------------------------------------------------------------------------------

struct SdMode {
  Rs232Context* context;
  SdCameraInfo info;
  ModePass pass;
};

SdMode g_sd;

void OnCameraControl(void* /*mode*/, const CameraControl& control) {
  const SdSequence sequence = SdTranslate(control);
  for (int i = 0; i < sequence.count; ++i) {
    const SdFrame& frame = sequence.frames[static_cast<size_t>(i)];
    SdModuleSend(SERIAL_ONE_PORT, frame.command2, 0, frame.data2);
  }
}

void OnSerialBytes(void* mode, std::span<const uint8_t> bytes) {
  SdMode* sd = static_cast<SdMode*>(mode);
  SdCameraInfoParse(*sd->context, &sd->info, bytes);
}

constexpr ModeHooks kHooks = {.name = "SD camera module",
                              .periodic = nullptr,
                              .camera_control = OnCameraControl,
                              .command = nullptr,
                              .serial_bytes = OnSerialBytes,
                              .sends_serial_data = true};

}  // namespace

SdSequence SdTranslate(const CameraControl& control) {
  if (control.code == CAMERA_CODE_ZOOM) {
    return {.frames = {{ZoomFrame(control.third)}}, .count = 1};
  }
  for (const KeyRow& row : kKeys) {
    if (row.code == control.code) return {.frames = {{row.frame, kStop}}, .count = 2};
  }
  return {.frames = {}, .count = 0};
}

int camd_cmod_sd(Rs232Context* p_param) {
  if (p_param == nullptr) {
    printf("[%s] Error line[%d], reason('p_param' is NULL)\n", "camd_cmod_sd", __LINE__);
    return -1;
  }
  g_sd.context = p_param;
  g_sd.info = {};
  SdModuleSend(SERIAL_ONE_PORT, PELCO_NO_BITS, SD_QUERY_DATA1, SD_QUERY_DATA2);
  ModePassInit(&g_sd.pass, p_param, &kHooks, &g_sd);
  g_sd.pass.Run(&g_sd.pass);
  return 0;
}
