#include "sim/live_view.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace sim {
namespace {

constexpr int kHeaderRows = 2;
constexpr int kBorderRows = 2;

int Length(const std::string& text) {
  return static_cast<int>(Characters(text).size());
}

// The place of a share (0 to 1) among `count` cells or dots.
int Place(double share, int count) {
  const double place = std::clamp(share, 0.0, 1.0) * (count - 1);
  return static_cast<int>(std::lround(place));
}

// --- Braille dots ------------------------------------------------------------------------------

// Dots of a curve, two across and four down in a cell.
class Dots {
 public:
  Dots(int rows, int cols)
      : rows_(rows), cols_(cols), bits_(static_cast<size_t>(rows) * static_cast<size_t>(cols)) {}

  int Down() const { return rows_ * 4; }
  int Across() const { return cols_ * 2; }

  void Set(int down, int across) {
    constexpr std::array<std::array<uint8_t, 2>, 4> kBits = {
        {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}}};
    const int cell = down / 4 * cols_ + across / 2;
    bits_[static_cast<size_t>(cell)] |=
        kBits[static_cast<size_t>(down % 4)][static_cast<size_t>(across % 2)];
  }

  void Draw(Canvas* canvas, int row, int col, Style style) const {
    constexpr char32_t kBlank = 0x2800;
    for (int i = 0; i < rows_ * cols_; ++i) {
      const uint8_t bits = bits_[static_cast<size_t>(i)];
      if (bits != 0) canvas->Put(row + i / cols_, col + i % cols_, kBlank + bits, style);
    }
  }

 private:
  int rows_;
  int cols_;
  std::vector<uint8_t> bits_;
};

// --- Parts -------------------------------------------------------------------------------------

void DrawHeader(Canvas* canvas, const ScreenState& state) {
  canvas->Fill({.row = 0, .col = 0, .rows = 1, .cols = canvas->Cols()}, U' ', Style::kTitle);
  canvas->Write(0, 1, state.title, Style::kTitle);
  canvas->Write(0, canvas->Cols() - 1 - Length(state.status), state.status, Style::kTitle);
  canvas->Write(1, 1, state.ports, Style::kDim, canvas->Cols() - 2);
}

void DrawGauges(Canvas* canvas, const Area& pane, const ScreenState& state) {
  canvas->Frame(pane, state.far_end);
  const Area area = pane.Inner();
  const int gauges = static_cast<int>(state.instruments.gauges.size());
  const int notes = static_cast<int>(state.instruments.notes.size());
  const int pitch = 2 * gauges + notes <= area.rows ? 2 : 1;
  int row = area.row;
  for (const Gauge& gauge : state.instruments.gauges) {
    DrawGauge(canvas, row, area.col, area.cols, gauge);
    row += pitch;
  }
  row = std::max(row, area.row + area.rows - notes);
  for (const std::string& note : state.instruments.notes)
    canvas->Write(row++, area.col, note, Style::kDim, area.cols);
}

void DrawFrames(Canvas* canvas, const Area& pane, const std::deque<FrameLine>& frames) {
  constexpr int kTimeCols = 10;
  constexpr int kWhoCols = 8;
  constexpr int kBytesCols = 30;
  canvas->Frame(pane, "frames understood");
  const Area area = pane.Inner();
  const int words_cols = area.cols - kTimeCols - kWhoCols - kBytesCols;
  const size_t shown = std::min(frames.size(), static_cast<size_t>(area.rows));
  for (size_t i = 0; i < shown; ++i) {
    const FrameLine& line = frames[frames.size() - shown + i];
    const int row = area.row + static_cast<int>(i);
    const std::string times = line.times > 1 ? " (" + std::to_string(line.times) + "×)" : "";
    int col = area.col;
    canvas->Write(row, col, line.time, Style::kDim, kTimeCols);
    canvas->Write(row, col += kTimeCols, line.who, Style::kHead, kWhoCols);
    canvas->Write(row, col += kWhoCols, line.words + times, Style::kPlain, words_cols - 1);
    canvas->Write(row, col + words_cols, line.bytes, Style::kDim, kBytesCols);
  }
}

