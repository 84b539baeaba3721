// The live screen as a drawing.
#include "sim/live_view.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using sim::Canvas;
using sim::Gauge;
using sim::ScreenState;
using std::string;

// All rows, one below the other.
string Drawn(const Canvas& canvas) {
  string text;
  for (int row = 0; row < canvas.Rows(); ++row)
    text += canvas.Text(row) + "\n";
  return text;
}

ScreenState HeadState() {
  ScreenState state;
  state.title = "vdev QB-620";
  state.status = "up 1 s";
  state.far_end = "head";
  state.keys = sim::KeysOfModel("QB-620");
  state.instruments.gauges = {{"pan", "90.0°", 0.25, {}}, {"tilt", "+0.0°", 0.5, {}}};
  state.instruments.view = sim::MapView{};
  return state;
}

TEST(LiveView, TextsAreCutToTheirCellsWhateverTheirBytes) {
  const std::tuple<const char*, int, const char*> rows[] = {
      {"90.0°", 5, "90.0°"},   {"90.0°C", 5, "90.0…"},  {"a\tb\033[0m", 9, "a b?[0m"},
      {"\xFF\xB0x", 9, "??x"}, {"\xE2\x97x", 9, "??x"}, {"\xC2\x9B\xC3", 9, "??"},
  };
  for (const auto& [text, width, drawn] : rows) {
    Canvas canvas(1, 10);
    canvas.Write(0, 0, text, sim::Style::kPlain, width);
    EXPECT_EQ(canvas.Text(0), drawn);
  }
  Canvas canvas(2, 4);
  canvas.Write(1, 2, "over the edge");
  canvas.Write(-1, 0, "above");
  canvas.Write(0, -2, "left");
  EXPECT_EQ(Drawn(canvas), "ft\n  o…\n");
}

TEST(LiveView, GaugeShowsWhereItStandsAndShouldStand) {
  const std::tuple<double, std::optional<double>, const char*> rows[] = {
      {-3, {}, "●─────────"},
      {7, 0.0, "▼━━━━━━━━●"},
      {0.5, 1.0, "━━━━━●───▼"},
      {0.5, 0.52, "━━━━━●────"},  // on its mark
  };
  for (const auto& [share, mark, bar] : rows) {
    Canvas canvas(1, 30);
    sim::DrawGauge(&canvas, 0, 0, 30, Gauge{"zoom", "1.5×", share, mark});
    EXPECT_EQ(canvas.Text(0), string("zoom          1.5×  ") + bar);
  }
}

// The cell of the knob in a view of 9 rows (the last of them a scale) by 37 columns.
string PointIn(const auto& view) {
  Canvas canvas(9, 37);
  DrawView(&canvas, {.row = 0, .col = 0, .rows = 9, .cols = 37}, view);
  for (int row = 0; row < canvas.Rows(); ++row)
    for (int col = 0; col < canvas.Cols(); ++col)
      if (canvas.At(row, col).glyph == U'●') return std::to_string(row) + "," + std::to_string(col);
  return "none";
}

TEST(LiveView, PointsStandWhereTheDeviceStands) {
  const auto head = [](double pan, double tilt, double zoom) {
    return PointIn(sim::MapView{.pose = {.pan = pan, .tilt = tilt, .zoom = zoom}, .presets = {}});
  };
  EXPECT_EQ(head(0, 0, 1), "4,18");
  EXPECT_EQ(head(90, 90, 20), "0,27");
  EXPECT_EQ(head(180, 0, 1), "4,0");  // its line is on both sides of the map
  const auto lens = [](double zoom, double focus) {
    return PointIn(sim::CurveView{.focus = {0, 50, 100},
                                  .zoom_max = 360,
                                  .focus_max = 70,
                                  .zoom_at = zoom,
                                  .focus_at = focus});
  };
  EXPECT_EQ(lens(180, 70), "0,18");
  EXPECT_EQ(lens(400, 10), "6,36");  // past the end of the curve
}

TEST(LiveView, PartsFillTheScreenAtEverySize) {
  for (int rows = sim::kScreenRowsMin; rows <= 70; ++rows) {
    for (const int cols : {80, 81, 100, 133, 240}) {
      const int footer = static_cast<int>(sim::FooterRows(HeadState().keys, cols).size());
      const sim::Layout layout = sim::LayOut(rows, cols, footer);
      EXPECT_EQ(layout.view.col + layout.view.cols, cols);
      EXPECT_EQ(layout.frames.row, layout.gauges.row + layout.gauges.rows);
      EXPECT_EQ(layout.log.row, layout.frames.row + layout.frames.rows);
      EXPECT_EQ(layout.message_row, layout.log.row + layout.log.rows);
      EXPECT_EQ(layout.footer_row + footer, rows);
      EXPECT_GE(layout.frames.Inner().rows, 1);
      EXPECT_GE(layout.log.Inner().rows, 2);
      const Canvas canvas = DrawScreen(HeadState(), rows, cols);
      EXPECT_NE(canvas.Text(rows - 1).find("q quit"), string::npos) << rows << "x" << cols;
    }
  }
  EXPECT_NE(Drawn(DrawScreen(HeadState(), 23, 80)).find("needs 80 by 24"), string::npos);
  DrawScreen(HeadState(), 0, 0);
}

TEST(LiveView, PanesShowTheLastAndScrollBack) {
  ScreenState state = HeadState();
  for (int i = 0; i < 50; ++i) {
    state.log.push_back({"daemon", "line " + std::to_string(i) + "."});
    state.frames.push_back({"1.0", "head", "stop " + std::to_string(i) + ".", "FF 01", i});
  }
  const auto shows = [&](const char* text) {
    return Drawn(DrawScreen(state, 30, 100)).find(text) != string::npos;
  };
  EXPECT_TRUE(shows("daemon  line 49."));
  EXPECT_TRUE(shows("stop 49. (49×)"));
  EXPECT_FALSE(shows("line 20."));
  state.scrolled_back = 29;
  EXPECT_TRUE(shows("line 20."));
  EXPECT_FALSE(shows("line 21."));
  state.scrolled_back = 1000;
  EXPECT_FALSE(shows("daemon"));
  state.help = true;
  EXPECT_TRUE(shows("p 1-9     set preset"));
}

// Where only ASCII can be shown, nothing that is drawn may become a question mark.
TEST(LiveView, EveryGlyphHasAnAsciiForm) {
  ScreenState state = HeadState();
  state.prompt = "x";
  state.log.push_back({"daemon", string(300, 'x')});
  state.frames.push_back({"1.0", "head", "stop", "FF", 2});
  state.instruments.gauges[0].mark = 0.5;
  const sim::Instruments lens = {{}, {}, sim::CurveView{{0, 9}, 9, 9, 1, 1}};
  const sim::Instruments menu = {{}, {}, sim::MenuView{true, 0, 9, {{"exposure", 5}}}};
  for (const auto& [model, read] :
       {std::pair("QB-620", state.instruments), {"QB-420", lens}, {"QB-310", menu}}) {
    state.keys = sim::KeysOfModel(model);
    state.instruments = read;
    const Canvas canvas = DrawScreen(state, 30, 100);
    for (int row = 0; row < canvas.Rows(); ++row) {
      for (int col = 0; col < canvas.Cols(); ++col) {
        const char32_t glyph = canvas.At(row, col).glyph;
        EXPECT_TRUE(glyph == U'?' || sim::AsciiFor(glyph) != '?') << canvas.Text(row);
      }
    }
  }
}

}  // namespace
