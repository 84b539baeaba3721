#include "tools/ptz_verbs.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "lens/control.h"
#include "module/hd_frame.h"
#include "relay/ptz_tables.h"

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

// What moves until it is stopped has the code that stops it. A key is a tap that the device ends
// by itself, but for QB-610, where it turns the head and no code ends it.
constexpr uint16_t kJoystick = CAMERA_CODE_JOYSTICK;
constexpr uint16_t kZoom = CAMERA_CODE_ZOOM;

// clang-format off
constexpr auto kVerbs = std::to_array<PtzVerb>({
    {"pan-left", kMotion, kHeads, kJoystick, {-1, 0, 0}, kSpeed, kJoystick,
     "--speed 40 --for 500ms", "pan left until stopped"},
    {"pan-right", kMotion, kHeads, kJoystick, {1, 0, 0}, kSpeed, kJoystick,
     "--for 1.5s", "pan right until stopped"},
    {"tilt-up", kMotion, kHeads, kJoystick, {0, 1, 0}, kSpeed, kJoystick,
     "--speed 127 --for 2s", "tilt up until stopped"},
    {"tilt-down", kMotion, kHeads, kJoystick, {0, -1, 0}, kSpeed, kJoystick,
     "--for 500ms", "tilt down until stopped"},
    {"move", kMotion, kHeads, kJoystick, {}, kMove, kJoystick,
     "-40 20 0 --for 1s",
     "move as a joystick does until stopped: left or right, down or up, wide or tele; all 0 "
     "stops; only QB-620 pans and tilts"},
    {"zoom-tele", kMotion, kZoomers, kZoom, {0, 0, 1}, kSpeed, kZoom,
     "--for 2s", "zoom in until stopped; lens devices alone heed the speed"},
    {"zoom-wide", kMotion, kZoomers, kZoom, {0, 0, -1}, kSpeed, kZoom,
     "--for 2s", "zoom out until stopped; lens devices alone heed the speed"},
    {"zoom-speed", kMotion, kHeads, CAMERA_CODE_ZOOM_SPEED, {}, kNumber, NO_STOP_CODE,
     "93", "speed of the zoom motor in steps of 31, slowest 31, fastest 124", PARAMETER_MIN,
     AXIS_MAX},
    {"stop", kMotion, MODES_ALL, kZoom, {}, kNone, NO_STOP_CODE, "", "stop all motion"},

    {"focus-near", kFocus, kFocusers, CAMERA_CODE_FOCUS, {1, 0, 0}, kSpeed, CAMERA_CODE_FOCUS,
     "--for 300ms", "focus near until stopped; lens devices alone heed the speed"},
    {"focus-far", kFocus, kFocusers, CAMERA_CODE_FOCUS, {-1, 0, 0}, kSpeed, CAMERA_CODE_FOCUS,
     "--for 300ms", "focus far until stopped; lens devices alone heed the speed"},
    {"focus-speed", kFocus, kHeads, CAMERA_CODE_FOCUS_SPEED, {}, kNumber, NO_STOP_CODE,
     "31", "speed of the focus motor in steps of 31, slowest 31, fastest 124", PARAMETER_MIN,
     AXIS_MAX},
    {"iris-open", kFocus, MODE_LENS, CAMERA_CODE_IRIS, {1, 0, 0}, kNone, NO_STOP_CODE,
     "", "open the iris by a step"},
    {"iris-close", kFocus, MODE_LENS, CAMERA_CODE_IRIS, {-1, 0, 0}, kNone, NO_STOP_CODE,
     "", "close the iris by a step"},
    {"iris-step open", kFocus, MODE_LENS, CAMERA_CODE_IRIS_STEP, {1, 0, 0}, kNone, NO_STOP_CODE,
     "", "as iris-open, by the code for single steps"},
    {"iris-step close", kFocus, MODE_LENS, CAMERA_CODE_IRIS_STEP, {-1, 0, 0}, kNone, NO_STOP_CODE,
     "", "as iris-close, by the code for single steps"},
    {"auto-iris", kFocus, kHeads, CAMERA_CODE_AUTO_IRIS, {}, kNumber, NO_STOP_CODE,
     "1", "set the auto iris of the head to N", 0, kByteMax},
    {"af-start", kFocus, MODE_HD | MODE_LENS, CAMERA_CODE_FOCUS_SEARCH, {}, kNone, NO_STOP_CODE,
     "", "search for the sharpest focus once"},
    {"assist", kFocus, MODE_LENS, CAMERA_CODE_ASSIST, {}, kNone, NO_STOP_CODE,
     "", "the 'F' button: find the lens's place and its focus anew"},
    {"af-mode daemon", kFocus, MODE_LENS, CAMERA_CODE_AF_MODE, {LENS_AF_MODE_DAEMON, 0, 0}, kNone,
     NO_STOP_CODE, "", "the daemon drives zoom and focus"},
    {"af-mode micom", kFocus, MODE_LENS, CAMERA_CODE_AF_MODE, {kMicomMode, 0, 0}, kNone,
     NO_STOP_CODE, "", "the lens's microcontroller drives zoom and focus"},

    {"menu", kMenu, kKeyed, CAMERA_CODE_MENU, {}, kNone, NO_STOP_CODE,
     "", "open the menu, or enter what is chosen"},
    {"menu-enter", kMenu, kKeyed, CAMERA_CODE_MENU_ENTER, {}, kNone, NO_STOP_CODE,
     "", "enter what is chosen in the menu"},
    {"up", kMenu, kKeyed, CAMERA_CODE_UP, {}, kNone, kZoom,
     "", "key up, a short tilt; QB-610 goes on until stopped"},
    {"down", kMenu, kKeyed, CAMERA_CODE_DOWN, {}, kNone, kZoom,
     "--for 500ms", "key down, a short tilt; QB-610 goes on until stopped"},
    {"left", kMenu, kKeyed, CAMERA_CODE_LEFT, {}, kNone, kZoom,
     "--for 500ms", "key left, a short pan; QB-610 goes on until stopped"},
    {"right", kMenu, kKeyed, CAMERA_CODE_RIGHT, {}, kNone, kZoom,
     "", "key right, a short pan; QB-610 goes on until stopped"},

    {"preset set", kPresets, kHeads, CAMERA_CODE_SET_PRESET, {}, kNumber, NO_STOP_CODE,
     "5", "keep where the head looks as preset N", 0, kByteMax},
    {"preset go", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET, {}, kNumber, NO_STOP_CODE,
     "5", "turn the head to preset N", 0, kByteMax},
    {"preset clear", kPresets, kHeads, CAMERA_CODE_CLEAR_PRESET, {}, kNumber, NO_STOP_CODE,
     "5", "forget preset N", 0, kByteMax},
    {"preset-33", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_33, {}, kNone, NO_STOP_CODE,
     "", "go to preset 33 by a code of its own"},
    {"preset-34", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_34, {}, kNone, NO_STOP_CODE,
     "", "go to preset 34 by a code of its own"},
    {"preset-96", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_96, {}, kNone, NO_STOP_CODE,
     "", "go to preset 96 by a code of its own"},
    {"preset-99", kPresets, kHeads, CAMERA_CODE_GO_TO_PRESET_99, {}, kNone, NO_STOP_CODE,
     "", "go to preset 99 by a code of its own"},
    {"pattern set", kPresets, kHeads, CAMERA_CODE_SET_PATTERN, {}, kNumber, NO_STOP_CODE,
     "1", "start to record pattern N", 0, kByteMax},
    {"pattern run", kPresets, kHeads, CAMERA_CODE_RUN_PATTERN, {}, kNumber, NO_STOP_CODE,
     "1", "run pattern N", 0, kByteMax},

    {"white-balance", kDevice, kHeads, CAMERA_CODE_WHITE_BALANCE, {}, kNumber, NO_STOP_CODE,
     "1", "set the auto white balance to N", 0, kByteMax},
    {"backlight", kDevice, kHeads, CAMERA_CODE_BACKLIGHT, {}, kNumber, NO_STOP_CODE,
     "1", "set the backlight compensation to N", 0, kByteMax},
    {"aux set", kDevice, kHeads, CAMERA_CODE_SET_AUXILIARY, {}, kNumber, NO_STOP_CODE,
     "2", "switch auxiliary output N on", 0, kByteMax},
    {"aux clear", kDevice, kHeads, CAMERA_CODE_CLEAR_AUXILIARY, {}, kNumber, NO_STOP_CODE,
     "2", "switch auxiliary output N off", 0, kByteMax},
    {"module-setting", kDevice, MODE_HD, CAMERA_CODE_MODULE_SETTING, {}, kNumber, NO_STOP_CODE,
     "5", "hand the value N to the module", 0, kSettingMax},
    {"remote-reset", kDevice, kHeads, CAMERA_CODE_REMOTE_RESET, {}, kNone, NO_STOP_CODE,
     "", "reset the head"},
    {"code", kDevice, MODES_ALL, 0, {}, kCode, NO_STOP_CODE,
     "2001 -1 0 0", "any control code, in hexadecimal, with up to three parameters"},
});
// clang-format on

