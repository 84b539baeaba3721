#include "sim/live_screen.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <utility>

#include "ipc/cicomm.h"
#include "sim/instruments.h"
#include "sim/vdev_commands.h"
#include "tools/device_mode.h"
#include "tools/format.h"

namespace sim {
namespace {

constexpr int kHeaderRows = 2;
constexpr int kBorderRows = 2;
constexpr int kWhoCols = 8;

// Maximum number of lines kept.
constexpr size_t kFramesKept = 100;
constexpr size_t kLogKept = 2000;

// In the order of DeviceMode.
constexpr std::array kKinds = {"PTZ head", "SD camera module", "HD camera module",
                               "motorized lens"};

std::string Since(Clock::time_point start, const char* format) {
  return tools::Format(format, std::chrono::duration<double>(Clock::now() - start).count());
}

// Distributes the keys over as many rows as they need.
std::vector<std::vector<HelpLine>> FooterRows(const std::vector<HelpLine>& keys, int cols) {
  std::vector<std::vector<HelpLine>> rows(1);
  int col = 1;
  for (const HelpLine& key : keys) {
    const int length = Length(key.keys) + 1 + Length(key.does);
    if (col + length >= cols) {
      rows.emplace_back();
      col = 1;
    }
    rows.back().push_back(key);
    col += length + 2;
  }
  return rows;
}

}  // namespace

// --- The device --------------------------------------------------------------------------------

void LiveScreen::Take(DeviceEvent event) {
  if (event.kind == EventKind::kWords) {
    const std::string bytes = Hex(event.bytes);
    if (!frames_.empty() && frames_.back().words.who == event.who &&
        frames_.back().words.text == event.text && frames_.back().bytes == bytes) {
      ++frames_.back().times;
      return;
    }
    frames_.push_back({.time = Since(start_, "%8.3f"),
                       .words = {.who = event.who, .text = event.text},
                       .bytes = bytes});
    if (frames_.size() > kFramesKept) frames_.pop_front();
    return;
  }
  if (event.kind == EventKind::kDaemon) {
    sscanf(event.text.c_str(), "* write %3d%%", &update_percent_);
  }
  if (event.text.empty()) return;
  log_.push_back({.who = event.who, .text = std::move(event.text)});
  if (log_.size() > kLogKept) log_.pop_front();
  // Keep the lines that the user has scrolled back to in view.
  if (scrolled_back_ == 0) return;
  ++scrolled_back_;
  Scroll(0);
}

void LiveScreen::PrintLastLines() const {
  constexpr size_t kMost = 3;
  for (size_t i = log_.size() - std::min(kMost, log_.size()); i < log_.size(); ++i)
    printf("%-6s | %s\n", log_[i].who.c_str(), log_[i].text.c_str());
}

// --- Keys --------------------------------------------------------------------------------------

bool LiveScreen::ServeKeys(VirtualDevice* device) {
  for (int key = 0; (key = getch()) != ERR;) {
    if (!TakeKey(key, device)) return false;
  }
  return Run(keys_.Tick(Clock::now()), device);
}

bool LiveScreen::TakeKey(int key, VirtualDevice* device) {
  if (key == KEY_RESIZE) return true;
  if (prompt_.has_value()) return TakePromptKey(key, device);
  if (!std::exchange(overlay_, {}).empty()) return true;
  switch (key) {
    case 'q':
      return false;
    case '?':
      overlay_title_ = "help";
      overlay_ = keys_.Help();
      overlay_.insert(overlay_.end(),
                      {{"", ""},
                       {"", "Hold a key to keep moving; release it to stop."},
                       {":WORD ...", "type a command, e.g. :move 40 -20 0 or :tcp hello"},
                       {":help", "list the typed commands (PgUp and PgDn scroll the trace)"},
                       {"vdev join", "in a second terminal: open a shell in the device's world"},
                       {"", "vdev join -- COMMAND: run a command in the device's world"}});
      return true;
    case ':':
      prompt_ = "";
      return true;
    case KEY_PPAGE:
      Scroll(1);
      return true;
    case KEY_NPAGE:
      Scroll(-1);
      return true;
    default:
      return Run(keys_.Press(key, Clock::now()), device);
  }
}

bool LiveScreen::TakePromptKey(int key, VirtualDevice* device) {
  constexpr size_t kMost = 200;
  constexpr int kEscape = 0x1B;
  constexpr int kDelete = 0x7F;
  const bool is_backspace = key == KEY_BACKSPACE || key == kDelete || key == '\b';
  if (key == '\r' || key == '\n') {
    const std::string line = *std::exchange(prompt_, std::nullopt);
    if (line == "help") {
      overlay_title_ = "typed commands";
      overlay_ = CommandHelp();
      return true;
    }
    return line.empty() || Run({line}, device);
  }
  if (key == kEscape || (is_backspace && prompt_->empty())) {
    prompt_.reset();
  } else if (is_backspace) {
    prompt_->pop_back();
  } else if (key >= ' ' && key <= '~' && prompt_->size() < kMost) {
    *prompt_ += static_cast<char>(key);
  }
  return true;
}

bool LiveScreen::Run(const std::vector<std::string>& commands, VirtualDevice* device) {
  return std::ranges::all_of(commands, [&](const std::string& command) {
    device->Note("> " + command);
    return RunCommand(command, device);
  });
}

void LiveScreen::Scroll(int pages) {
  const int most = std::max(0, static_cast<int>(log_.size()) - log_rows_);
  const int wanted = static_cast<int>(scrolled_back_) + pages * log_rows_;
  scrolled_back_ = static_cast<size_t>(std::clamp(wanted, 0, most));
}

// --- Drawing -----------------------------------------------------------------------------------

void LiveScreen::Draw(const VirtualDevice& device) {
  constexpr int kTopMin = 10;
  constexpr int kTopMax = 16;
  const int rows = getmaxy(stdscr);
  const int cols = getmaxx(stdscr);
  erase();
  if (rows < kScreenRowsMin || cols < kScreenColsMin) {
    attrset(A_BOLD);
    mvprintw(0, 0, "The live screen needs %d by %d characters.", kScreenColsMin, kScreenRowsMin);
    mvprintw(1, 0, "The terminal has %d by %d: enlarge it or press q.", cols, rows);
    refresh();
    return;
  }
  const auto footer = FooterRows(keys_.Help(), cols);
  const int message_row = rows - static_cast<int>(footer.size()) - 1;
  const int top = std::clamp(rows * 2 / 5, kTopMin, kTopMax);
  const int frames_row = kHeaderRows + top;
  const int log_row = frames_row + (message_row - frames_row) / 2;
  const int left = cols / 2;
  log_rows_ = message_row - log_row - kBorderRows;
  DrawHeader(device.rig.config);
  DrawInstruments(*terminal_, {kHeaderRows, 0, top, left}, {kHeaderRows, left, top, cols - left},
                  *device.rig.far_end, device.rig.camera.get());
  DrawFrames({frames_row, 0, log_row - frames_row, cols});
  DrawLog({log_row, 0, message_row - log_row, cols});
  DrawMessage(message_row);
  DrawFooter(message_row + 1, footer);
  DrawOverlay();
  refresh();
}

void LiveScreen::DrawHeader(const DeviceConfig& config) const {
  const int cols = getmaxx(stdscr);
  const uint8_t mode = tools::ModeOfModel(config.model);
  const std::string status = "rs232d serves · up " + Since(start_, "%.0f s");
  const std::string ports = "TCP " + std::to_string(config.ptz_port) + " · UDP " +
                            std::to_string(config.udp_port) + " · channel " +
                            std::to_string(RS232_COMMAND_PORT) + " · " +
                            std::to_string(config.baud_rate) + " baud · second terminal: vdev join";
  terminal_->Write(0, 0, std::string(static_cast<size_t>(cols), ' '), kTitle);
  terminal_->Write(
      0, 1, "vdev " + config.model + " · " + kKinds[static_cast<size_t>(std::countr_zero(mode))],
      kTitle);
  terminal_->Write(0, cols - 1 - Length(status), status, kTitle);
  terminal_->Write(1, 1, ports, kDim, cols - 2);
}

void LiveScreen::DrawFrames(const Area& pane) const {
  constexpr int kTimeCols = 10;
  constexpr int kBytesCols = 30;
  terminal_->Frame(pane, "frames understood");
  const Area area = pane.Inner();
  const int words = area.col + kTimeCols + kWhoCols;
  const int bytes = area.col + area.cols - kBytesCols;
  const size_t shown = std::min(frames_.size(), static_cast<size_t>(area.rows));
  int row = area.row;
  for (auto line = frames_.end() - static_cast<std::ptrdiff_t>(shown); line != frames_.end();
       ++line, ++row) {
    const std::string times = line->times > 1 ? " (" + std::to_string(line->times) + "×)" : "";
    terminal_->Write(row, area.col, line->time, kDim, kTimeCols);
    terminal_->Write(row, area.col + kTimeCols, line->words.who, kHead, kWhoCols);
    terminal_->Write(row, words, line->words.text + times, kPlain, bytes - words - 1);
    terminal_->Write(row, bytes, line->bytes, kDim, kBytesCols);
  }
}

void LiveScreen::DrawLog(const Area& pane) const {
  terminal_->Frame(pane, scrolled_back_ == 0 ? "trace" : "trace, earlier (PgDn)");
  const Area area = pane.Inner();
  const size_t end = log_.size() - std::min(scrolled_back_, log_.size());
  int row = area.row;
  for (size_t i = end - std::min(end, static_cast<size_t>(area.rows)); i < end; ++i, ++row) {
    const Style& style = log_[i].who == "daemon" ? kDim : kHead;
    terminal_->Write(row, area.col, log_[i].who, style, kWhoCols);
    terminal_->Write(row, area.col + kWhoCols, log_[i].text,
                     IsPortProbe(log_[i].text) ? kDim : kPlain, area.cols - kWhoCols);
  }
}

void LiveScreen::DrawMessage(int row) const {
  if (!prompt_.has_value() && update_percent_ >= 0) {
    DrawProgress(*terminal_, row, "firmware", update_percent_);
    return;
  }
  terminal_->Write(row, 1, prompt_.has_value() ? ": " + *prompt_ + "█" : keys_.State(), kValue);
}

// Draws the keys bold and their meanings dim.
void LiveScreen::DrawFooter(int row, const std::vector<std::vector<HelpLine>>& footer) const {
  for (const std::vector<HelpLine>& keys : footer) {
    int col = 1;
    for (const HelpLine& key : keys) {
      terminal_->Write(row, col, key.keys, kValue);
      col += Length(key.keys) + 1;
      terminal_->Write(row, col, key.does, kDim);
      col += Length(key.does) + 2;
    }
    ++row;
  }
}

void LiveScreen::DrawOverlay() const {
  constexpr int kCols = 78;
  if (overlay_.empty()) return;
  int keys_cols = 0;
  for (const HelpLine& line : overlay_)
    keys_cols = std::max(keys_cols, Length(line.keys) + 2);
  const int rows = static_cast<int>(overlay_.size()) + 1 + kBorderRows;
  const Area pane = {.row = std::max(0, (getmaxy(stdscr) - rows) / 2),
                     .col = (getmaxx(stdscr) - kCols) / 2,
                     .rows = std::min(rows, getmaxy(stdscr)),
                     .cols = kCols};
  terminal_->Frame(pane, overlay_title_);
  const Area area = pane.Inner();
  int row = area.row;
  for (const HelpLine& line : overlay_) {
    terminal_->Write(row, area.col, line.keys, kValue);
    terminal_->Write(row++, area.col + keys_cols, line.does, kPlain, area.cols - keys_cols);
  }
  terminal_->Write(row, area.col, "Press any key to close this help.", kDim, area.cols);
}

}  // namespace sim
