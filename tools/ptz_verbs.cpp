#include "tools/ptz_verbs.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "lens/control.h"
#include "module/hd_frame.h"
#include "relay/ptz_tables.h"
#include "tools/format.h"

namespace tools {

namespace {

using enum VerbArguments;

constexpr char kMotion[] = "Pan, tilt and zoom";
constexpr char kFocus[] = "Focus and iris";
constexpr char kMenu[] = "Menu and keys";
constexpr char kPresets[] = "Presets and patterns";
constexpr char kDevice[] = "Picture and device";

constexpr uint8_t kHeads = 0;
constexpr uint8_t kZoomers = MODE_SD | MODE_HD | MODE_LENS;
constexpr uint8_t kFocusers = MODE_HD | MODE_LENS;
constexpr uint8_t kKeyed = MODE_SD | MODE_HD;

constexpr int8_t kMicomMode = 0;
constexpr int kByteMax = 255;
constexpr int kSettingMax = HD_NO_VALUE - 1;  // the last value is "no value"

// Codes that stop a motion.
constexpr uint16_t kJoystick = CAMERA_CODE_JOYSTICK;
constexpr uint16_t kZoom = CAMERA_CODE_ZOOM;

// A motion with a speed: the parameters are its signs.
constexpr PtzVerb Motion(const char* name, const char* group, uint8_t modes, uint16_t code,
                         std::array<int8_t, PARAMETER_COUNT> signs, const char* example,
                         const char* help) {
  return {name, group, modes, code, signs, kSpeed, code, example, help};
}

// A code with fixed parameters.
constexpr PtzVerb Fixed(const char* name, const char* group, uint8_t modes, uint16_t code,
                        const char* help, int8_t first = 0) {
  return {name, group, modes, code, {first, 0, 0}, kNone, NO_STOP_CODE, "", help};
}

// A key. On QB-610 it acts until it is stopped.
constexpr PtzVerb Key(const char* name, uint16_t code, const char* help) {
  return {name, kMenu, kKeyed, code, {}, kNone, kZoom, "--for 500ms", help};
}

// A code with a number.
constexpr PtzVerb Number(const char* name, const char* group, uint16_t code, const char* example,
                         const char* help, uint8_t modes = kHeads, int low = 0,
                         int high = kByteMax) {
  return {name, group, modes, code, {}, kNumber, NO_STOP_CODE, example, help, low, high};
}

// clang-format off
constexpr auto kVerbs = std::to_array<PtzVerb>({
    Motion("pan-left", kMotion, kHeads, kJoystick, {-1, 0, 0}, "--speed 40 --for 500ms",
           "pan left until stopped"),
    Motion("pan-right", kMotion, kHeads, kJoystick, {1, 0, 0}, "--for 1.5s",
           "pan right until stopped"),
    Motion("tilt-up", kMotion, kHeads, kJoystick, {0, 1, 0}, "--speed 127 --for 2s",
           "tilt up until stopped"),
    Motion("tilt-down", kMotion, kHeads, kJoystick, {0, -1, 0}, "--for 500ms",
           "tilt down until stopped"),
    {"move", kMotion, kHeads, kJoystick, {}, kMove, kJoystick, "-40 20 0 --for 1s",
     "move like a joystick until stopped: pan, tilt and zoom; 0 0 0 stops; only QB-620 pans and "
     "tilts", PARAMETER_MIN, AXIS_MAX},
    Motion("zoom-tele", kMotion, kZoomers, kZoom, {0, 0, 1}, "--for 2s",
           "zoom in until stopped; only lens devices use the speed"),
    Motion("zoom-wide", kMotion, kZoomers, kZoom, {0, 0, -1}, "--for 2s",
           "zoom out until stopped; only lens devices use the speed"),
    Number("zoom-speed", kMotion, CAMERA_CODE_ZOOM_SPEED, "93",
           "set the speed of the zoom motor: slowest 31, fastest 124, in steps of 31", kHeads,
           PARAMETER_MIN, AXIS_MAX),
    Fixed("stop", kMotion, MODES_ALL, kZoom, "stop all motion"),

    Motion("focus-near", kFocus, kFocusers, CAMERA_CODE_FOCUS, {1, 0, 0}, "--for 300ms",
           "focus near until stopped; only lens devices use the speed"),
    Motion("focus-far", kFocus, kFocusers, CAMERA_CODE_FOCUS, {-1, 0, 0}, "--for 300ms",
           "focus far until stopped; only lens devices use the speed"),
    Number("focus-speed", kFocus, CAMERA_CODE_FOCUS_SPEED, "31",
           "set the speed of the focus motor: slowest 31, fastest 124, in steps of 31", kHeads,
           PARAMETER_MIN, AXIS_MAX),
    Fixed("iris-open", kFocus, MODE_LENS, CAMERA_CODE_IRIS, "open the iris by one step", 1),
    Fixed("iris-close", kFocus, MODE_LENS, CAMERA_CODE_IRIS, "close the iris by one step", -1),
    Fixed("iris-step open", kFocus, MODE_LENS, CAMERA_CODE_IRIS_STEP,
          "like iris-open, with the code for single steps", 1),
    Fixed("iris-step close", kFocus, MODE_LENS, CAMERA_CODE_IRIS_STEP,
          "like iris-close, with the code for single steps", -1),
    Number("auto-iris", kFocus, CAMERA_CODE_AUTO_IRIS, "1", "set the auto iris of the head to N"),
    Fixed("af-start", kFocus, kFocusers, CAMERA_CODE_FOCUS_SEARCH,
          "search for the sharpest focus once"),
    Fixed("assist", kFocus, MODE_LENS, CAMERA_CODE_ASSIST,
          "like the 'F' button: reset the motors, then search for the sharpest focus"),
    Fixed("af-mode daemon", kFocus, MODE_LENS, CAMERA_CODE_AF_MODE,
          "the daemon drives zoom and focus", LENS_AF_MODE_DAEMON),
    Fixed("af-mode micom", kFocus, MODE_LENS, CAMERA_CODE_AF_MODE,
          "the lens's microcontroller drives zoom and focus", kMicomMode),

    Fixed("menu", kMenu, kKeyed, CAMERA_CODE_MENU, "open the menu, or select the current entry"),
    Fixed("menu-enter", kMenu, kKeyed, CAMERA_CODE_MENU_ENTER,
          "select the current entry of the menu"),
    Key("up", CAMERA_CODE_UP, "key up, or a short tilt; QB-610 moves until stopped"),
    Key("down", CAMERA_CODE_DOWN, "key down, or a short tilt; QB-610 moves until stopped"),
    Key("left", CAMERA_CODE_LEFT, "key left, or a short pan; QB-610 moves until stopped"),
    Key("right", CAMERA_CODE_RIGHT, "key right, or a short pan; QB-610 moves until stopped"),

    Number("preset set", kPresets, CAMERA_CODE_SET_PRESET, "5",
           "store the position as preset N"),
    Number("preset go", kPresets, CAMERA_CODE_GO_TO_PRESET, "5", "go to preset N"),
    Number("preset clear", kPresets, CAMERA_CODE_CLEAR_PRESET, "5", "clear preset N"),
    Fixed("preset-33", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_33,
          "go to preset 33 with a code of its own"),
    Fixed("preset-34", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_34,
          "go to preset 34 with a code of its own"),
    Fixed("preset-96", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_96,
          "go to preset 96 with a code of its own"),
    Fixed("preset-99", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_99,
          "go to preset 99 with a code of its own"),
    Number("pattern set", kPresets, CAMERA_CODE_SET_PATTERN, "1", "start to record pattern N"),
    Number("pattern run", kPresets, CAMERA_CODE_RUN_PATTERN, "1", "run pattern N"),

    Number("white-balance", kDevice, CAMERA_CODE_WHITE_BALANCE, "1",
           "set the auto white balance to N"),
    Number("backlight", kDevice, CAMERA_CODE_BACKLIGHT, "1", "set the backlight compensation to N"),
    Number("aux set", kDevice, CAMERA_CODE_SET_AUXILIARY, "2", "switch auxiliary output N on"),
    Number("aux clear", kDevice, CAMERA_CODE_CLEAR_AUXILIARY, "2", "switch auxiliary output N off"),
    Number("module-setting", kDevice, CAMERA_CODE_MODULE_SETTING, "5",
           "send setting N to the module", MODE_HD, 0, kSettingMax),
    Fixed("remote-reset", kDevice, kHeads, CAMERA_CODE_REMOTE_RESET, "reset the head"),
    {"code", kDevice, MODES_ALL, 0, {}, kCode, NO_STOP_CODE, "2001 -1 0 0",
     "send any control code (hexadecimal) with up to three parameters", PARAMETER_MIN,
     PARAMETER_MAX},
});
// clang-format on

constexpr CameraControl Control(uint16_t code) {
  return {.target = CAMERA_CONTROL_TARGET, .code = code, .first = 0, .second = 0, .third = 0};
}

// Returns true if the code does more on this head than stop it.
bool TableAnswers(std::span<const PtzRow> table, const PtzVerb& verb) {
  VerbValues values;
  if (verb.arguments == kNumber || verb.arguments == kMove) values.numbers.fill(1);
  const PtzSequence sequence = PtzTranslate(table, VerbControl(verb, values));
  return std::any_of(sequence.steps.begin(), sequence.steps.begin() + sequence.count,
                     [](const PtzStep& step) { return step.frame != PelcoBuild({}); });
}

// A model name without a table of its own.
constexpr char kCommonHead[] = "";

constexpr std::array kOtherModes = {MODE_SD, MODE_HD, MODE_LENS};

}  // namespace

std::span<const PtzVerb> PtzVerbs() {
  return kVerbs;
}

const PtzVerb& PtzStopVerb() {
  return *std::ranges::find(kVerbs, std::string_view("stop"), &PtzVerb::name);
}

bool Answers(const std::string& model, const PtzVerb& verb) {
  const DeviceMode mode = ModeOfModel(model);
  if ((verb.modes & mode) != 0) return true;
  return mode == MODE_RELAY && TableAnswers(PtzTableForModel(model.c_str()), verb);
}

bool IsStoppedByFrame(const std::string& model) {
  return ModeOfModel(model) == MODE_RELAY &&
         PtzTranslate(PtzTableForModel(model.c_str()), Control(kZoom)).count == 0;
}

std::vector<std::string> AnsweringDevices(const PtzVerb& verb) {
  std::vector<std::string> names;
  if (Answers(kCommonHead, verb)) names.emplace_back("relay");
  for (const PtzModel& own : PtzModels()) {
    if (Answers(own.name, verb)) names.emplace_back(own.name);
  }
  for (const DeviceMode mode : kOtherModes) {
    if ((verb.modes & mode) != 0) names.emplace_back(ModeName(mode));
  }
  return names;
}

const char* ArgumentsText(VerbArguments arguments) {
  constexpr const char* kTexts[] = {"", "[--speed N]", "N", "PAN TILT ZOOM", "HEX [P1 [P2 [P3]]]"};
  return kTexts[static_cast<size_t>(arguments)];
}

CameraControl VerbControl(const PtzVerb& verb, const VerbValues& values) {
  CameraControl control =
      Control(verb.arguments == kCode ? static_cast<uint16_t>(values.code) : verb.code);
  const std::array<int8_t*, PARAMETER_COUNT> places = {&control.first, &control.second,
                                                       &control.third};
  const int factor = verb.arguments == kSpeed ? values.speed : 1;
  for (size_t i = 0; i < PARAMETER_COUNT; ++i)
    *places[i] = static_cast<int8_t>(values.numbers[i].value_or(verb.parameters[i] * factor));
  return control;
}

std::string VerbText(const CameraControl& control) {
  const std::array<int, PARAMETER_COUNT> parameters = {control.first, control.second,
                                                       control.third};
  const auto [first, second, third] = parameters;
  for (const PtzVerb& verb : kVerbs) {
    if (verb.code != control.code) continue;
    if (verb.arguments == kMove) return Format("%s %d %d %d", verb.name, first, second, third);
    if (verb.arguments == kNumber) {
      return Format("%s %d", verb.name, verb.low < 0 ? first : control.first & kByteMax);
    }
    const bool is_fixed = verb.arguments == kNone;
    const auto matches = [is_fixed](int given, int of_row) {
      const int sign = static_cast<int>(given > 0) - static_cast<int>(given < 0);
      return (is_fixed ? given : sign) == of_row;
    };
    if (!std::ranges::equal(parameters, verb.parameters, matches)) continue;
    const int speed = std::abs(first) + std::abs(second) + std::abs(third);  // one of them
    return is_fixed ? verb.name : Format("%s --speed %d", verb.name, speed);
  }
  return Format("code %04X %d %d %d", control.code, first, second, third);
}

std::vector<CameraControl> StopControls(const PtzVerb& verb) {
  // A lens keeps one request for each of its two motors.
  if (&verb == &PtzStopVerb()) return {Control(CAMERA_CODE_ZOOM), Control(CAMERA_CODE_FOCUS)};
  if (verb.stop_code == NO_STOP_CODE) return {};
  return {Control(verb.stop_code)};
}

}  // namespace tools
