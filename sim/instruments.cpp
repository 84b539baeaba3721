#include "sim/instruments.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "lens/tracking_tables.h"
#include "sim/hd_micom.h"
#include "sim/lens_micom.h"
#include "sim/lens_optics.h"
#include "sim/ptz_head.h"
#include "sim/sd_module.h"
#include "tools/format.h"

namespace sim {
namespace {

constexpr double kPercent = 100;
constexpr double kCircle = 360;

// Maps a share (0 to 1) to one of `count` cells or dots.
int Place(double share, int count) {
  return static_cast<int>(std::lround(std::clamp(share, 0.0, 1.0) * (count - 1)));
}

std::string Repeat(const char* glyph, int count) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += glyph;
  return text;
}

// --- Gauges ------------------------------------------------------------------------------------

struct Gauge {
  const char* label;
  std::string figure;                         // with unit
  double share;                               // from the low end (0) to the high end (1)
  std::optional<double> mark = std::nullopt;  // target share
};

Gauge Reading(const char* label, const char* format, double value, double low, double high,
              std::optional<double> mark = std::nullopt) {
  return {.label = label,
          .figure = tools::Format(format, value),
          .share = (value - low) / (high - low),
          .mark = mark};
}

// Draws the label, the figure, and a bar with a knob and an optional mark at the target.
void DrawGauge(const Terminal& terminal, int row, const Area& area, const Gauge& gauge) {
  constexpr int kLabelCols = 10;
  constexpr int kBarAt = 20;
  const int bar = area.col + kBarAt;
  const int width = area.cols - kBarAt;
  const int knob = Place(gauge.share, width);
  terminal.Write(row, area.col, gauge.label, kHead, kLabelCols);
  terminal.Write(row, bar - 2 - Length(gauge.figure), gauge.figure, kValue);
  terminal.Write(row, bar, Repeat("━", knob), kBar);
  terminal.Write(row, bar + knob, Repeat("─", width - knob), kDim);
  if (gauge.mark.has_value()) {
    terminal.Write(row, bar + Place(*gauge.mark, width), "▼", kMark);
  }
  terminal.Write(row, bar + knob, "●", kValue);
}

// Draws the gauges, then the notes, one per line.
void DrawGauges(const Terminal& terminal, const Area& area, const std::vector<Gauge>& gauges,
                const std::vector<std::string>& notes) {
  const int note_rows = static_cast<int>(notes.size());
  const int pitch = 2 * static_cast<int>(gauges.size()) + note_rows <= area.rows ? 2 : 1;
  int row = area.row;
  for (const Gauge& gauge : gauges) {
    DrawGauge(terminal, row, area, gauge);
    row += pitch;
  }
  row = std::max(row, area.row + area.rows - note_rows);
  for (const std::string& note : notes)
    terminal.Write(row++, area.col, note, kDim, area.cols);
}

// --- A head ------------------------------------------------------------------------------------

// Draws all directions of the head as a flat map. The width of the line is the field of view.
void DrawMap(const Terminal& terminal, const Area& area, const PtzHead& head) {
  constexpr double kFieldOfView = 60;  // at a magnification of 1, degrees
  const int rows = area.rows - 1;      // the last row shows the scale
  const auto row_of = [&](double tilt) { return area.row + Place((90 - tilt) / 180, rows); };
  const auto col_of = [&](double pan) {
    return area.col + Place(std::fmod(pan + kCircle / 2, kCircle) / kCircle, area.cols);
  };
  terminal.Write(row_of(0), area.col, Repeat("·", area.cols), kDim);
  for (int row = 0; row < rows; ++row)
    terminal.Write(area.row + row, col_of(0), "·", kDim);
  for (const int pan : {180, 270, 0, 90}) {
    const int col = pan == 180 ? area.col : col_of(pan) - 1;
    terminal.Write(area.row + rows, col, std::to_string(pan) + "°", kDim);
  }
  for (const auto& [number, preset] : head.Presets())
    terminal.Write(row_of(preset.tilt), col_of(preset.pan), std::to_string(number), kMark);

  const HeadPose& pose = head.Pose();
  const int reach = static_cast<int>(kFieldOfView / pose.zoom / 2 / kCircle * area.cols);
  const int middle = col_of(pose.pan) - area.col;
  for (int i = -reach; i <= reach; ++i) {
    const int col = area.col + (middle + i + area.cols) % area.cols;
    terminal.Write(row_of(pose.tilt), col, i == 0 ? "●" : "━", i == 0 ? kValue : kBar);
  }
}

void DrawHead(const Terminal& terminal, const Area& gauges, const Area& view, const PtzHead& head) {
  const HeadPose& pose = head.Pose();
  std::string presets = head.Presets().empty() ? "no presets" : "presets";
  for (const auto& [number, preset] : head.Presets())
    presets += " " + std::to_string(number);
  DrawGauges(
      terminal, gauges.Inner(),
      {Reading("pan", "%.1f°", pose.pan, 0, kCircle), Reading("tilt", "%+.1f°", pose.tilt, -90, 90),
       Reading("zoom", "%.1f×", pose.zoom, 1, 20),
       Reading("focus", "%.0f %%", pose.focus, 0, kPercent)},
      {presets, std::to_string(head.FrameCount()) + " frames received"});
  terminal.Frame(view, "where it looks");
  DrawMap(terminal, view.Inner(), head);
}

// --- A camera module ---------------------------------------------------------------------------

void DrawMenu(const Terminal& terminal, const Area& pane, const ModuleMenu& menu) {
  constexpr int kValueCol = 22;
  constexpr int kBarCol = 25;
  terminal.Frame(pane, "menu");
  const Area area = pane.Inner();
  if (!menu.IsOpen()) {
    const std::string text = "menu closed; press m to open it";
    terminal.Write(area.row + area.rows / 2, area.col + (area.cols - Length(text)) / 2, text, kDim,
                   area.cols);
    return;
  }
  int row = area.row + (area.rows - static_cast<int>(ModuleMenu::kLines)) / 2;
  for (size_t line = 0; line < ModuleMenu::kLines; ++line, ++row) {
    const bool is_current = line == menu.Cursor();
    const Style& style = is_current ? kValue : kPlain;
    if (is_current) terminal.Write(row, area.col + 2, "▸", kMark);
    terminal.Write(row, area.col + 4, ModuleMenu::NameOf(line), style);
    if (line + 1 == ModuleMenu::kLines) continue;
    const int value = menu.ValueOf(line);
    const int bar = area.col + kBarCol;
    terminal.Write(row, area.col + kValueCol, std::to_string(value), style);
    terminal.Write(row, bar, Repeat("━", value), kBar);
    terminal.Write(row, bar + value, Repeat("─", ModuleMenu::kValueMax - value), kDim);
  }
}

Gauge ZoomOf(const ModuleLens& lens) {
  return Reading("zoom", "%.1f×", lens.ZoomAt(), 1, kModuleZoomMax);
}

void DrawHdModule(const Terminal& terminal, const Area& gauges, const Area& view,
                  const HdMicom& micom) {
  const Gauge focus = Reading("focus", "%.0f %%", micom.Lens().FocusAt(), 0, kPercent,
                              kModuleSharpFocus / kPercent);
  DrawGauges(terminal, gauges.Inner(), {ZoomOf(micom.Lens()), focus},
             {micom.Loader() != nullptr ? micom.Describe() : micom.Menu().Describe()});
  DrawMenu(terminal, view, micom.Menu());
}

// --- A lens ------------------------------------------------------------------------------------

// Plots the in-focus position of the focus motor against the zoom position with Braille characters,
// which have two columns and four rows of dots per cell.
void DrawCurve(const Terminal& terminal, const Area& area, const LensPose& pose) {
  constexpr std::array kBits = {0x01, 0x02, 0x04, 0x40, 0x08, 0x10, 0x20, 0x80};
  const double zoom_max = ZFTABLE_HERON.back().zoom;
  const double focus_max = LensBuild().focus_travel;
  const int rows = area.rows - 1;  // the last row shows the scale
  const int dots = 2 * area.cols;
  int last_row = -1;
  int pattern = 0;
  for (int across = 0; across < dots; ++across) {
    const double in_focus = InFocus(zoom_max * across / (dots - 1));
    const int down = Place(1 - in_focus / focus_max, rows * 4);
    const int bit = kBits[static_cast<size_t>(across % 2 * 4 + down % 4)];
    pattern = across % 2 == 1 && down / 4 == last_row ? pattern | bit : bit;
    last_row = down / 4;
    const std::array<char, 3> glyph = {'\xE2', static_cast<char>(0xA0 | pattern >> 6),
                                       static_cast<char>(0x80 | (pattern & 0x3F))};
    terminal.Write(area.row + last_row, area.col + across / 2, {glyph.data(), glyph.size()}, kBar);
  }
  terminal.Write(area.row + Place(1 - pose.focus / focus_max, rows),
                 area.col + Place(pose.zoom / zoom_max, area.cols), "●", kValue);
  const std::string wide = "zoom " + std::to_string(static_cast<int>(zoom_max)) + " wide";
  terminal.Write(area.row + rows, area.col, "tele 0", kDim);
  terminal.Write(area.row + rows, area.col + area.cols - Length(wide), wide, kDim);
  terminal.Write(area.row, area.col, "focus " + std::to_string(static_cast<int>(focus_max)), kDim);
}

std::string BrightnessOf(const Exposure& exposure) {
  if (exposure.deviation == 0) return "picture well exposed";
  return "picture " + std::to_string(std::abs(exposure.deviation)) +
         (exposure.deviation > 0 ? " % too dark" : " % too bright");
}

void DrawLens(const Terminal& terminal, const Area& gauges, const Area& view, const LensMicom& lens,
              const CameraDaemon& camera) {
  // The exposure level spans almost three decades, so the bar is logarithmic.
  constexpr double kShortest = 1024;
  constexpr double kLongest = 363329;
  constexpr double kFarOff = 200;
  const LensBuild build;
  const LensPose pose = lens.Pose();
  const double in_focus = InFocus(pose.zoom);
  const double sharpness = LensOptics::Sharpness(camera.scene, pose) - camera.scene.floor;
  const Exposure exposure = LensOptics::Expose(camera.scene, pose, camera.ExposureSetting());
  const Gauge level = {
      .label = "exposure",
      .figure = std::to_string(exposure.level),
      .share = std::log(std::max(exposure.level, 1) / kShortest) / std::log(kLongest / kShortest)};
  DrawGauges(
      terminal, gauges.Inner(),
      {Reading("zoom", "%.0f", pose.zoom, 0, build.zoom_travel),
       Reading("focus", "%.0f", pose.focus, 0, build.focus_travel, in_focus / build.focus_travel),
       Reading("off curve", "%+.0f", pose.focus - in_focus, -kFarOff, kFarOff, 0.5),
       Reading("sharpness", "%.0f %%", kPercent * sharpness / camera.scene.height, 0, kPercent),
       Reading("iris", "%.0f", pose.iris, 0, build.iris_travel), level},
      {lens.Register(I2M_ADDR_AF_MODE) == 1 ? "the daemon drives" : "the micom drives",
       BrightnessOf(exposure)});
  terminal.Frame(view, "focus over zoom");
  DrawCurve(terminal, view.Inner(), pose);
}

}  // namespace

void DrawProgress(const Terminal& terminal, int row, const char* label, int percent) {
  DrawGauge(terminal, row, {row, 1, 1, getmaxx(stdscr) - 2},
            Reading(label, "%.0f %%", percent, 0, kPercent));
}

void DrawInstruments(const Terminal& terminal, const Area& gauges, const Area& view,
                     const FarEnd& far_end, const CameraDaemon* camera) {
  terminal.Frame(gauges, far_end.Name());
  if (const auto* head = dynamic_cast<const PtzHead*>(&far_end)) {
    DrawHead(terminal, gauges, view, *head);
  } else if (const auto* module = dynamic_cast<const SdModule*>(&far_end)) {
    DrawGauges(terminal, gauges.Inner(), {ZoomOf(module->Lens())}, {module->Menu().Describe()});
    DrawMenu(terminal, view, module->Menu());
  } else if (const auto* micom = dynamic_cast<const HdMicom*>(&far_end)) {
    DrawHdModule(terminal, gauges, view, *micom);
  } else if (const auto* lens = dynamic_cast<const LensMicom*>(&far_end)) {
    DrawLens(terminal, gauges, view, *lens, *camera);
  }
}

}  // namespace sim
