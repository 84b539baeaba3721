#include "relay/ptz_tables.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

using enum PtzAction;
using enum PtzArgument;
using enum PtzStops;

// Preset numbers with a special meaning; setting preset 95 opens the menu of a head.
constexpr uint8_t kPresetMenu = 95;
constexpr uint8_t kPreset33 = 33;
constexpr uint8_t kPreset34 = 34;
constexpr uint8_t kPreset96 = 96;
constexpr uint8_t kPreset99 = 99;

// Pan and tilt speed for the direction codes, which have no speed parameter.
constexpr uint8_t kDirectionSpeed = 29;

constexpr uint16_t kShortStopMs = 100;
constexpr uint16_t kLongStopMs = 250;
constexpr uint16_t kPreStopMs = 50;

constexpr PelcoCommand kStop = {};
constexpr PelcoCommand kMenu = {0, PELCO_SET_PRESET, 0, kPresetMenu};
constexpr PelcoCommand kUp = {0, PELCO2_TILT_UP, 0, kDirectionSpeed};
constexpr PelcoCommand kDown = {0, PELCO2_TILT_DOWN, 0, kDirectionSpeed};
constexpr PelcoCommand kLeft = {0, PELCO2_PAN_LEFT, kDirectionSpeed, 0};
constexpr PelcoCommand kRight = {0, PELCO2_PAN_RIGHT, kDirectionSpeed, 0};
constexpr PelcoCommand kZoomTele = {0, PELCO2_ZOOM_TELE, 0, 0};
constexpr PelcoCommand kZoomWide = {0, PELCO2_ZOOM_WIDE, 0, 0};
constexpr PelcoCommand kFocusNear = {PELCO1_FOCUS_NEAR, 0, 0, 0};
constexpr PelcoCommand kFocusFar = {0, PELCO2_FOCUS_FAR, 0, 0};

// --- The tables ------------------------------------------------------------------------------

// QB-610: no stop frames and no speed; the head chooses its own speed.
constexpr auto kTableQb610 = std::to_array<PtzRow>({
    {CAMERA_CODE_MENU, kFrame, kMenu},
    {CAMERA_CODE_MENU_ENTER, kFrame, kMenu},
    {CAMERA_CODE_UP, kFrame, {0, PELCO2_TILT_UP, 0, 0}},
    {CAMERA_CODE_DOWN, kFrame, {0, PELCO2_TILT_DOWN, 0, 0}},
    {CAMERA_CODE_LEFT, kFrame, {0, PELCO2_PAN_LEFT, 0, 0}},
    {CAMERA_CODE_RIGHT, kFrame, {0, PELCO2_PAN_RIGHT, 0, 0}},
});

