// The live screen as a drawing: what stands where, without a terminal.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "sim/canvas.h"
#include "sim/instruments.h"
#include "sim/live_keys.h"

namespace sim {

// The smallest terminal that the screen fits into.
constexpr int kScreenRowsMin = 24;
constexpr int kScreenColsMin = 80;

// A frame that was understood, as often as it came in a row.
struct FrameLine {
  std::string time;  // since the start
  std::string who;
  std::string words;
  std::string bytes;
  int times = 1;
};

struct LogLine {
  std::string who;
  std::string text;
};

// All that the screen shows.
struct ScreenState {
  std::string title;   // left end of the bar at the top
  std::string status;  // its right end
  std::string ports;   // the line below it
  std::string far_end;
  Instruments instruments;
  std::deque<FrameLine> frames;  // oldest first
  std::deque<LogLine> log;       // oldest first
  size_t scrolled_back = 0;      // lines of the log that are hidden below
  std::vector<KeyHelp> keys;
  std::string message;                // above the footer
  std::optional<std::string> prompt;  // a command that is being typed, in place of the message
  bool help = false;                  // the help lies over the screen
  std::vector<std::string> commands;  // typed commands to show over the screen; else empty
};

// Where the parts of a screen are.
struct Layout {
  Area gauges;
  Area view;
  Area frames;
  Area log;
  int message_row;
  int footer_row;
};
Layout LayOut(int rows, int cols, int footer_rows);

// The keys in as many rows as they need.
std::vector<std::string> FooterRows(const std::vector<KeyHelp>& keys, int cols);

// One row: label, figure, and a bar with a knob; a mark where the knob should be.
void DrawGauge(Canvas* canvas, int row, int col, int cols, const Gauge& gauge);

void DrawView(Canvas* canvas, const Area& area, const MapView& view);
void DrawView(Canvas* canvas, const Area& area, const MenuView& view);
void DrawView(Canvas* canvas, const Area& area, const CurveView& view);

// The whole screen; on a terminal that is too small, a line that says so.
Canvas DrawScreen(const ScreenState& state, int rows, int cols);

// Lines of the log that a screen of this size shows.
int LogRows(const ScreenState& state, int rows, int cols);

}  // namespace sim
