// Every verb of the tool through the real daemon, in each mode that answers it: what reaches the
// line, alone and followed by its stop. In each mode also bytes for the line, and the end.
#include <set>

#include "sim/lens_rig.h"
#include "tests/system/ctl_fixture.h"
#include "tests/system/lens_fixture.h"
#include "tools/ptz_verbs.h"

namespace {

using Frames = std::vector<std::string>;

constexpr char kStop[] = "FF 01 00 00 00 00 01";
constexpr char kHdStop[] = "FF 41 02 00 00 00 00 00 00 42";

struct VerbRow {
  std::string models;
  std::string line;
  Frames frames;
};

const std::vector<VerbRow> kRows = {
    {"QB-100 QB-620", "menu", {"FF 01 00 03 00 5F 63", kStop, kStop}},
    {"QB-100 QB-620", "menu-enter", {"FF 01 00 03 00 5F 63", kStop, kStop}},
    {"QB-100 QB-620", "up", {"FF 01 00 08 00 1D 26", kStop, kStop}},
    {"QB-100 QB-620", "down", {"FF 01 00 10 00 1D 2E", kStop, kStop}},
    {"QB-100 QB-620", "left", {"FF 01 00 04 1D 00 22", kStop, kStop}},
    {"QB-100 QB-620", "right", {"FF 01 00 02 1D 00 20", kStop, kStop}},
    {"QB-100 QB-620", "zoom-tele", {"FF 01 00 20 00 00 21"}},
    {"QB-100 QB-620", "zoom-wide --speed 1", {"FF 01 00 40 00 00 41"}},
    {"QB-100 QB-620", "focus-near", {"FF 01 01 00 00 00 02"}},
    {"QB-100 QB-620", "focus-far", {"FF 01 00 80 00 00 81"}},
    {"QB-100 QB-620", "stop", {kStop, kStop, kStop, kStop}},
    {"QB-100 QB-620", "code 2001 -1", {"FF 01 00 80 00 00 81"}},
    {"QB-100", "move 9 9 -1", {"FF 01 00 40 00 00 41"}},
    {"QB-610", "menu", {"FF 01 00 03 00 5F 63"}},
    {"QB-610", "menu-enter", {"FF 01 00 03 00 5F 63"}},
    {"QB-610", "up", {"FF 01 00 08 00 00 09"}},
    {"QB-610", "down", {"FF 01 00 10 00 00 11"}},
    {"QB-610", "left", {"FF 01 00 04 00 00 05"}},
    {"QB-610", "right", {"FF 01 00 02 00 00 03"}},
    {"QB-610", "stop", {kStop}},
    {"QB-610", "code 0x2007 1 2 3", {"FF 01 00 08 00 00 09"}},
    {"QB-620", "pan-left --speed 127", {"FF 01 00 04 3F 00 44"}},
    {"QB-620", "pan-right", {"FF 01 00 02 1F 00 22"}},
    {"QB-620", "tilt-up --speed 1", {"FF 01 00 08 00 01 0A"}},
    {"QB-620", "tilt-down --speed 0x40", {"FF 01 00 10 00 1F 30"}},
    {"QB-620", "move 64 -127 0", {"FF 01 00 12 1F 3F 71"}},
    {"QB-620", "move -1 0 -5", {"FF 01 00 04 01 00 06", "FF 01 00 40 00 00 41"}},
    {"QB-620", "zoom-speed 100", {"FF 01 00 25 00 02 28"}},
    {"QB-620", "focus-speed 31", {"FF 01 00 27 00 00 28"}},
    {"QB-620", "auto-iris 1", {"FF 01 00 2D 00 01 2F"}},
    {"QB-620", "white-balance 2", {"FF 01 00 33 00 02 36"}},
    {"QB-620", "backlight 0", {"FF 01 00 31 00 00 32"}},
    {"QB-620", "preset set 5", {"FF 01 00 03 00 05 09"}},
    {"QB-620", "preset go 255", {kStop, "FF 01 00 07 00 FF 07"}},
    {"QB-620", "preset clear 0", {"FF 01 00 05 00 00 06"}},
    {"QB-620", "preset-33", {"FF 01 00 07 00 21 29"}},
    {"QB-620", "preset-34", {"FF 01 00 07 00 22 2A"}},
    {"QB-620", "preset-96", {"FF 01 00 07 00 60 68"}},
    {"QB-620", "preset-99", {kStop, "FF 01 00 07 00 63 6B"}},
    {"QB-620", "pattern set 1", {"FF 01 00 1F 00 01 21"}},
    {"QB-620", "pattern run 2", {kStop, "FF 01 00 23 00 02 26"}},
    {"QB-620", "aux set 3", {"FF 01 00 09 00 03 0D"}},
    {"QB-620", "aux clear 200", {"FF 01 00 0B 00 C8 D4"}},
    {"QB-620", "remote-reset", {"FF 01 00 0F 00 00 10"}},
    {"QB-210", "menu", {"FF 01 00 03 00 5F 63", kStop}},
    {"QB-210", "menu-enter", {"FF 01 00 03 00 5F 63", kStop}},
    {"QB-210", "up", {"FF 01 00 08 00 00 09", kStop}},
    {"QB-210", "down", {"FF 01 00 10 00 00 11", kStop}},
    {"QB-210", "left", {"FF 01 00 04 00 00 05", kStop}},
    {"QB-210", "right", {"FF 01 00 02 00 00 03", kStop}},
    {"QB-210", "zoom-tele", {"FF 01 00 20 00 00 21"}},
    {"QB-210", "zoom-wide", {"FF 01 00 40 00 00 41"}},
    {"QB-210", "stop", {kStop}},
    {"QB-210", "code 2002 9 -9 0", {kStop}},
    {"QB-310", "menu", {"FF 4B 02 00 00 00 00 00 00 4C"}},
    {"QB-310", "menu-enter", {"FF 4B 02 00 00 00 00 00 00 4C"}},
    {"QB-310", "up", {"FF 4B 02 00 00 00 01 00 00 4D"}},
    {"QB-310", "down", {"FF 4B 02 00 00 00 02 00 00 4E"}},
    {"QB-310", "left", {"FF 4B 02 00 00 00 03 00 00 4F"}},
    {"QB-310", "right", {"FF 4B 02 00 00 00 04 00 00 50"}},
    {"QB-310", "zoom-tele", {"FF 41 02 00 00 00 01 00 00 43"}},
    {"QB-310", "zoom-wide", {"FF 41 02 00 00 00 02 00 00 44"}},
    {"QB-310", "focus-near", {"FF 41 02 00 00 00 18 00 00 5A"}},
    {"QB-310", "focus-far", {"FF 41 02 00 00 00 14 00 00 56"}},
    {"QB-310", "af-start", {"FF 41 02 00 00 00 03 00 00 45"}},
    {"QB-310", "stop", {kHdStop, kHdStop}},
    {"QB-310", "code 2001 0 9 9", {kHdStop}},
    {"QB-310", "code 2002 9 9 0", {kHdStop}},
    {"QB-310", "module-setting 254", {"FF 21 02 00 00 00 FE 00 00 20"}},
    {"QB-310", "code 1093 0 9 9", {"FF 21 02 00 00 00 00 00 00 22"}},
    {"QB-310", "code 1093 -1", {}},  // no value
};

const tools::PtzVerb& VerbOf(const std::string& line) {
  const tools::PtzVerb* found = nullptr;
  for (const tools::PtzVerb& verb : tools::PtzVerbs()) {
    const std::string name = verb.name;
    if (line == name || line.starts_with(name + " ")) found = &verb;
  }
  EXPECT_NE(found, nullptr) << line;
  return *found;
}

// The verbs that this mode has, and of which no row has told.
std::set<std::string> Missing(tools::DeviceMode mode, const std::vector<std::string>& lines) {
  std::set<std::string> names;
  for (const tools::PtzVerb& verb : tools::PtzVerbs()) {
    if ((verb.modes & mode) != 0) names.insert(verb.name);
  }
  for (const std::string& line : lines)
    names.erase(VerbOf(line).name);
  return names;
}

struct Device {
  const char* name;
  std::string model;
  Frames stop;
};

class CtlVerb : public DeviceTest, public testing::WithParamInterface<Device> {
 protected:
  void ExpectFrames(const std::string& line_arguments, const Frames& frames) {
    ExpectCtl("ptz " + line_arguments, 0);
    for (const std::string& frame : frames)
      ASSERT_EQ(Line((frame.size() + 1) / 3), frame) << line_arguments;
  }
};

// Every verb of a model, each that moves something with --for as well.
TEST_P(CtlVerb, ReachesTheLine) {
  const auto& [name, model, stop] = GetParam();
  StartModel(model);
  std::vector<std::string> lines;
  for (const VerbRow& row : kRows) {
    if (row.models.find(model) == std::string::npos) continue;
    lines.push_back(row.line);
    ExpectFrames(row.line, row.frames);
    if (VerbOf(row.line).stop_code == tools::NO_STOP_CODE) continue;
    Frames stopped = row.frames;
    stopped.insert(stopped.end(), stop.begin(), stop.end());
    ExpectFrames(row.line + " --for 1ms", stopped);
  }
  EXPECT_EQ(Missing(tools::ModeOfModel(model), lines), std::set<std::string>{});
  ExpectLineQuiet();
  ExpectCtl("write --hex 01 A5 FF", 0);
  EXPECT_EQ(Line(3), "01 A5 FF");
  ExpectCtl("stop", 0);
  ExpectEnd(0);
}

// No code stops QB-610.
INSTANTIATE_TEST_SUITE_P(Devices, CtlVerb,
                         testing::Values(Device{"Relay", "QB-100", {kStop, kStop}},
                                         Device{"FixedHead", "QB-610", {kStop}},
                                         Device{"SpeedDome", "QB-620", {kStop, kStop}},
                                         Device{"SdModule", "QB-210", {kStop}},
                                         Device{"HdModule", "QB-310", {kHdStop}}),
                         [](const auto& device) { return device.param.name; });

class CtlLensVerb : public LensTest {};

// The micom drives the lens: every verb is one write.
TEST_F(CtlLensVerb, OnTheLensThatTheMicomDrives) {
  const struct {
    std::string line;
    Lines frames;
  } rows[] = {
      {"af-mode micom", {"A5 40 23 00 00 08"}},
      {"zoom-tele", {"A5 40 20 00 01 06"}},
      {"zoom-wide", {"A5 40 20 00 00 05"}},
      {"focus-near", {"A5 40 0A 00 01 F0"}},
      {"focus-far", {"A5 40 0A 00 00 EF"}},
      {"stop", {"A5 40 20 00 02 07", "A5 40 0A 00 02 F1"}},
      {"iris-open", {"A5 40 0B 00 04 F4"}},
      {"iris-close", {"A5 40 0B FF FC EB"}},
      {"iris-step open", {"A5 40 0B 00 04 F4"}},
      {"iris-step close", {"A5 40 0B FF FC EB"}},
      {"assist", {"A5 40 23 00 00 08"}},
      {"code 2001 127", {"A5 40 0A 00 01 F0"}},
      {"zoom-tele --for 1ms", {"A5 40 20 00 01 06", "A5 40 20 00 02 07"}},
      {"focus-far --for 1ms", {"A5 40 0A 00 00 EF", "A5 40 0A 00 02 F1"}},
  };
  StartLens({.zoom = 0, .focus = 200});
  std::vector<std::string> lines = {"af-start", "af-mode daemon"};  // below
  for (const auto& row : rows) {
    lines.push_back(row.line);
    ExpectCtl("ptz " + row.line, 0);
    ASSERT_TRUE(Sync());
    EXPECT_EQ(TakeFrames(), row.frames) << row.line;
  }
  EXPECT_EQ(Missing(tools::MODE_LENS, lines), std::set<std::string>{});
  ExpectCtl("write --hex A5 40 0B 00 08 F8", 0);
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), Lines{"A5 40 0B 00 08 F8"});
  ExpectCtl("stop", 0);
  ExpectEnd(0);
}

