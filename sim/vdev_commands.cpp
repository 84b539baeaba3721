#include "sim/vdev_commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "relay/daemon_datagram.h"
#include "relay/pelco_d.h"
#include "sim/peers.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/parse.h"
#include "tools/ptz_verbs.h"
#include "tools/usage.h"

namespace sim {
namespace {

using enum tools::DeviceMode;

// --- Verbs of rs232ctl ptz ---------------------------------------------------------------------

// The rest of a line after a name of one or more words; nullopt if the line does not begin with it.
std::optional<std::string> RestAfter(const std::string& name, const std::string& line) {
  if (line == name) return "";
  if (!line.starts_with(name + " ")) return std::nullopt;
  return line.substr(std::min(line.find_first_not_of(' ', name.size()), line.size()));
}

// Runs `rs232ctl ptz LINE` in this process. Rejects --for, which would block the device, and help,
// which would disturb the screen.
void RunVerb(const std::string& line, VirtualDevice* device) {
  for (const char* option : {" --for", " --help", " -h"}) {
    if (line.find(option) == std::string::npos) continue;
    device->Note(std::string("unsupported option") + option +
                 "; use vdev join -- rs232ctl ptz ...");
    return;
  }
  CLI::App app;
  tools::AddPtzCommand(&app);
  try {
    app.parse("ptz " + line);
  } catch (const CLI::ParseError& error) {
    device->Note(tools::DescribeParseError(app, error));
  } catch (const tools::Failure& failure) {
    device->Note(failure.what());
  }
}

// --- Additional words --------------------------------------------------------------------------

void SendRaw(VirtualDevice* device, const Bytes& bytes) {
  device->rig.SendUdp(DaemonDatagram(RS232_UDP_WRITE, bytes));
}

// "stop [zoom|focus]". Zoom and focus of a lens have separate stop codes.
void Stop(const std::string& motor, VirtualDevice* device) {
  const std::string& model = device->rig.config.model;
  if (tools::IsStoppedByFrame(model)) {
    const PelcoFrame frame = PelcoBuild({});
    SendRaw(device, Bytes(frame.begin(), frame.end()));
    return;
  }
  if (motor != "focus") device->rig.Control(CAMERA_CODE_ZOOM);
  if (tools::ModeOfModel(model) == MODE_LENS && motor != "zoom")
    device->rig.Control(CAMERA_CODE_FOCUS);
}

// "update [BYTES]": installs a firmware image of that size, then orders the update.
void Update(const std::string& text, VirtualDevice* device) {
  constexpr int kMost = 1'000'000;
  const auto size = tools::ParseNumber(text.empty() ? "3000" : text, 0, kMost);
  if (size.has_value()) {
    device->UpdateFirmware(static_cast<size_t>(*size));
  } else {
    device->Note("usage: update [BYTES], BYTES at most " + std::to_string(kMost));
  }
}

void Help(const std::string& /*text*/, VirtualDevice* device) {
  for (const HelpLine& line : CommandHelp()) {
    std::string keys = line.keys;
    keys.resize(std::max<size_t>(keys.size(), 24), ' ');
    device->Note(keys + line.does);
  }
}

struct WordRow {
  const char* word;
  const char* arguments;
  const char* help;
  const char* verb;  // the verb that it abbreviates; else null
  void (*run)(const std::string& rest, VirtualDevice* device);
};

constexpr auto kWords = std::to_array<WordRow>({
    {"in", "", "zoom in until stop", "zoom-tele --speed 1", nullptr},
    {"out", "", "zoom out until stop", "zoom-wide --speed 1", nullptr},
    {"near", "", "focus near until stop", "focus-near --speed 1", nullptr},
    {"far", "", "focus far until stop", "focus-far --speed 1", nullptr},
    {"stop", "[zoom|focus]", "stop all motion, or one motor of a lens", nullptr, Stop},
    {"search", "", "search for the sharpest focus", "af-start", nullptr},
    {"preset", "N", "set preset N", "preset set", nullptr},
    {"goto", "N", "go to preset N", "preset go", nullptr},
    {"clear", "N", "clear preset N", "preset clear", nullptr},
    {"tcp", "TEXT", "send text from a PTZ client to the line", nullptr,
     [](const std::string& text, VirtualDevice* device) { device->SendByClient(text); }},
    {"udp", "TEXT", "send text from a local process to the line", nullptr,
     [](const std::string& text, VirtualDevice* device) { SendRaw(device, BytesOf(text)); }},
    {"say", "TEXT", "send text from the far end", nullptr,
     [](const std::string& text, VirtualDevice* device) { device->rig.line.Send(BytesOf(text)); }},
    {"update", "[BYTES]", "update the firmware, then reboot (QB-3xx, QB-4xx)", nullptr, Update},
    {"help", "", "list these commands", nullptr, Help},
});

// The line in the form of `rs232ctl ptz`; nullopt for a word without a verb, such as `stop`.
std::optional<std::string> VerbLine(const std::string& line) {
  for (const tools::PtzVerb& verb : tools::PtzVerbs()) {
    if (&verb != &tools::PtzStopVerb() && RestAfter(verb.name, line).has_value()) return line;
  }
  for (const WordRow& row : kWords) {
    const auto rest = RestAfter(row.word, line);
    if (row.verb != nullptr && rest.has_value()) return row.verb + (" " + *rest);
  }
  return std::nullopt;
}

// --- Demonstrations ----------------------------------------------------------------------------

constexpr char kClientText[] = "hello from a PTZ client";
constexpr char kUdpText[] = "hello from a local process";
constexpr char kFarEndText[] = "hello from the far end";

struct Script {
  unsigned modes;
  const char* needs;  // a verb that the model must support; null: none
  const char* steps;  // "COMMAND, MILLISECONDS; ..."
};

constexpr auto kScripts = std::to_array<Script>({
    {MODE_RELAY, "pan-left",
     "move 40 -20 0, 1200; stop, 500; in, 900; stop, 500; preset 5, 300; move -90 0 0, 900;"
     "stop, 500; goto 5, 400"},
    // the arrow keys of an ordinary head are short taps
    {MODE_RELAY, nullptr, "right, 600; up, 600; in, 900; stop, 500; menu, 500"},
    {MODE_SD, nullptr,
     "menu, 200; down, 200; right, 200; down, 200; down, 200; menu, 200; in, 900; stop, 300;"
     "out, 400; stop, 300"},
    {MODE_HD, nullptr,
     "menu, 200; up, 200; menu, 200; in, 900; stop, 300; near, 500; stop, 300; search, 700"},
    // wait for the start-up; the focus follows the zoom, and each stop starts a search
    {MODE_LENS, nullptr, ", 2000; code 2002 0 0 -89, 1200; stop, 2500; in, 600; stop, 2500"},
});

struct Expectation {
  unsigned modes;
  const char* stream;  // of VirtualDevice::Seen
  const char* text;
  const char* what;
  bool in_update = false;  // of a script that ends in a firmware update
};

constexpr unsigned kModules = MODE_SD | MODE_HD;

constexpr auto kExpectations = std::to_array<Expectation>({
    {MODE_RELAY, kUnderstood, "\n", "a frame decoded by the head"},
    {kModules, kUnderstood, "menu key", "a menu key"},
    {kModules, kUnderstood, "zoom tele", "zoom"},
    {MODE_SD, "info", "VERSION=0.0\nMODEL=18\nRESOLUTION=sd\n", "the camera information file"},
    {MODE_HD, "info", "VERSION=2.1\nMODEL=Sony 2M\nRESOLUTION=1080p\n",
     "the camera information file"},
    {MODE_HD, kUnderstood, "focus search", "a focus search"},
    {MODE_LENS, "info", "VERSION=1.5-s\n", "the version of the lens's micom"},
    {MODE_LENS, kUnderstood, "zoom 10 steps wide", "a zoom drive"},
    {MODE_LENS, kUnderstood, "focus measure", "focus measures of a search"},
    {MODE_LENS, "daemon", "TRACE\t", "a trace point"},
    {tools::MODES_ALL, kToLine, kClientText, "bytes from the PTZ client on the line"},
    {tools::MODES_ALL, kToLine, kUdpText, "bytes from the local process on the line"},
    // the lens mode relays no serial data
    {MODE_RELAY | kModules, kToClient, kFarEndText, "bytes from the far end at the PTZ client"},
    {MODE_RELAY | kModules, kToDataPort, kFarEndText, "bytes from the far end at the data port"},
    {MODE_HD, kUnderstood, "all bytes received", "new firmware in the micom", true},
    {MODE_HD, "daemon", "* write 100%", "the progress of the update", true},
    {MODE_HD, "sysmgr", "notice of a reboot", "the reboot notice to the system manager", true},
    {MODE_HD, "system", " reboot", "the reboot", true},
});

}  // namespace

const tools::PtzVerb* VerbOf(const std::string& line) {
  const auto verb_line = VerbLine(line);
  if (!verb_line.has_value()) return nullptr;
  return &*std::ranges::find_if(tools::PtzVerbs(), [&](const tools::PtzVerb& verb) {
    return RestAfter(verb.name, *verb_line).has_value();
  });
}

bool RunCommand(const std::string& line, VirtualDevice* device) {
  const std::string command = line.substr(std::min(line.find_first_not_of(' '), line.size()));
  if (RestAfter("quit", command).has_value()) return false;
  if (command.empty()) return true;
  if (const auto verb_line = VerbLine(command)) {
    RunVerb(*verb_line, device);
    return true;
  }
  for (const WordRow& row : kWords) {
    const auto rest = RestAfter(row.word, command);
    if (!rest.has_value()) continue;
    row.run(*rest, device);
    return true;
  }
  device->Note("unknown command '" + command.substr(0, command.find(' ')) + "'; help lists them");
  return true;
}

std::vector<HelpLine> CommandHelp() {
  std::vector<HelpLine> lines = {
      {"left right up down menu", "arrow keys and menu key"},
      {"move PAN TILT ZOOM", "joystick, -128 to 127 (QB-620; others: zoom only)"},
      {"code HEX [P1 [P2 [P3]]]", "any control code"}};
  for (const WordRow& row : kWords) {
    std::string help = row.help;
    const tools::PtzVerb* verb = VerbOf(row.word);
    if (verb != nullptr && !tools::Answers("", *verb)) {
      help += "; supported by " + tools::Joined(tools::AnsweringDevices(*verb));
    }
    lines.push_back({std::string(row.word) + " " + row.arguments, help});
  }
  lines.push_back({"quit", "quit (or press Ctrl-C)"});
  lines.push_back({"VERB ...", "any verb of rs232ctl ptz, with its arguments"});
  return lines;
}

std::vector<ScriptStep> DemoScript(const std::string& model, bool updates) {
  const tools::DeviceMode mode = tools::ModeOfModel(model);
  const auto* script = std::ranges::find_if(kScripts, [&](const Script& each) {
    return (each.modes & mode) != 0 &&
           (each.needs == nullptr || tools::Answers(model, *VerbOf(each.needs)));
  });
  std::vector<ScriptStep> steps;
  std::string_view text = script->steps;
  for (std::string_view step; !(step = tools::TakeToken(&text, ";")).empty();) {
    step.remove_prefix(step.find_first_not_of(' '));
    const size_t comma = step.find(',');
    const std::string line(step.substr(0, comma));
    const tools::PtzVerb* verb = VerbOf(line);
    if (verb != nullptr && !tools::Answers(model, *verb)) continue;
    steps.push_back({line, milliseconds(atoi(step.data() + comma + 1))});
  }
  constexpr milliseconds kWatch{200};
  steps.push_back({std::string("tcp ") + kClientText, kWatch});
  steps.push_back({std::string("udp ") + kUdpText, kWatch});
  if (mode != MODE_LENS) steps.push_back({std::string("say ") + kFarEndText, kWatch});
  // The daemon waits ten seconds between the update and the reboot.
  if (mode == MODE_HD && updates) steps.push_back({"update", milliseconds(30'000)});
  return steps;
}

bool DemoShowedAll(VirtualDevice* device, bool updates) {
  const tools::DeviceMode mode = tools::ModeOfModel(device->rig.config.model);
  bool all = true;
  for (const Expectation& expected : kExpectations) {
    if ((expected.modes & mode) == 0 || (expected.in_update && !updates)) continue;
    if (device->Seen(expected.stream).find(expected.text) != std::string::npos) continue;
    device->Note(std::string("not seen: ") + expected.what);
    all = false;
  }
  return all;
}

}  // namespace sim