void DrawLog(Canvas* canvas, const Area& pane, const ScreenState& state) {
  constexpr int kWhoCols = 8;
  const Area area = pane.Inner();
  const size_t rows = static_cast<size_t>(area.rows);
  const size_t last = state.log.size() - std::min(state.scrolled_back, state.log.size());
  const size_t first = last - std::min(last, rows);
  canvas->Frame(pane, state.scrolled_back == 0 ? "trace" : "trace, earlier (PgDn)");
  for (size_t i = first; i < last; ++i) {
    const LogLine& line = state.log[i];
    const int row = area.row + static_cast<int>(i - first);
    const bool is_daemon = line.who == "daemon";
    canvas->Write(row, area.col, line.who, is_daemon ? Style::kDim : Style::kHead, kWhoCols);
    canvas->Write(row, area.col + kWhoCols, line.text, Style::kPlain, area.cols - kWhoCols);
  }
}

void DrawMessage(Canvas* canvas, int row, const ScreenState& state) {
  if (!state.prompt.has_value()) {
    canvas->Write(row, 1, state.message, Style::kValue);
    return;
  }
  canvas->Write(row, 1, ": " + *state.prompt, Style::kValue);
  canvas->Put(row, 3 + Length(*state.prompt), U'█', Style::kValue);
}

// The keys stand out from what they do.
void DrawFooter(Canvas* canvas, int row, const std::vector<KeyHelp>& keys) {
  for (const std::string& text : FooterRows(keys, canvas->Cols())) {
    canvas->Write(row, 1, text, Style::kDim);
    const std::u32string glyphs = Characters(text);
    for (const KeyHelp& key : keys) {
      const std::u32string entry = Characters(std::string(key.keys) + " " + key.does);
      const size_t at = glyphs.find(entry);
      if (at != std::u32string::npos) {
        canvas->Write(row, 1 + static_cast<int>(at), key.keys, Style::kValue);
      }
    }
    ++row;
  }
}

// Lays a pane of the given size over the middle of the screen. Returns what is inside it.
Area LayPane(Canvas* canvas, const std::string& title, int rows, int cols) {
  const Area pane = {.row = std::max(0, (canvas->Rows() - rows) / 2),
                     .col = (canvas->Cols() - cols) / 2,
                     .rows = std::min(rows, canvas->Rows()),
                     .cols = cols};
  canvas->Fill(pane, U' ', Style::kPlain);
  canvas->Frame(pane, title);
  return pane.Inner();
}

void DrawCommands(Canvas* canvas, const std::vector<std::string>& lines) {
  constexpr int kCommandCols = 78;
  const int rows = static_cast<int>(lines.size()) + 1 + kBorderRows;
  const Area area = LayPane(canvas, "typed commands", rows, kCommandCols);
  int row = area.row;
  for (const std::string& line : lines)
    canvas->Write(row++, area.col, line, Style::kPlain, area.cols);
  canvas->Write(row, area.col, "Any key closes this help.", Style::kDim, area.cols);
}

void DrawHelp(Canvas* canvas, const std::vector<KeyHelp>& keys) {
  constexpr int kHelpCols = 66;
  constexpr int kKeyCols = 10;
  constexpr std::array<const char*, 7> kTexts = {
      "A motion lasts while its key is held, and stops by itself.",
      ":WORD ...  a typed command, e.g. :move 40 -20 0 or :tcp hello",
      ":help      lists them; PgUp and PgDn scroll the trace",
      "",
      "From a second terminal: vdev join               a shell beside",
      "                        vdev join -- COMMAND    the device",
      "Any key closes this help.",
  };
  const int rows = static_cast<int>(keys.size() + kTexts.size()) + kBorderRows + 1;
  const Area area = LayPane(canvas, "help", rows, kHelpCols);
  int row = area.row;
  for (const KeyHelp& key : keys) {
    canvas->Write(row, area.col, key.keys, Style::kValue);
    canvas->Write(row++, area.col + kKeyCols, key.does);
  }
  ++row;
  for (const char* text : kTexts)
    canvas->Write(row++, area.col, text, Style::kPlain, area.cols);
}

Canvas DrawTooSmall(int rows, int cols) {
  Canvas canvas(rows, cols);
  canvas.Write(0, 0,
               "The screen needs " + std::to_string(kScreenColsMin) + " by " +
                   std::to_string(kScreenRowsMin) + " characters.",
               Style::kWarn);
  canvas.Write(1, 0,
               "It has " + std::to_string(cols) + " by " + std::to_string(rows) +
                   ": enlarge it, or press q.");
  return canvas;
}

