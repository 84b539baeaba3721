#include "lens/control.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ipc/camera_control.h"
#include "ipc/cicomm.h"
#include "ipc/csysmgr.h"
#include "lens/assist.h"
#include "lens/camera_query.h"
#include "lens/drive.h"
#include "lens/focus_search.h"
#include "lens/i2m.h"
#include "lens/i2m_dispatch.h"
#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/piris.h"
#include "lens/position.h"
#include "lens/sensor_config.h"
#include "relay/mode_pass.h"
#include "util/camera_info_file.h"
#include "util/process.h"
#include "util/sleep.h"

namespace {

// Fixed line number in the message for a null parameter; part of the message text.
constexpr int kNullParameterLine = 734;

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kRebootPauseUs = 10'000'000;

// Moves by PIRIS_STEP that open the iris fully from any position.
constexpr int kIrisOpeningSteps = PIRIS_TRAVEL / PIRIS_STEP;

// --- Sensor and lens configuration -------------------------------------------------------------

struct LensConfig {
  int32_t antiflicker;
  int32_t sensor_supported;
};

LensConfig ReadConfig() {
  LensConfig config;
  read_sensor_lens_config(&config.antiflicker, &config.sensor_supported);
  return config;
}

void Configure(const LensConfig& config) {
  piris_configure(config.antiflicker, config.sensor_supported);
}

// --- Start-up ----------------------------------------------------------------------------------

// Flag in the high byte of the version; the other bits are the major number.
constexpr uint8_t kVariantFlag = 0x80;

// Queries the micom for its version and writes it to the camera information file for other
// processes. Leaves the file alone if the micom does not answer.
void ReportMicomVersion() {
  i2m_request(I2M_ADDR_VERSION);
  I2mFrame reply;
  if (!i2m_read_reply(&reply)) return;
  const uint8_t major = reply[I2M_HIGH_AT];
  const uint8_t minor = reply[I2M_LOW_AT];
  printf("version: 0x%02X, 0x%02X\n", major, minor);
  char version[sizeof("VERSION=127.255-s")];
  snprintf(version, sizeof(version), "VERSION=%d.%d-%c", major & ~kVariantFlag, minor,
           (major & kVariantFlag) != 0 ? 's' : 'm');
  CUTIL_WriteCameraInfo({version});
}

void OpenIris() {
  for (int i = 0; i < kIrisOpeningSteps; ++i) {
    CUTIL_SleepUs(PIRIS_COARSE_PAUSE_MS * kUsPerMs);
    PirisMove(PIRIS_STEP);
  }
}

void StartUp() {
  printf("\n============== build@ %s, %s ============ \n", __DATE__, __TIME__);
  ReportMicomVersion();
  apply_lens_profile(MFZ_PROFILE_HERON);
  drive_init();
  set_motor_speed(g_mfz.profile->normal_speed);
  focus_search_init();
  OpenIris();
  set_limits();
  restore_positions();
  Configure(ReadConfig());
  piris_start_worker();
}

// --- Camera control ----------------------------------------------------------------------------

uint16_t JogValue(int8_t value) {
  if (value == 0) return I2M_JOG_STOP;
  return value > 0 ? I2M_JOG_POSITIVE : I2M_JOG_NEGATIVE;
}

// Moves a motor, or stops it if `value` is 0: by a drive request in daemon mode, by the micom's jog
// register in micom mode.
void MoveMotor(MfzAxis axis, int8_t value, I2mAddress jog) {
  if (g_mfz.g_af_mode == AF_MODE_MICOM) {
    i2m_write(jog, JogValue(value));
    return;
  }
  if (value != 0) focus_search_stop();
  drive_request(axis, value);
}

void OnFocus(const CameraControl& control) {
  const int8_t value = control.first;
  if (value != 0) set_focus_drive_step(value);
  MoveMotor(MFZ_AXIS_FOCUS, value, I2M_ADDR_FOCUS_JOG);
}

void OnZoom(const CameraControl& control) {
  const int8_t value = control.third;
  if (value != 0) {
    set_zoom_drive_step(value);
    g_mfz.g_focus_value_stream = FOCUS_STREAM_ENDED;
  }
  MoveMotor(MFZ_AXIS_ZOOM, value, I2M_ADDR_ZOOM_JOG);
}

void OnIris(const CameraControl& control) {
  if (control.first < 0) {
    PirisMove(-PIRIS_STEP);
    printf("-PIRIS_STEP_SINGLE (close)\n");
  } else if (control.first > 0) {
    PirisMove(PIRIS_STEP);
    printf("+PIRIS_STEP_SINGLE (open)\n");
  }
}

void OnStartAf(const CameraControl& /*control*/) {
  focus_search_start(g_mfz.profile->af_start_range);
}

void OnAssist(const CameraControl& /*control*/) {
  focus_search_stop();
  printf("'Z'\n");
  if (g_mfz.g_af_mode == AF_MODE_DAEMON) {
    assist_focus();
  } else {
    i2m_write(I2M_ADDR_AF_MODE, AF_MODE_MICOM);
  }
}

void OnAfMode(const CameraControl& control) {
  printf("control.c: AF mode= %d\n", control.first);
  g_mfz.g_af_mode = control.first == LENS_AF_MODE_DAEMON ? AF_MODE_DAEMON : AF_MODE_MICOM;
  i2m_write(I2M_ADDR_AF_MODE, g_mfz.g_af_mode);
  const LensConfig config = ReadConfig();
  printf("g_antiflk_enable=%d, g_sensor_supported=%d\n", config.antiflicker,
         config.sensor_supported);
  Configure(config);
}

struct ControlRow {
  uint16_t code;
  void (*act)(const CameraControl& control);
};

constexpr std::array<ControlRow, 7> kControls = {{
    {CAMERA_CODE_FOCUS, OnFocus},
    {CAMERA_CODE_ZOOM, OnZoom},
    {CAMERA_CODE_IRIS_STEP, OnIris},
    {CAMERA_CODE_IRIS, OnIris},
    {CAMERA_CODE_FOCUS_SEARCH, OnStartAf},
    {CAMERA_CODE_ASSIST, OnAssist},
    {CAMERA_CODE_AF_MODE, OnAfMode},
}};

// --- The hooks of the pass ---------------------------------------------------------------------

int64_t OnPass(void* /*mode*/) {
  if (g_mfz.g_af_mode == AF_MODE_DAEMON) {
    focus_search_step();
    drive_step();
    return std::min(focus_search_wait_us(), drive_wait_us());
  }
  if (g_mfz.g_focus_value_stream != FOCUS_STREAM_ON) return MODE_PASS_NO_WORK;
  i2m_write(I2M_ADDR_FOCUS_VALUE, get_focus_value());
  return MODE_PASS_PACE_US;
}

void OnCameraControl(void* /*mode*/, const CameraControl& control) {
  const auto* row =
      std::find_if(kControls.begin(), kControls.end(),
                   [&control](const ControlRow& r) { return r.code == control.code; });
  if (row != kControls.end()) row->act(control);
}

// This mode does not write firmware itself: the device reboots into the new one.
void OnCommand(void* /*mode*/, int command) {
  if (command != CICOMM_PCMD_MICOM_FIRMWARE_UPDATE) return;
  printf("CICOMM_PCMD_MICOM_FIRMWARE_UPDATE\n");
  CSYSMGR_SendPacket(CSYSMGR_CODE_REBOOT, nullptr, 0);
  CUTIL_SleepUs(kRebootPauseUs);
  CUTIL_Reboot();
}

// The micom's request to start or stop the focus measures counts only if one read returned exactly
// that frame.
void NoteStreamRequest(std::span<const uint8_t> bytes) {
  constexpr std::array<uint8_t, 4> kRequest = {I2M_SYNC, I2M_WRITE, I2M_ADDR_FOCUS_VALUE_REQ, 0};
  if (bytes.size() != I2M_FRAME_SIZE) return;
  if (!std::equal(kRequest.begin(), kRequest.end(), bytes.begin())) return;
  if (bytes[I2M_LOW_AT] == 1) g_mfz.g_focus_value_stream = FOCUS_STREAM_ON;
  if (bytes[I2M_LOW_AT] == 0) g_mfz.g_focus_value_stream = FOCUS_STREAM_OFF;
}

void OnSerialBytes(void* /*mode*/, std::span<const uint8_t> bytes) {
  NoteStreamRequest(bytes);
  for (const uint8_t byte : bytes)
    i2m_parse_byte(byte);
}

constexpr ModeHooks kHooks = {.name = "motorized lens",
                              .periodic = OnPass,
                              .camera_control = OnCameraControl,
                              .command = OnCommand,
                              .serial_bytes = OnSerialBytes,
                              .sends_serial_data = false};

}  // namespace

int camd_a5s(Rs232Context* p_param) {
  if (p_param == nullptr) {
    printf("[%s] Error line[%d], reason('p_param' is NULL)\n", "camd_a5s", kNullParameterLine);
    return -1;
  }
  g_mfz.command = p_param->command;
  StartUp();
  ModePass pass;
  ModePassInit(&pass, p_param, &kHooks, nullptr);
  pass.Run(&pass);
  piris_stop_worker();
  return 0;
}
