// Shows a virtual device on a terminal and drives it with keys, only through the daemon's own
// ports.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "sim/live_keys.h"
#include "sim/terminal.h"
#include "sim/virtual_device.h"

namespace sim {

// Minimum terminal size.
constexpr int kScreenRowsMin = 24;
constexpr int kScreenColsMin = 80;

class LiveScreen : public EventSink {
 public:
  // `terminal` must outlive the screen.
  LiveScreen(const Terminal* terminal, const std::string& model)
      : terminal_(terminal), keys_(model) {}

  void Take(DeviceEvent event) override;

  // Handles pending key presses. Returns false when the user quits.
  bool ServeKeys(VirtualDevice* device);

  void Draw(const VirtualDevice& device);

  // Prints the last lines of the log, so they remain visible after the screen closes.
  void PrintLastLines() const;

 private:
  struct LogLine {
    std::string who;
    std::string text;
  };

  // A valid frame and the number of its consecutive repetitions.
  struct FrameLine {
    std::string time;  // since the start
    LogLine words;
    std::string bytes;
    int times = 1;
  };

  bool TakeKey(int key, VirtualDevice* device);
  bool TakePromptKey(int key, VirtualDevice* device);
  bool Run(const std::vector<std::string>& commands, VirtualDevice* device);
  void Scroll(int pages);
  void DrawHeader(const DeviceConfig& config) const;
  void DrawFrames(const Area& pane) const;
  void DrawLog(const Area& pane) const;
  void DrawMessage(int row) const;
  void DrawFooter(int row, const std::vector<std::vector<HelpLine>>& footer) const;
  void DrawOverlay() const;

  const Terminal* terminal_;
  KeyDriver keys_;
  Clock::time_point start_ = Clock::now();
  std::deque<FrameLine> frames_;       // oldest first
  std::deque<LogLine> log_;            // oldest first
  size_t scrolled_back_ = 0;           // lines of the log that are hidden below
  int log_rows_ = 0;                   // lines of the log that are shown
  std::optional<std::string> prompt_;  // command being typed
  int update_percent_ = -1;            // of the firmware update; -1: none
  const char* overlay_title_ = "";
  std::vector<HelpLine> overlay_;  // help text, shown until a key is pressed
};

}  // namespace sim