std::string Degrees(int degrees) {
  return std::to_string(degrees) + "°";
}

// What a head sees at a magnification of 1, degrees.
constexpr double kFieldOfView = 60;
constexpr double kCircle = 360;

}  // namespace

Layout LayOut(int rows, int cols, int footer_rows) {
  constexpr int kTopMin = 10;
  constexpr int kTopMax = 16;
  const int top = std::clamp(rows * 2 / 5, kTopMin, kTopMax);
  const int rest = rows - kHeaderRows - top - footer_rows - 1;
  const int frames = rest / 2;
  const int left = cols / 2;
  const int frames_row = kHeaderRows + top;
  return {.gauges = {.row = kHeaderRows, .col = 0, .rows = top, .cols = left},
          .view = {.row = kHeaderRows, .col = left, .rows = top, .cols = cols - left},
          .frames = {.row = frames_row, .col = 0, .rows = frames, .cols = cols},
          .log = {.row = frames_row + frames, .col = 0, .rows = rest - frames, .cols = cols},
          .message_row = frames_row + rest,
          .footer_row = frames_row + rest + 1};
}

std::vector<std::string> FooterRows(const std::vector<KeyHelp>& keys, int cols) {
  constexpr int kMargins = 2;
  std::vector<std::string> rows = {""};
  for (const KeyHelp& key : keys) {
    const std::string entry = std::string(key.keys) + " " + key.does;
    std::string longer = rows.back();
    longer.append(longer.empty() ? "" : "  ").append(entry);
    if (Length(longer) > cols - kMargins) {
      rows.push_back(entry);
    } else {
      rows.back() = longer;
    }
  }
  return rows;
}

void DrawGauge(Canvas* canvas, int row, int col, int cols, const Gauge& gauge) {
  constexpr int kLabelCols = 10;
  constexpr int kFigureCols = 8;
  canvas->Write(row, col, gauge.label, Style::kHead, kLabelCols);
  canvas->Write(row, col + kLabelCols + kFigureCols - Length(gauge.figure), gauge.figure,
                Style::kValue);
  const int bar = col + kLabelCols + kFigureCols + 2;
  const int width = col + cols - bar;
  if (width < 2) return;
  const int knob = Place(gauge.share, width);
  for (int i = 0; i < width; ++i)
    canvas->Put(row, bar + i, i < knob ? U'━' : U'─', i < knob ? Style::kBar : Style::kDim);
  if (gauge.mark.has_value()) canvas->Put(row, bar + Place(*gauge.mark, width), U'▼', Style::kMark);
  canvas->Put(row, bar + knob, U'●', Style::kValue);
}

// The sphere around the head laid out flat; the line is as wide as what the head sees.
void DrawView(Canvas* canvas, const Area& area, const MapView& view) {
  const int rows = area.rows - 1;  // the last one holds the scale
  const auto row_of = [&](double tilt) { return area.row + Place((90 - tilt) / 180, rows); };
  const auto col_of = [&](double pan) {
    const double turned = std::fmod(pan + kCircle + kCircle / 2, kCircle);
    return area.col + Place(turned / kCircle, area.cols);
  };
  for (int col = 0; col < area.cols; ++col)
    canvas->Put(row_of(0), area.col + col, U'·', Style::kDim);
  for (int row = 0; row < rows; ++row)
    canvas->Put(area.row + row, col_of(0), U'·', Style::kDim);
  for (const int pan : {180, 270, 0, 90}) {
    const std::string label = Degrees(pan);
    const int col = pan == 180 ? area.col : col_of(pan) - 1;
    canvas->Write(area.row + rows, col, label, Style::kDim);
  }
  for (const auto& [number, preset] : view.presets)
    canvas->Write(row_of(preset.tilt), col_of(preset.pan), std::to_string(number), Style::kMark);

  const int reach = static_cast<int>(kFieldOfView / view.pose.zoom / 2 / kCircle * area.cols);
  const int middle = col_of(view.pose.pan) - area.col;
  for (int i = -reach; i <= reach; ++i) {
    const int col = area.col + (middle + i + area.cols) % area.cols;
    canvas->Put(row_of(view.pose.tilt), col, U'━', Style::kBar);
  }
  canvas->Put(row_of(view.pose.tilt), area.col + middle, U'●', Style::kValue);
}