// The daemon drives it: the lens itself has moved, and rests when the tool has ended.
TEST_F(CtlLensVerb, OnTheLensThatTheDaemonDrives) {
  StartLens({.zoom = 300, .focus = 400});
  ExpectCtl("ptz af-mode daemon", 0);
  ASSERT_TRUE(Drain());
  const struct {
    const char* line;
    Positions toward;
  } rows[] = {
      {"zoom-wide --for 300ms --speed 30", {.zoom = 1}},
      {"zoom-tele --for 200ms", {.zoom = -1}},
      {"focus-far --speed 40 --for 200ms", {.focus = 1}},
      {"focus-near --speed 40 --for 200ms", {.focus = -1}},
  };
  for (const auto& row : rows) {
    const Positions before = RealPositions();
    ExpectCtl(std::string("ptz ") + row.line, 0);
    ASSERT_TRUE(Drain());
    const Positions after = RealPositions();
    EXPECT_GT(row.toward.zoom * (after.zoom - before.zoom) +
                  row.toward.focus * (after.focus - before.focus),
              0)
        << row.line;
  }

  const int before = Pose().zoom;
  ExpectCtl("ptz zoom-wide", 0);
  ASSERT_TRUE(sim::WaitUntil([&] { return Pose().zoom > before; }));
  ExpectCtl("ptz stop", 0);
  ASSERT_TRUE(Drain());
  const int stopped = Pose().zoom;
  ASSERT_TRUE(Drain());
  EXPECT_EQ(Pose().zoom, stopped);

  TakeFrames();
  ExpectCtl("ptz af-start", 0);
  ASSERT_TRUE(sim::WaitUntil([&] { return !TakeFrames().empty(); }));
  ExpectCtl("ptz assist", 0);
  ASSERT_TRUE(WaitOutput("start AF\n"));
  EXPECT_EQ(Pose().zoom, 0);
}

}  // namespace
