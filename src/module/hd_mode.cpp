#include "module/hd_mode.h"

#include <array>
#include <cstdio>

#include "ipc/cicomm.h"
#include "ipc/csysmgr.h"
#include "module/camera_info.h"
#include "module/firmware_update.h"
#include "module/module_send.h"
#include "relay/mode_pass.h"
#include "serial/serial_io.h"
#include "util/process.h"
#include "util/sleep.h"

namespace {

constexpr int kUsPerS = 1'000'000;

// --- Control codes -----------------------------------------------------------------------------

// Source of the data byte of a setting.
enum class HdSource : uint8_t {
  kFixed,      // `data`
  kFirst,      // the first parameter, unchanged
  kFirstSign,  // first parameter above 0: `data`; below: `opposite`; 0: HD_LENS_STOP
  kThirdSign,  // the same for the third parameter
};

struct HdRow {
  uint16_t code;
  HdCommand command;
  HdSource source;
  uint8_t data;
  uint8_t opposite;
};

constexpr std::array<HdRow, 10> kRows = {{
    {CAMERA_CODE_MENU, HD_MENU_KEY, HdSource::kFixed, HD_KEY_MENU, 0},
    {CAMERA_CODE_MENU_ENTER, HD_MENU_KEY, HdSource::kFixed, HD_KEY_MENU, 0},
    {CAMERA_CODE_UP, HD_MENU_KEY, HdSource::kFixed, HD_KEY_UP, 0},
    {CAMERA_CODE_DOWN, HD_MENU_KEY, HdSource::kFixed, HD_KEY_DOWN, 0},
    {CAMERA_CODE_LEFT, HD_MENU_KEY, HdSource::kFixed, HD_KEY_LEFT, 0},
    {CAMERA_CODE_RIGHT, HD_MENU_KEY, HdSource::kFixed, HD_KEY_RIGHT, 0},
    {CAMERA_CODE_ZOOM, HD_LENS, HdSource::kThirdSign, HD_LENS_TELE, HD_LENS_WIDE},
    {CAMERA_CODE_FOCUS, HD_LENS, HdSource::kFirstSign, HD_LENS_FOCUS_PLUS, HD_LENS_FOCUS_MINUS},
    {CAMERA_CODE_FOCUS_SEARCH, HD_LENS, HdSource::kFixed, HD_LENS_FOCUS_SEARCH, 0},
    {CAMERA_CODE_MODULE_SETTING, HD_PARAMETER, HdSource::kFirst, 0, 0},
}};

uint8_t BySign(const HdRow& row, int8_t direction) {
  if (direction > 0) return row.data;
  return direction < 0 ? row.opposite : static_cast<uint8_t>(HD_LENS_STOP);
}

uint8_t DataOf(const HdRow& row, const CameraControl& control) {
  switch (row.source) {
    case HdSource::kFirst:
      return static_cast<uint8_t>(control.first);
    case HdSource::kFirstSign:
      return BySign(row, control.first);
    case HdSource::kThirdSign:
      return BySign(row, control.third);
    case HdSource::kFixed:
      break;
  }
  return row.data;
}

// --- The mode ----------------------------------------------------------------------------------

struct HdMode {
  Rs232Context* context;
  HdCameraInfo info;
  ModePass pass;
};

HdMode g_hd;

void OnCameraControl(void* /*mode*/, const CameraControl& control) {
  HdSetting setting;
  if (!HdTranslate(control, &setting)) return;
  HdModuleSend(SERIAL_ONE_PORT, setting.command, HD_SETTING, setting.data);
}

// Reboots even after a failed update: the reboot resets a micom that is stuck in its update mode.
[[noreturn]] void UpdateFirmwareAndReboot(HdMode* hd) {
  printf("CICOMM_PCMD_MICOM_FIRMWARE_UPDATE\n");
  MicomFirmwareUpdate(hd->context);
  CSYSMGR_SendPacket(CSYSMGR_CODE_REBOOT, nullptr, 0);
  CUTIL_SleepUs(static_cast<int64_t>(HD_REBOOT_NOTICE_S) * kUsPerS);
  CUTIL_Reboot();
}

void OnCommand(void* mode, int command) {
  if (command == CICOMM_PCMD_MICOM_FIRMWARE_UPDATE) {
    UpdateFirmwareAndReboot(static_cast<HdMode*>(mode));
  }
}

constexpr ModeHooks kHooks = {.name = "HD camera module",
                              .periodic = nullptr,
                              .camera_control = OnCameraControl,
                              .command = OnCommand,
                              .serial_bytes = nullptr,
                              .sends_serial_data = true};

}  // namespace

bool HdTranslate(const CameraControl& control, HdSetting* setting) {
  for (const HdRow& row : kRows) {
    if (row.code != control.code) continue;
    const uint8_t data = DataOf(row, control);
    if (row.source == HdSource::kFirst && data == HD_NO_VALUE) return false;
    *setting = {.command = row.command, .data = data};
    return true;
  }
  return false;
}

int camd_cmod_hd(Rs232Context* p_param) {
  if (p_param == nullptr) {
    printf("[%s] Error line[%d], reason('p_param' is NULL)\n", "camd_cmod_hd", __LINE__);
    return -1;
  }
  g_hd.context = p_param;
  HdCameraInfoWrite(*p_param, &g_hd.info);
  ModePassInit(&g_hd.pass, p_param, &kHooks, &g_hd);
  g_hd.pass.Run(&g_hd.pass);
  return 0;
}