// QB-620: a full speed dome.
constexpr auto kTableQb620 = std::to_array<PtzRow>({
    {CAMERA_CODE_WHITE_BALANCE, kFrame, {0, PELCO_WHITE_BALANCE, 0, 0}, kParameter},
    {CAMERA_CODE_BACKLIGHT, kFrame, {0, PELCO_BACKLIGHT, 0, 0}, kParameter},
    {CAMERA_CODE_AUTO_IRIS, kFrame, {0, PELCO_AUTO_IRIS, 0, 0}, kParameter},
    {CAMERA_CODE_JOYSTICK, kJoystick},
    {CAMERA_CODE_ZOOM, kJoystick},
    {CAMERA_CODE_SET_PRESET, kFrame, {0, PELCO_SET_PRESET, 0, 0}, kParameter},
    {CAMERA_CODE_GO_TO_PRESET, kFrame, {0, PELCO_GO_TO_PRESET, 0, 0}, kParameter, kPreStop},
    {CAMERA_CODE_CLEAR_PRESET, kFrame, {0, PELCO_CLEAR_PRESET, 0, 0}, kParameter},
    {CAMERA_CODE_SET_PATTERN, kFrame, {0, PELCO_SET_PATTERN, 0, 0}, kParameter},
    {CAMERA_CODE_RUN_PATTERN, kFrame, {0, PELCO_RUN_PATTERN, 0, 0}, kParameter, kPreStop},
    {CAMERA_CODE_ZOOM_SPEED, kFrame, {0, PELCO_ZOOM_SPEED, 0, 0}, kSpeed},
    {CAMERA_CODE_FOCUS_SPEED, kFrame, {0, PELCO_FOCUS_SPEED, 0, 0}, kSpeed},
    {CAMERA_CODE_GO_TO_PRESET_33, kFrame, {0, PELCO_GO_TO_PRESET, 0, kPreset33}},
    {CAMERA_CODE_GO_TO_PRESET_34, kFrame, {0, PELCO_GO_TO_PRESET, 0, kPreset34}},
    {CAMERA_CODE_MENU, kFrame, kMenu, kFixed, kShortStop},
    {CAMERA_CODE_MENU_ENTER, kFrame, kMenu, kFixed, kShortStop},
    {CAMERA_CODE_FOCUS, kFocus},
    {CAMERA_CODE_UP, kFrame, kUp, kFixed, kShortStop},
    {CAMERA_CODE_DOWN, kFrame, kDown, kFixed, kShortStop},
    {CAMERA_CODE_LEFT, kFrame, kLeft, kFixed, kShortStop},
    {CAMERA_CODE_RIGHT, kFrame, kRight, kFixed, kShortStop},
    {CAMERA_CODE_SET_AUXILIARY, kFrame, {0, PELCO_SET_AUXILIARY, 0, 0}, kParameter},
    {CAMERA_CODE_CLEAR_AUXILIARY, kFrame, {0, PELCO_CLEAR_AUXILIARY, 0, 0}, kParameter},
    {CAMERA_CODE_GO_TO_PRESET_99, kFrame, {0, PELCO_GO_TO_PRESET, 0, kPreset99}, kFixed, kPreStop},
    {CAMERA_CODE_GO_TO_PRESET_96, kFrame, {0, PELCO_GO_TO_PRESET, 0, kPreset96}},
    {CAMERA_CODE_REMOTE_RESET, kFrame, {0, PELCO_REMOTE_RESET, 0, 0}},
});

// All other models.
constexpr auto kTableCommon = std::to_array<PtzRow>({
    {CAMERA_CODE_JOYSTICK, kZoom},
    {CAMERA_CODE_ZOOM, kZoom},
    {CAMERA_CODE_MENU, kFrame, kMenu, kFixed, kShortStop},
    {CAMERA_CODE_MENU_ENTER, kFrame, kMenu, kFixed, kShortStop},
    {CAMERA_CODE_FOCUS, kFocus},
    {CAMERA_CODE_UP, kFrame, kUp, kFixed, kShortStop},
    {CAMERA_CODE_DOWN, kFrame, kDown, kFixed, kShortStop},
    {CAMERA_CODE_LEFT, kFrame, kLeft, kFixed, kShortStop},
    {CAMERA_CODE_RIGHT, kFrame, kRight, kFixed, kShortStop},
});

constexpr auto kModels = std::to_array<PtzModel>({
    {"QB-610", kTableQb610},
    {"QB-620", kTableQb620},
});

// --- Sequences ---------------------------------------------------------------------------------

void Append(PtzSequence* sequence, uint16_t wait_ms, const PelcoCommand& command) {
  sequence->steps[static_cast<size_t>(sequence->count++)] = {.wait_ms = wait_ms,
                                                             .frame = PelcoBuild(command)};
}

void AppendLongStop(PtzSequence* sequence) {
  Append(sequence, 0, kStop);
  Append(sequence, kLongStopMs, kStop);
}

// Appends one of two directions by the sign of `value`; 0 appends a long stop.
void AppendBySign(PtzSequence* sequence, int value, const PelcoCommand& positive,
                  const PelcoCommand& negative) {
  if (value == 0) {
    AppendLongStop(sequence);
  } else {
    Append(sequence, 0, value > 0 ? positive : negative);
  }
}

