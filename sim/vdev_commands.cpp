#include "sim/vdev_commands.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <sstream>
#include <vector>

#include "sim/far_end_models.h"
#include "sim/peers.h"
#include "tools/parse.h"

namespace sim {
namespace {

// Bytes that the demonstration sends each way.
constexpr char kClientText[] = "hello from a PTZ client";
constexpr char kUdpText[] = "hello from a local process";
constexpr char kFarEndText[] = "hello from the far end";

// --- Camera control ----------------------------------------------------------------------------

// Where the numbers that follow a word go.
enum class Arguments { kNone, kFirst, kThree };

struct ControlRow {
  const char* word;
  CameraControl control;  // target and defaults of the parameters included
  Arguments arguments;
  const char* help;
};

constexpr std::array<ControlRow, 14> kControls = {{
    {"left", Control(CAMERA_CODE_LEFT), Arguments::kNone, "key left"},
    {"right", Control(CAMERA_CODE_RIGHT), Arguments::kNone, "key right"},
    {"up", Control(CAMERA_CODE_UP), Arguments::kNone, "key up"},
    {"down", Control(CAMERA_CODE_DOWN), Arguments::kNone, "key down"},
    {"menu", Control(CAMERA_CODE_MENU), Arguments::kNone,
     "open the menu (heads and SD modules: preset 95)"},
    {"in", Control(CAMERA_CODE_ZOOM, 0, 0, 1), Arguments::kNone, "zoom in until stop"},
    {"out", Control(CAMERA_CODE_ZOOM, 0, 0, -1), Arguments::kNone, "zoom out until stop"},
    {"near", Control(CAMERA_CODE_FOCUS, 1), Arguments::kNone, "focus near until stop"},
    {"far", Control(CAMERA_CODE_FOCUS, -1), Arguments::kNone, "focus far until stop"},
    {"search", Control(CAMERA_CODE_FOCUS_SEARCH), Arguments::kNone,
     "search for the sharpest focus (QB-3xx, QB-4xx)"},
    {"move", Control(CAMERA_CODE_JOYSTICK), Arguments::kThree,
     "PAN TILT ZOOM: joystick, -128 to 127 (QB-620; others: zoom only)"},
    {"preset", Control(CAMERA_CODE_SET_PRESET), Arguments::kFirst, "N: set preset N (QB-620)"},
    {"goto", Control(CAMERA_CODE_GO_TO_PRESET), Arguments::kFirst, "N: go to preset N (QB-620)"},
    {"clear", Control(CAMERA_CODE_CLEAR_PRESET), Arguments::kFirst, "N: clear preset N (QB-620)"},
}};

// Parameters travel as bytes: -128 to 127, or the same bytes as 128 to 255.
bool ParseParameter(const std::string& text, int8_t* value) {
  const auto number = tools::ParseNumber(text, SCHAR_MIN, UCHAR_MAX);
  *value = static_cast<int8_t>(number.value_or(0));
  return number.has_value();
}

bool FillParameters(const std::vector<std::string>& texts, size_t count, CameraControl* control) {
  const std::array<int8_t*, 3> places = {&control->first, &control->second, &control->third};
  if (texts.size() != count) return false;
  for (size_t i = 0; i < count; ++i) {
    if (!ParseParameter(texts[i], places[i])) return false;
  }
  return true;
}

size_t CountOf(Arguments arguments) {
  switch (arguments) {
    case Arguments::kNone:
      return 0;
    case Arguments::kFirst:
      return 1;
    case Arguments::kThree:
      return 3;
  }
  return 0;
}

CommandResult RunControl(const ControlRow& row, const std::vector<std::string>& texts,
                         VirtualDevice* device) {
  CameraControl control = row.control;
  if (!FillParameters(texts, CountOf(row.arguments), &control)) {
    device->Note(std::string("usage: ") + row.word + " " + row.help);
    return CommandResult::kBad;
  }
  device->SendControl(control);
  return CommandResult::kDone;
}

// "code HEX [P1 [P2 [P3]]]": any control code.
CommandResult RunCode(const std::vector<std::string>& texts, VirtualDevice* device) {
  CameraControl control = Control(0);
  constexpr size_t kMost = 4;
  std::optional<int> code;
  if (!texts.empty()) code = tools::ParseHexNumber(texts[0], UINT16_MAX);
  if (!code.has_value() || texts.size() > kMost ||
      !FillParameters({texts.begin() + 1, texts.end()}, texts.size() - 1, &control)) {
    device->Note("usage: code HEX [P1 [P2 [P3]]], e.g. code 2007");
    return CommandResult::kBad;
  }
  control.code = static_cast<uint16_t>(*code);
  device->SendControl(control);
  return CommandResult::kDone;
}

CommandResult RunStop(VirtualDevice* device) {
  for (const KeyAction& action : StopOfModel(device->Config().model))
    SendAction(action, device);
  return CommandResult::kDone;
}

// --- Firmware ----------------------------------------------------------------------------------

// "update [BYTES]": a firmware image of that size, then the command.
CommandResult RunUpdate(const std::vector<std::string>& texts, VirtualDevice* device) {
  constexpr int kMost = 1'000'000;
  std::optional<int> size = 3000;
  if (!texts.empty()) size = tools::ParseNumber(texts[0], 0, kMost);
  if (texts.size() > 1 || !size.has_value()) {
    device->Note("usage: update [BYTES], at most " + std::to_string(kMost));
    return CommandResult::kBad;
  }
  device->UpdateFirmware(static_cast<size_t>(*size));
  return CommandResult::kDone;
}

// --- Raw bytes ---------------------------------------------------------------------------------

struct RawRow {
  const char* word;
  void (VirtualDevice::*send)(const std::string& text);
  const char* help;
};

constexpr std::array<RawRow, 3> kRaw = {{
    {"tcp", &VirtualDevice::SendRawByClient, "TEXT: bytes from a PTZ client to the line"},
    {"udp", &VirtualDevice::SendRawByUdp, "TEXT: bytes from a local process to the line"},
    {"say", &VirtualDevice::SendFromFarEnd, "TEXT: bytes from the far end"},
}};

// "WORD   HELP", the words in a column.
std::string HelpLine(const char* word, const char* help) {
  constexpr size_t kWordWidth = 6;
  std::string padded = word;
  padded.resize(std::max(padded.size(), kWordWidth), ' ');
  return padded + " " + help;
}

// --- Scripts -----------------------------------------------------------------------------------

using std::chrono::milliseconds;

// A head behind a common model: arrow keys are short taps.
constexpr std::array<ScriptStep, 8> kHeadDemo = {{
    {"right", milliseconds(600)},
    {"up", milliseconds(600)},
    {"in", milliseconds(900)},
    {"stop", milliseconds(500)},
    {"menu", milliseconds(500)},
    {"tcp hello from a PTZ client", milliseconds(200)},
    {"udp hello from a local process", milliseconds(200)},
    {"say hello from the far end", milliseconds(200)},
}};

// A speed dome: joystick, presets.
constexpr std::array<ScriptStep, 11> kDomeDemo = {{
    {"move 40 -20 0", milliseconds(1200)},
    {"stop", milliseconds(500)},
    {"in", milliseconds(900)},
    {"stop", milliseconds(500)},
    {"preset 5", milliseconds(300)},
    {"move -90 0 0", milliseconds(900)},
    {"stop", milliseconds(500)},
    {"goto 5", milliseconds(400)},
    {"tcp hello from a PTZ client", milliseconds(200)},
    {"udp hello from a local process", milliseconds(200)},
    {"say hello from the far end", milliseconds(200)},
}};

// An SD module: the menu is opened, changed and left.
constexpr std::array<ScriptStep, 13> kSdModuleDemo = {{
    {"menu", milliseconds(200)},
    {"down", milliseconds(200)},
    {"right", milliseconds(200)},
    {"down", milliseconds(200)},
    {"down", milliseconds(200)},
    {"menu", milliseconds(200)},
    {"in", milliseconds(900)},
    {"stop", milliseconds(300)},
    {"out", milliseconds(400)},
    {"stop", milliseconds(300)},
    {"tcp hello from a PTZ client", milliseconds(200)},
    {"udp hello from a local process", milliseconds(200)},
    {"say hello from the far end", milliseconds(200)},
}};

// An HD module. The daemon gives the system ten seconds between the update and the reboot.
constexpr std::array<ScriptStep, 12> kHdModuleDemo = {{
    {"menu", milliseconds(200)},
    {"up", milliseconds(200)},
    {"menu", milliseconds(200)},
    {"in", milliseconds(900)},
    {"stop", milliseconds(300)},
    {"near", milliseconds(500)},
    {"stop", milliseconds(300)},
    {"code 1202", milliseconds(700)},
    {"tcp hello from a PTZ client", milliseconds(200)},
    {"udp hello from a local process", milliseconds(200)},
    {"say hello from the far end", milliseconds(200)},
    {"update", milliseconds(30'000)},
}};

// A motorized lens. The focus follows the zoom; the stop starts a search, and so does the word.
constexpr std::array<ScriptStep, 7> kLensDemo = {{
    {"wait", milliseconds(2000)},  // for the start-up
    {"code 2002 0 0 -89", milliseconds(1200)},
    {"stop", milliseconds(2500)},
    {"in", milliseconds(600)},
    {"stop", milliseconds(2500)},
    {"tcp hello from a PTZ client", milliseconds(200)},
    {"udp hello from a local process", milliseconds(200)},
}};

struct Expectation {
  bool seen;
  const char* what;
};

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// Whether all was seen; tells what was not.
bool AllOf(std::initializer_list<Expectation> expectations, EventSink* sink) {
  bool all = true;
  for (const Expectation& expectation : expectations) {
    if (!expectation.seen) sink->Note(std::string("not seen: ") + expectation.what);
    all = all && expectation.seen;
  }
  return all;
}

bool ShowedRawBytes(const Sightings& seen, EventSink* sink) {
  return AllOf(
      {
          {Contains(seen.raw_to_line, kClientText), "bytes of the PTZ client on the line"},
          {Contains(seen.raw_to_line, kUdpText), "bytes of the local process on the line"},
          {Contains(seen.line_to_client, kFarEndText), "bytes of the far end at the PTZ client"},
          {Contains(seen.line_to_data, kFarEndText), "bytes of the far end at the data port"},
      },
      sink);
}

bool ShowedLens(const Sightings& seen, EventSink* sink) {
  return AllOf(
      {
          {seen.camera_info == "VERSION=1.5-s\n", "the version of this lens's micom"},
          {Contains(seen.words, "zoom 10 steps wide"), "a zoom drive"},
          {Contains(seen.words, "focus measure"), "measures of a focus search"},
          {Contains(seen.daemon_output, "TRACE\t"), "a trace point"},
          {Contains(seen.raw_to_line, kClientText), "bytes of the PTZ client on the line"},
          {Contains(seen.raw_to_line, kUdpText), "bytes of the local process on the line"},
      },
      sink);
}

bool ShowedSdModule(const Sightings& seen, EventSink* sink) {
  return AllOf(
      {
          {seen.camera_info == "VERSION=0.0\nMODEL=18\nRESOLUTION=sd\n",
           "the camera information file of this module"},
          {Contains(seen.words, "menu key"), "a key of the menu"},
          {Contains(seen.words, "zoom tele"), "zoom"},
      },
      sink);
}

bool ShowedHdModule(const Sightings& seen, EventSink* sink) {
  return AllOf(
      {
          {seen.camera_info == "VERSION=2.1\nMODEL=Sony 2M\nRESOLUTION=1080p\n",
           "the camera information file of this module"},
          {Contains(seen.words, "menu key"), "a key of the menu"},
          {Contains(seen.words, "zoom tele"), "zoom"},
          {Contains(seen.words, "focus search"), "a focus search"},
          {Contains(seen.words, "all bytes are there"), "new firmware in the micom"},
          {Contains(seen.daemon_output, "* write 100%"), "the progress of the update"},
          {seen.reboot_notices == 1, "one notice of a reboot at the system manager"},
          {Contains(seen.programs, " reboot"), "the reboot"},
      },
      sink);
}

}  // namespace

std::vector<std::string> CommandHelp() {
  std::vector<std::string> lines;
  std::ranges::transform(kControls, std::back_inserter(lines),
                         [](const ControlRow& row) { return HelpLine(row.word, row.help); });
  lines.push_back(HelpLine("stop", "stop all motion"));
  lines.push_back(HelpLine("code", "HEX [P1 [P2 [P3]]]: any control code"));
  for (const RawRow& row : kRaw)
    lines.push_back(HelpLine(row.word, row.help));
  lines.push_back(HelpLine("update", "[BYTES]: new firmware, then a reboot (QB-3xx, QB-4xx)"));
  lines.push_back(HelpLine("quit", "end (so does Ctrl-C)"));
  return lines;
}

void SendAction(const KeyAction& action, VirtualDevice* device) {
  if (action.control.has_value()) {
    device->SendControl(*action.control);
  } else {
    device->SendRawByUdp(std::string(action.line.begin(), action.line.end()));
  }
}

CommandResult RunCommand(const std::string& line, VirtualDevice* device) {
  std::istringstream stream(line);
  std::string word;
  if (!(stream >> word)) return CommandResult::kDone;
  if (word == "quit") return CommandResult::kQuit;
  if (word == "wait") return CommandResult::kDone;
  if (word == "help") {
    for (const std::string& help : CommandHelp())
      device->Note("  " + help);
    return CommandResult::kDone;
  }
  std::string rest;
  std::getline(stream >> std::ws, rest);
  std::istringstream rest_stream(rest);
  std::vector<std::string> texts;
  for (std::string text; rest_stream >> text;)
    texts.push_back(text);

  if (word == "stop") return RunStop(device);
  if (word == "code") return RunCode(texts, device);
  if (word == "update") return RunUpdate(texts, device);
  for (const ControlRow& row : kControls) {
    if (word == row.word) return RunControl(row, texts, device);
  }
  for (const RawRow& row : kRaw) {
    if (word != row.word) continue;
    (device->*row.send)(rest);
    return CommandResult::kDone;
  }
  device->Note("unknown command '" + word + "'; help lists them");
  return CommandResult::kBad;
}

std::span<const ScriptStep> DemoScript(const std::string& model) {
  switch (KindOfModel(model)) {
    case FarEndKind::kSdModule:
      return kSdModuleDemo;
    case FarEndKind::kHdModule:
      return kHdModuleDemo;
    case FarEndKind::kLens:
      return kLensDemo;
    case FarEndKind::kPtzHead:
      break;
  }
  if (model == "QB-620") return kDomeDemo;
  return kHeadDemo;
}

bool DemoShowedAll(const std::string& model, const Sightings& seen, EventSink* sink) {
  const FarEndKind kind = KindOfModel(model);
  // A lens mode hands no serial data on.
  if (kind == FarEndKind::kLens) return ShowedLens(seen, sink);
  const bool raw_bytes = ShowedRawBytes(seen, sink);
  switch (kind) {
    case FarEndKind::kSdModule:
      return ShowedSdModule(seen, sink) && raw_bytes;
    case FarEndKind::kHdModule:
      return ShowedHdModule(seen, sink) && raw_bytes;
    case FarEndKind::kLens:
    case FarEndKind::kPtzHead:
      break;
  }
  return AllOf({{!seen.words.empty(), "a frame that the head understands"}}, sink) && raw_bytes;
}

}  // namespace sim
