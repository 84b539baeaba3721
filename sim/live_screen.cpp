#include "sim/live_screen.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "ipc/cicomm.h"
#include "sim/far_end_models.h"
#include "sim/vdev_commands.h"

namespace sim {
namespace {

// Lines that are kept.
constexpr size_t kFramesKept = 100;
constexpr size_t kLogKept = 2000;

std::string TitleOf(const std::string& model) {
  switch (KindOfModel(model)) {
    case FarEndKind::kSdModule:
      return model + " · SD camera module";
    case FarEndKind::kHdModule:
      return model + " · HD camera module";
    case FarEndKind::kLens:
      return model + " · motorized lens";
    case FarEndKind::kPtzHead:
      break;
  }
  return model + " · PTZ head";
}

std::string PortsOf(const DeviceConfig& config) {
  return "TCP " + std::to_string(config.ptz_port) + " · UDP " + std::to_string(config.udp_port) +
         " · channel " + std::to_string(RS232_COMMAND_PORT) + " · " +
         std::to_string(config.baud_rate) + " baud · second terminal: vdev join";
}

std::string Since(Clock::time_point start, const char* format) {
  std::array<char, 32> text;
  snprintf(text.data(), text.size(), format,
           std::chrono::duration<double>(Clock::now() - start).count());
  return text.data();
}

}  // namespace

LiveScreen::LiveScreen(Terminal* terminal, const DeviceConfig& config)
    : terminal_(terminal), keys_(config.model), start_(Clock::now()) {
  state_.title = "vdev " + TitleOf(config.model);
  state_.ports = PortsOf(config);
  state_.keys = KeysOfModel(config.model);
}

void LiveScreen::Take(DeviceEvent event) {
  if (event.kind == EventKind::kWords) {
    AddFrame(event);
    return;
  }
  if (event.text.empty()) return;
  state_.log.push_back({.who = event.who, .text = std::move(event.text)});
  if (state_.log.size() > kLogKept) state_.log.pop_front();
  // Who looks at earlier lines keeps them before his eyes, as long as they are kept.
  if (state_.scrolled_back == 0) return;
  ++state_.scrolled_back;
  Scroll(0);
}

void LiveScreen::Observe(const FarEnd& far_end) {
  state_.far_end = far_end.Name();
}

void LiveScreen::AddFrame(const DeviceEvent& event) {
  const std::string bytes = Hex(event.bytes);
  if (!state_.frames.empty()) {
    FrameLine& last = state_.frames.back();
    if (last.who == event.who && last.words == event.text && last.bytes == bytes) {
      ++last.times;
      return;
    }
  }
  state_.frames.push_back(
      {.time = Since(start_, "%8.3f"), .who = event.who, .words = event.text, .bytes = bytes});
  if (state_.frames.size() > kFramesKept) state_.frames.pop_front();
}

bool LiveScreen::ServeKeys(VirtualDevice* device) {
  while (const auto key = terminal_->ReadKey()) {
    if (!TakeKey(*key, device)) return false;
  }
  Act(keys_.Tick(Clock::now()), device);
  return true;
}

void LiveScreen::Draw(const VirtualDevice& device) {
  state_.instruments = ReadInstruments(device.Config().model, device.FarEnd(), device.Camera());
  state_.status = "rs232d serves · up " + Since(start_, "%.0f s");
  state_.message = keys_.State();
  terminal_->Show(DrawScreen(state_, terminal_->Rows(), terminal_->Cols()));
}

std::vector<LogLine> LiveScreen::LastLines() const {
  constexpr size_t kMost = 3;
  const size_t count = std::min(kMost, state_.log.size());
  return {state_.log.end() - static_cast<std::ptrdiff_t>(count), state_.log.end()};
}

bool LiveScreen::TakeKey(int key, VirtualDevice* device) {
  if (key == kKeyResize) return true;
  if (state_.prompt.has_value()) return TakePromptKey(key, device);
  if (std::exchange(state_.help, false)) return true;
  if (!std::exchange(state_.commands, {}).empty()) return true;
  switch (key) {
    case 'q':
      return false;
    case '?':
      state_.help = true;
      break;
    case ':':
      state_.prompt = "";
      break;
    case kKeyPageUp:
      Scroll(1);
      break;
    case kKeyPageDown:
      Scroll(-1);
      break;
    default:
      Act(keys_.Press(key, Clock::now()), device);
      break;
  }
  return true;
}

bool LiveScreen::TakePromptKey(int key, VirtualDevice* device) {
  constexpr size_t kMost = 200;
  std::string& text = *state_.prompt;
  if (key == kKeyEnter) return RunPrompt(device);
  if (key == kKeyEscape || (key == kKeyBackspace && text.empty())) {
    state_.prompt.reset();
  } else if (key == kKeyBackspace) {
    text.pop_back();
  } else if (key >= ' ' && key <= '~' && text.size() < kMost) {
    text += static_cast<char>(key);
  }
  return true;
}

bool LiveScreen::RunPrompt(VirtualDevice* device) {
  const std::string line = std::exchange(state_.prompt, std::nullopt).value_or("");
  if (line == "help") {
    state_.commands = CommandHelp();
    return true;
  }
  if (!line.empty()) Note("> " + line);
  return RunCommand(line, device) != CommandResult::kQuit;
}

void LiveScreen::Scroll(int pages) {
  const int rows = LogRows(state_, terminal_->Rows(), terminal_->Cols());
  const int most = std::max(0, static_cast<int>(state_.log.size()) - rows);
  const int wanted = static_cast<int>(state_.scrolled_back) + pages * rows;
  state_.scrolled_back = static_cast<size_t>(std::clamp(wanted, 0, most));
}

void LiveScreen::Act(const std::vector<KeyAction>& actions, VirtualDevice* device) {
  for (const KeyAction& action : actions) {
    Note("> " + action.words);
    SendAction(action, device);
  }
}

}  // namespace sim