// Speed step of the zoom and focus motors, 31 units each. Values from -30 to 30 give -1, sent as
// 0xFF; lower values give lower numbers, also modulo 256.
uint8_t MotorSpeed(int8_t value) {
  constexpr int kUnitsPerStep = 31;
  return static_cast<uint8_t>(value / kUnitsPerStep - 1);
}

uint8_t DataTwo(const PtzRow& row, const CameraControl& control) {
  switch (row.argument) {
    case kParameter:
      return static_cast<uint8_t>(control.first);
    case kSpeed:
      return MotorSpeed(control.first);
    case kFixed:
      break;
  }
  return row.frame.data2;
}

void AppendFrame(PtzSequence* sequence, const PtzRow& row, const CameraControl& control) {
  PelcoCommand command = row.frame;
  command.data2 = DataTwo(row, control);
  if (row.stops == kPreStop) Append(sequence, 0, kStop);
  Append(sequence, row.stops == kPreStop ? kPreStopMs : 0, command);
  if (row.stops == kShortStop) {
    Append(sequence, kShortStopMs, kStop);
    Append(sequence, kShortStopMs, kStop);
  }
}

// Scales a joystick axis (-128 to 127) to a Pelco speed: 0 remains 0, any other value gives 1 to
// 63.
uint8_t AxisSpeed(int8_t value) {
  constexpr int kAxisFull = 127;
  constexpr int kAxisSteps = 128;
  const int size = std::abs(static_cast<int>(value));
  if (size == 0) return 0;
  if (size == kAxisFull) return PELCO_SPEED_MAX;
  return static_cast<uint8_t>(std::max(size * PELCO_SPEED_MAX / kAxisSteps, 1));
}

uint8_t AxisBit(int8_t value, uint8_t positive, uint8_t negative) {
  if (value == 0) return PELCO_NO_BITS;
  return value > 0 ? positive : negative;
}

void AppendJoystick(PtzSequence* sequence, const CameraControl& control) {
  const int8_t pan = control.first;
  const int8_t tilt = control.second;
  const int8_t zoom = control.third;
  if (pan == 0 && tilt == 0 && zoom == 0) {
    AppendLongStop(sequence);
    return;
  }
  if (pan != 0 || tilt != 0) {
    const uint8_t pan_bit = AxisBit(pan, PELCO2_PAN_RIGHT, PELCO2_PAN_LEFT);
    const uint8_t tilt_bit = AxisBit(tilt, PELCO2_TILT_UP, PELCO2_TILT_DOWN);
    Append(sequence, 0,
           {.command1 = 0,
            .command2 = static_cast<uint8_t>(pan_bit | tilt_bit),
            .data1 = AxisSpeed(pan),
            .data2 = AxisSpeed(tilt)});
  }
  if (zoom != 0) Append(sequence, 0, zoom > 0 ? kZoomTele : kZoomWide);
}

}  // namespace

std::span<const PtzModel> PtzModels() {
  return kModels;
}

std::span<const PtzRow> PtzTableForModel(const char* model) {
  for (const PtzModel& own : kModels) {
    if (strcmp(model, own.name) == 0) return own.table;
  }
  return kTableCommon;
}

PtzSequence PtzTranslate(std::span<const PtzRow> table, const CameraControl& control) {
  PtzSequence sequence = {};
  const auto row = std::find_if(table.begin(), table.end(), [&control](const PtzRow& candidate) {
    return candidate.code == control.code;
  });
  if (row == table.end()) return sequence;
  switch (row->action) {
    case kFrame:
      AppendFrame(&sequence, *row, control);
      break;
    case kZoom:
      AppendBySign(&sequence, control.third, kZoomTele, kZoomWide);
      break;
    case kFocus:
      AppendBySign(&sequence, control.first, kFocusNear, kFocusFar);
      break;
    case kJoystick:
      AppendJoystick(&sequence, control);
      break;
  }
  return sequence;
}
