// Faults around the lens mode: it reports them, continues, and stops in time.
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kPressF[] = "!!! Click 'F' button to reset zoom & focus positions !!!\n";

using LensHostile = LensTest;

TEST_F(LensHostile, HandlesDamagedPositionsFiles) {
  const std::pair<std::string, std::string> rows[] = {
      {sim::PositionsText(-1, 7), kPressF},
      {"zoom_position=70000\nfocus_position=-40000\n", "restored posZoom=4464, posFocus=25536\n"},
      {"zoom_position=0000000000000012\nfocus_position=1\n", kPressF},  // 16 characters
      {"zoom_position=000000000000012\nfocus_position=1\n", "restored posZoom=12, posFocus=1\n"},
  };
  for (const auto& [text, printed] : rows) {
    InstallLens({});
    sim::WriteTextFile(MFZ_CONF_PATH, text);
    Launch();
    AwaitLoop();
    EXPECT_NE(daemon->Output().find(printed), std::string::npos) << daemon->Output();
    EXPECT_EQ(daemon->Stop(milliseconds(2000)), 0);
  }
}

// A failed save creates no file and does not stop the mode. When the file exists again, the next
// save writes it.
TEST_F(LensHostile, SurvivesAMissingPositionsFile) {
  StartLens({.zoom = 0, .focus = 300});
  for (const bool is_there : {false, true}) {
    std::filesystem::remove(MFZ_CONF_PATH);
    if (is_there) sim::WriteTextFile(MFZ_CONF_PATH, sim::PositionsText(0, 300));
    Focus(-1);
    Focus(0);
    ASSERT_TRUE(Drain());
    EXPECT_EQ(CountInOutput("fail in saving zoom_position\n"), 1U);
    EXPECT_EQ(std::filesystem::exists(MFZ_CONF_PATH), is_there);
  }
  EXPECT_NE(SavedPositions().focus, 300);
}

// Without an answer, each measure takes its three-second timeout; a stop is still prompt. With
// regulation on, the worker waits at the same time.
TEST_F(LensHostile, SilentCameraDaemonDelaysTheStopByOneQuery) {
  for (const milliseconds late : {milliseconds(0), milliseconds(3300)}) {
    SCOPED_TRACE(late.count());
    InstallLens({.zoom = 0, .focus = 200}, "IMX123", "true");
    camera->traits.silent = late == milliseconds(0);
    camera->traits.answer_after = late;
    Launch();
    AwaitLoop();
    Control(CAMERA_CODE_FOCUS_SEARCH);
    size_t count = 0;
    ASSERT_TRUE(sim::WaitUntil([&] { return (count += camera->TakeFocusReadings().size()) >= 2; },
                               milliseconds(9000)));
    // At most the current query, and that of the worker.
    EXPECT_EQ(daemon->Stop(milliseconds(3000 + 3500)), 0);
  }
}

}  // namespace