constexpr CameraControl Control(uint16_t code) {
  return {.target = CAMERA_CONTROL_TARGET, .code = code, .first = 0, .second = 0, .third = 0};
}

// A verb that could do no more than stop the head is not answered.
bool TableAnswers(std::span<const PtzRow> table, const PtzVerb& verb) {
  const bool has_numbers = verb.arguments == kNumber || verb.arguments == kMove;
  VerbValues values;
  if (has_numbers) values.numbers.assign(PARAMETER_COUNT, 1);
  const PtzSequence sequence = PtzTranslate(table, VerbControl(verb, values));
  return std::any_of(sequence.steps.begin(), sequence.steps.begin() + sequence.count,
                     [](const PtzStep& step) { return step.frame != PelcoBuild({}); });
}

// What a relayed model without a table of its own may be called.
constexpr char kCommonHead[] = "";

constexpr std::array kOtherModes = {MODE_SD, MODE_HD, MODE_LENS};

}  // namespace

std::span<const PtzVerb> PtzVerbs() {
  return kVerbs;
}

const PtzVerb& PtzStopVerb() {
  static constexpr const PtzVerb* kStop = [] {
    const PtzVerb* verb = kVerbs.data();
    while (std::string_view(verb->name) != "stop")
      ++verb;
    return verb;
  }();
  return *kStop;
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

std::string AnsweringDevicesText(const PtzVerb& verb) {
  const bool is_common = Answers(kCommonHead, verb);
  std::string exceptions;
  for (const PtzModel& own : PtzModels()) {
    if (Answers(own.name, verb) == is_common) continue;
    exceptions += (exceptions.empty() ? "" : ", ") + std::string(own.name);
  }
  std::string text = is_common ? "relay" : "";
  if (!exceptions.empty()) text = (is_common ? "relay (not " : "relay (") + exceptions + ")";
  for (const DeviceMode mode : kOtherModes) {
    if ((verb.modes & mode) != 0) text += (text.empty() ? "" : ", ") + std::string(ModeName(mode));
  }
  return text;
}

const char* ArgumentsText(VerbArguments arguments) {
  constexpr std::array<const char*, 5> kTexts = {"", "[--speed N]", "N", "PAN TILT ZOOM",
                                                 "HEX [P1 [P2 [P3]]]"};
  return kTexts[static_cast<size_t>(arguments)];
}

CameraControl VerbControl(const PtzVerb& verb, const VerbValues& values) {
  CameraControl control =
      Control(verb.arguments == kCode ? static_cast<uint16_t>(values.code) : verb.code);
  const std::array<int8_t*, PARAMETER_COUNT> places = {&control.first, &control.second,
                                                       &control.third};
  const int factor = verb.arguments == kSpeed ? values.speed : 1;
  for (size_t i = 0; i < PARAMETER_COUNT; ++i) {
    const bool is_given = i < values.numbers.size();
    const int value = is_given ? values.numbers[i] : verb.parameters[i] * factor;
    *places[i] = static_cast<int8_t>(value);
  }
  return control;
}

std::vector<CameraControl> StopControls(const PtzVerb& verb) {
  // A lens keeps a request for each of its two motors.
  if (&verb == &PtzStopVerb()) return {Control(CAMERA_CODE_ZOOM), Control(CAMERA_CODE_FOCUS)};
  if (verb.stop_code == NO_STOP_CODE) return {};
  return {Control(verb.stop_code)};
}

}  // namespace tools