void DrawView(Canvas* canvas, const Area& area, const MenuView& view) {
  if (!view.is_open) {
    const std::string text = "the menu is closed, m opens it";
    canvas->Write(area.row + area.rows / 2, area.col + (area.cols - Length(text)) / 2, text,
                  Style::kDim, area.cols);
    return;
  }
  constexpr int kNameCols = 18;
  int row = area.row + std::max(0, (area.rows - static_cast<int>(view.lines.size())) / 2);
  for (size_t i = 0; i < view.lines.size(); ++i, ++row) {
    const MenuView::Line& line = view.lines[i];
    const bool is_current = i == view.cursor;
    const Style style = is_current ? Style::kValue : Style::kPlain;
    int col = area.col + 2;
    if (is_current) canvas->Put(row, col, U'▸', Style::kMark);
    canvas->Write(row, col += 2, line.name, style);
    if (!line.value.has_value()) continue;
    canvas->Write(row, col += kNameCols, std::to_string(*line.value), style);
    for (int step = 0; step < view.value_max; ++step) {
      const bool is_on = step < *line.value;
      canvas->Put(row, col + 3 + step, is_on ? U'━' : U'─', is_on ? Style::kBar : Style::kDim);
    }
  }
}

void DrawView(Canvas* canvas, const Area& area, const CurveView& view) {
  const Area plot = {.row = area.row, .col = area.col, .rows = area.rows - 1, .cols = area.cols};
  Dots dots(plot.rows, plot.cols);
  const size_t points = view.focus.size();
  for (int across = 0; across < dots.Across(); ++across) {
    const auto point = static_cast<size_t>(
        Place(static_cast<double>(across) / (dots.Across() - 1), static_cast<int>(points)));
    dots.Set(Place(1 - view.focus[point] / view.focus_max, dots.Down()), across);
  }
  dots.Draw(canvas, plot.row, plot.col, Style::kBar);
  canvas->Put(plot.row + Place(1 - view.focus_at / view.focus_max, plot.rows),
              plot.col + Place(view.zoom_at / view.zoom_max, plot.cols), U'●', Style::kValue);
  const int axis = area.row + area.rows - 1;
  const std::string last = "zoom " + std::to_string(static_cast<int>(view.zoom_max));
  canvas->Write(axis, area.col, "tele 0", Style::kDim);
  canvas->Write(axis, area.col + area.cols - Length(last) - 5, last + " wide", Style::kDim);
  canvas->Write(area.row, area.col, "focus " + std::to_string(static_cast<int>(view.focus_max)),
                Style::kDim);
}

Canvas DrawScreen(const ScreenState& state, int rows, int cols) {
  if (rows < kScreenRowsMin || cols < kScreenColsMin) return DrawTooSmall(rows, cols);
  constexpr std::array<const char*, 3> kViewNames = {"where it looks", "menu", "focus over zoom"};
  Canvas canvas(rows, cols);
  const auto footer_rows = static_cast<int>(FooterRows(state.keys, cols).size());
  const Layout layout = LayOut(rows, cols, footer_rows);
  DrawHeader(&canvas, state);
  DrawGauges(&canvas, layout.gauges, state);
  canvas.Frame(layout.view, kViewNames[state.instruments.view.index()]);
  std::visit([&](const auto& view) { DrawView(&canvas, layout.view.Inner(), view); },
             state.instruments.view);
  DrawFrames(&canvas, layout.frames, state.frames);
  DrawLog(&canvas, layout.log, state);
  DrawMessage(&canvas, layout.message_row, state);
  DrawFooter(&canvas, layout.footer_row, state.keys);
  if (state.help) DrawHelp(&canvas, state.keys);
  if (!state.commands.empty()) DrawCommands(&canvas, state.commands);
  return canvas;
}

int LogRows(const ScreenState& state, int rows, int cols) {
  const auto footer_rows = static_cast<int>(FooterRows(state.keys, cols).size());
  return LayOut(rows, cols, footer_rows).log.Inner().rows;
}

}  // namespace sim
