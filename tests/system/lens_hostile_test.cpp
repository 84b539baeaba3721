// What may be wrong around the lens mode: the mode says what it has to say, goes on, and stops.
#include <random>

#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kPressF[] = "!!! Click 'F' button to reset zoom & focus positions !!!\n";
constexpr char kSaved[] = "zoom_position=0\nfocus_position=300\n";

class LensHostile : public LensTest {
 protected:
  // The rig with the start-up that a positions file of this text gives.
  void StartWith(const std::string& conf) {
    InstallLens(conf);
    AttachLens({});
    Launch();
    AwaitLoop();
  }

  // A focus move of one tick, or none at the limit, and its stop.
  void DriveAndStop() {
    Focus(-1);
    Focus(0);
    ASSERT_TRUE(Drain());
  }
};

// --- The positions file ------------------------------------------------------------------------

TEST_F(LensHostile, PositionsFiles) {
  const std::string long_value(5000, '7');
  const struct {
    const char* legend;
    std::string text;
    std::string printed;
  } rows[] = {
      {"empty", "", kPressF},
      {"overflow", "zoom_position=70000\nfocus_position=-40000\n",
       "restored posZoom=4464, posFocus=25536\n"},
      {"sixteen characters", "zoom_position=0000000000000012\nfocus_position=1\n", kPressF},
      {"fifteen characters", "zoom_position=000000000000012\nfocus_position=1\n",
       "restored posZoom=12, posFocus=1\n"},
      {"5000 characters", "zoom_position=" + long_value + "\nfocus_position=" + long_value + "\n",
       kPressF},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    StartWith(row.text);
    EXPECT_NE(daemon->Output().find(row.printed), std::string::npos) << daemon->Output();
    EXPECT_EQ(daemon->Stop(milliseconds(2000)), 0);
  }
}

// A save that cannot be says what is wrong, goes on, and makes no new file. Once there is one
// again, it holds the positions.
TEST_F(LensHostile, PositionsFileThatIsGone) {
  StartWith(kSaved);
  std::filesystem::remove(MFZ_CONF_PATH);
  const size_t printed = daemon->Output().size();
  DriveAndStop();
  const std::string said = "[CUTIL_SetConfValue] we can't open the file : /etc/mfz.conf\n";
  EXPECT_TRUE(daemon->Output().substr(printed).starts_with(
      said + "fail in saving zoom_position\n" + said + "fail in saving focus_position\n" +
      "zoom=   0, focus= 30"))
      << daemon->Output();
  EXPECT_FALSE(std::filesystem::exists(MFZ_CONF_PATH));
  sim::WriteTextFile(MFZ_CONF_PATH, kSaved);
  DriveAndStop();
  EXPECT_NE(SavedPositions().focus, 300);
}

// --- The tuning file ---------------------------------------------------------------------------

TEST_F(LensHostile, TuningFiles) {
  std::string nested;
  for (int i = 0; i < 100000; ++i)
    nested += "{\"All\":";
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"not JSON", "Antiflicker=true\n"},
      {"empty", ""},
      {"nested objects", nested},
      {"arrays in the way", R"({"All": [{"AE": 1}]})"},
      {"null", sim::TuningText("null")},
      {"an object for a value", sim::TuningText("{\"x\": " + std::string(90000, ' ') + "true}")},
  };
  StartLens({.zoom = 0, .focus = 200}, "IMX123");
  const std::string path = sim::TuningPath("IMX123");
  size_t asked = 0;
  const auto expect_off = [&] {
    Control(CAMERA_CODE_AF_MODE, 3);
    ASSERT_TRUE(WaitOutput("g_antiflk_enable=0, g_sensor_supported=1\n", ++asked));
  };
  for (const auto& [legend, text] : rows) {
    SCOPED_TRACE(legend);
    sim::WriteTextFile(path, text);
    expect_off();
  }
  std::filesystem::remove(path);
  expect_off();
  EXPECT_EQ(daemon->Stop(milliseconds(4000)), 0);
}

// --- Micom and camera daemon -------------------------------------------------------------------

TEST_F(LensHostile, GarbageOnTheLine) {
  InstallLens(sim::PositionsText(0, 200));
  AttachLens({.zoom = 0, .focus = 200});
  std::mt19937 random(7);
  const auto babble = [&] {
    sim::Bytes bytes(2000);
    for (uint8_t& byte : bytes)
      byte = static_cast<uint8_t>(random() % 3 == 0 ? 0xA5 : random());
    line.Send(bytes);
  };
  babble();  // answers for the start-up
  Launch();
  AwaitLoop();
  for (int i = 0; i < 10; ++i) {
    babble();
    ASSERT_TRUE(Sync());
  }
  TakeFrames();
  Control(CAMERA_CODE_IRIS_STEP, -1);
  ASSERT_TRUE(WaitOutput("-PIRIS_STEP_SINGLE (close)\n"));
  ASSERT_TRUE(Sync());
  EXPECT_EQ(TakeFrames(), (Lines{"A5 40 0B FF FC EB"}));
  Control(CAMERA_CODE_FOCUS_SEARCH);
  ASSERT_TRUE(WaitOutput("--> saved\n"));
  EXPECT_EQ(SavedPositions(), RealPositions());
  EXPECT_EQ(daemon->Stop(milliseconds(2000)), 0);
}

// Without answers each measure takes its three seconds; an end is still prompt. With regulation on
// the worker waits beside it.
TEST_F(LensHostile, SilentOrLateCameraDaemonDelaysTheEndByOneQuestion) {
  for (const milliseconds late : {milliseconds(0), milliseconds(3300)}) {
    SCOPED_TRACE(late.count());
    InstallLens(sim::PositionsText(0, 200), "IMX123", "true");
    AttachLens({.zoom = 0, .focus = 200});
    WithCamera([&](sim::CameraDaemon& camera) {
      camera.traits.silent = late == milliseconds(0);
      camera.traits.answer_after = late;
    });
    Launch();
    AwaitLoop();
    Control(CAMERA_CODE_FOCUS_SEARCH);
    const auto measured = [&] {
      return WithCamera(
          [](sim::CameraDaemon& camera) { return camera.TakeFocusReadings().size(); });
    };
    size_t count = 0;
    ASSERT_TRUE(sim::WaitUntil([&] { return (count += measured()) >= 2; }, milliseconds(9000)));
    // The present question, and the worker's, at most.
    EXPECT_EQ(daemon->Stop(milliseconds(3000 + 3500)), 0);
  }
}

}  // namespace
