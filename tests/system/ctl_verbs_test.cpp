// Every verb of the tool with the real daemon, in each mode that supports it: the bytes on the
// line, of the verb alone and with its stop. Also raw bytes and the stop of the daemon in each
// mode.
#include <algorithm>
#include <regex>

#include "tests/system/ctl_fixture.h"
#include "tests/system/lens_fixture.h"
#include "tools/ptz_verbs.h"

namespace {

const std::string kStop = "FF 01 00 00 00 00 01";
const std::string kTwoStops = kStop + " " + kStop;
const std::string kHdStop = "FF 41 02 00 00 00 00 00 00 42";

struct VerbRow {
  std::string models;
  std::string line;
  std::string frames;  // '+': the frames that follow a key on this model
};

const VerbRow kRows[] = {
    {"QB-100 QB-620 QB-610 QB-210", "menu", "FF 01 00 03 00 5F 63 +"},
    {"QB-100 QB-620 QB-610 QB-210", "menu-enter", "FF 01 00 03 00 5F 63 +"},
    {"QB-100 QB-620", "up", "FF 01 00 08 00 1D 26 +"},
    {"QB-100 QB-620", "down", "FF 01 00 10 00 1D 2E +"},
    {"QB-100 QB-620", "left", "FF 01 00 04 1D 00 22 +"},
    {"QB-100 QB-620", "right", "FF 01 00 02 1D 00 20 +"},
    {"QB-610 QB-210", "up", "FF 01 00 08 00 00 09 +"},
    {"QB-610 QB-210", "down", "FF 01 00 10 00 00 11 +"},
    {"QB-610 QB-210", "left", "FF 01 00 04 00 00 05 +"},
    {"QB-610 QB-210", "right", "FF 01 00 02 00 00 03 +"},
    {"QB-100 QB-620 QB-210", "zoom-tele", "FF 01 00 20 00 00 21"},
    {"QB-100 QB-620 QB-210", "zoom-wide", "FF 01 00 40 00 00 41"},
    {"QB-100 QB-620", "stop", kTwoStops + " " + kTwoStops},
    {"QB-610 QB-210", "stop", kStop},
    {"QB-100 QB-620", "focus-near", "FF 01 01 00 00 00 02"},
    {"QB-100 QB-620", "focus-far", "FF 01 00 80 00 00 81"},
    {"QB-100 QB-620", "code 2001 -1", "FF 01 00 80 00 00 81"},
    {"QB-100", "move 9 9 -1", "FF 01 00 40 00 00 41"},
    {"QB-610", "code 0x2007 1 2 3", "FF 01 00 08 00 00 09"},
    {"QB-620", "pan-left --speed 127", "FF 01 00 04 3F 00 44"},
    {"QB-620", "pan-right", "FF 01 00 02 1F 00 22"},
    {"QB-620", "tilt-up --speed 1", "FF 01 00 08 00 01 0A"},
    {"QB-620", "tilt-down --speed 0x40", "FF 01 00 10 00 1F 30"},
    {"QB-620", "move 64 -127 0", "FF 01 00 12 1F 3F 71"},
    {"QB-620", "move -1 0 -5", "FF 01 00 04 01 00 06 FF 01 00 40 00 00 41"},
    {"QB-620", "zoom-speed 100", "FF 01 00 25 00 02 28"},
    {"QB-620", "focus-speed 31", "FF 01 00 27 00 00 28"},
    {"QB-620", "auto-iris 1", "FF 01 00 2D 00 01 2F"},
    {"QB-620", "white-balance 2", "FF 01 00 33 00 02 36"},
    {"QB-620", "backlight 0", "FF 01 00 31 00 00 32"},
    {"QB-620", "preset set 5", "FF 01 00 03 00 05 09"},
    {"QB-620", "preset go 255", "FF 01 00 00 00 00 01 FF 01 00 07 00 FF 07"},
    {"QB-620", "preset clear 0", "FF 01 00 05 00 00 06"},
    {"QB-620", "preset-33", "FF 01 00 07 00 21 29"},
    {"QB-620", "preset-34", "FF 01 00 07 00 22 2A"},
    {"QB-620", "preset-96", "FF 01 00 07 00 60 68"},
    {"QB-620", "preset-99", "FF 01 00 00 00 00 01 FF 01 00 07 00 63 6B"},
    {"QB-620", "pattern set 1", "FF 01 00 1F 00 01 21"},
    {"QB-620", "pattern run 2", "FF 01 00 00 00 00 01 FF 01 00 23 00 02 26"},
    {"QB-620", "aux set 3", "FF 01 00 09 00 03 0D"},
    {"QB-620", "aux clear 200", "FF 01 00 0B 00 C8 D4"},
    {"QB-620", "remote-reset", "FF 01 00 0F 00 00 10"},
    {"QB-210", "code 2002 9 -9 0", kStop},
    {"QB-310", "menu", "FF 4B 02 00 00 00 00 00 00 4C"},
    {"QB-310", "menu-enter", "FF 4B 02 00 00 00 00 00 00 4C"},
    {"QB-310", "up", "FF 4B 02 00 00 00 01 00 00 4D"},
    {"QB-310", "down", "FF 4B 02 00 00 00 02 00 00 4E"},
    {"QB-310", "left", "FF 4B 02 00 00 00 03 00 00 4F"},
    {"QB-310", "right", "FF 4B 02 00 00 00 04 00 00 50"},
    {"QB-310", "zoom-tele", "FF 41 02 00 00 00 01 00 00 43"},
    {"QB-310", "zoom-wide", "FF 41 02 00 00 00 02 00 00 44"},
    {"QB-310", "focus-near", "FF 41 02 00 00 00 18 00 00 5A"},
    {"QB-310", "focus-far", "FF 41 02 00 00 00 14 00 00 56"},
    {"QB-310", "af-start", "FF 41 02 00 00 00 03 00 00 45"},
    {"QB-310", "stop", kHdStop + " " + kHdStop},
    {"QB-310", "code 2001 0 9 9", kHdStop},
    {"QB-310", "module-setting 254", "FF 21 02 00 00 00 FE 00 00 20"},
    {"QB-310", "code 1093 0 9 9", "FF 21 02 00 00 00 00 00 00 22"},
    {"QB-310", "code 1093 -1", ""},
};

// Returns true if a row has this verb.
bool IsOf(const std::string& line, const tools::PtzVerb& verb) {
  return (line + ' ').starts_with(std::string(verb.name) + ' ');
}

struct Device {
  const char* model;
  std::string stop;
  std::string after_key;
};

// QB-610 has no code for stop.
const Device kDevices[] = {{"QB-100", kTwoStops, ' ' + kTwoStops},
                           {"QB-610", kStop, ""},
                           {"QB-620", kTwoStops, ' ' + kTwoStops},
                           {"QB-210", kStop, ' ' + kStop},
                           {"QB-310", kHdStop, ""}};

using CtlVerb = DeviceTest;

// Every verb of a model; each motion also with --for.
TEST_F(CtlVerb, WritesItsFrames) {
  for (const auto& [model, stop, after_key] : kDevices) {
    SCOPED_TRACE(model);
    StartModel(model);
    for (const tools::PtzVerb& verb : tools::PtzVerbs()) {
      bool has_row = false;
      for (const auto& [models, line_arguments, frames] : kRows) {
        if (!IsOf(line_arguments, verb) || models.find(model) == std::string::npos) continue;
        has_row = true;
        const auto sent = std::regex_replace(frames, std::regex(R"( \+)"), after_key);
        for (const std::string option : {"", " --for 1ms"}) {
          if (!option.empty() && verb.stop_code == tools::NO_STOP_CODE) continue;
          ExpectCtl("ptz " + line_arguments + option, 0);
          const std::string expected = option.empty() ? sent : sent + ' ' + stop;
          ASSERT_EQ(Line((expected.size() + 1) / 3), expected) << line_arguments << option;
        }
      }
      EXPECT_EQ(has_row, tools::Answers(model, verb)) << verb.name;
    }
    ExpectLineQuiet();
    ExpectCtl("write --hex 01 A5 FF", 0);
    EXPECT_EQ(Line(3), "01 A5 FF");
    ExpectCtl("stop", 0);
    ExpectEnd(0);
  }
}

using CtlLensVerb = LensTest;

// The micom drives the lens: every verb is one register write.
TEST_F(CtlLensVerb, InMicomMode) {
  const std::pair<std::string, Lines> rows[] = {
      {"af-mode micom", {"A5 40 23 00 00 08"}},
      {"zoom-wide", {"A5 40 20 00 00 05"}},
      {"focus-near", {"A5 40 0A 00 01 F0"}},
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
  for (const auto& [line_arguments, frames] : rows) {
    ExpectCtl("ptz " + line_arguments, 0);
    ASSERT_TRUE(Sync());
    EXPECT_EQ(TakeFrames(), frames) << line_arguments;
  }
  for (const tools::PtzVerb& verb : tools::PtzVerbs()) {
    if (std::string(verb.name).starts_with("af-")) continue;  // below
    const bool has_row = std::any_of(std::begin(rows), std::end(rows),
                                     [&](const auto& row) { return IsOf(row.first, verb); });
    EXPECT_EQ(has_row, tools::Answers("QB-420", verb)) << verb.name;
  }
}

// The daemon drives the lens: a search is a sequence of moves.
TEST_F(CtlLensVerb, InDaemonMode) {
  StartLens({.zoom = 300, .focus = 400});
  ExpectCtl("ptz af-mode daemon", 0);
  ExpectCtl("ptz zoom-tele --for 200ms", 0);
  ASSERT_TRUE(Drain());
  EXPECT_LT(Pose().zoom, 300);
  TakeFrames();
  ExpectCtl("ptz af-start", 0);
  ASSERT_TRUE(sim::WaitUntil([&] { return !TakeFrames().empty(); }));
  ExpectCtl("ptz assist", 0);
  ASSERT_TRUE(WaitOutput("start AF\n"));
  EXPECT_EQ(Pose().zoom, 0);
}

}  // namespace
