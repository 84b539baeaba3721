// What may be wrong around the lens mode: the mode says what it has to say, goes on, and stops.
#include <sys/mount.h>

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

  // SIGTERM ends it within `limit`, with status 0.
  void ExpectPromptStop(milliseconds limit) {
    const auto begin = sim::Clock::now();
    EXPECT_EQ(daemon->Stop(limit), 0);
    EXPECT_LE(sim::Clock::now() - begin, limit);
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
      {"one key", "zoom_position=5\n", kPressF},
      {"overflow", "zoom_position=70000\nfocus_position=-40000\n",
       "restored posZoom=4464, posFocus=25536\n"},
      {"sixteen characters", "zoom_position=0000000000000012\nfocus_position=1\n", kPressF},
      {"fifteen characters", "zoom_position=000000000000012\nfocus_position=1\n",
       "restored posZoom=12, posFocus=1\n"},
      {"5000 characters", "zoom_position=" + long_value + "\nfocus_position=" + long_value + "\n",
       kPressF},
      {"no digits", "zoom_position=tele\nfocus_position= \n", "restored posZoom=0, posFocus=0\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    StartWith(row.text);
    EXPECT_NE(daemon->Output().find(row.printed), std::string::npos) << daemon->Output();
    ExpectPromptStop(milliseconds(2000));
  }
}

// Each save says what is wrong, goes on, and leaves what is there; what can be mended is well
// again.
TEST_F(LensHostile, SavesThatCannotBe) {
  const struct {
    void (*spoil)();
    void (*mend)();
    std::string said;
    bool is_kept;  // the old file
  } rows[] = {
      {[] { std::filesystem::remove(MFZ_CONF_PATH); },
       [] { sim::WriteTextFile(MFZ_CONF_PATH, kSaved); },
       "we can't open the file : /etc/mfz.conf\n", false},
      {[] { sim::WriteTextFile("/etc/temp.conf", "half a li"); },
       [] {
         EXPECT_EQ(sim::ReadTextFile("/etc/temp.conf"), "half a li");
         std::filesystem::remove("/etc/temp.conf");
       },
       "temp.conf is already used ...\n", true},
      {[] {
         ASSERT_EQ(mount("/etc", "/etc", nullptr, MS_BIND, nullptr), 0);
         ASSERT_EQ(mount(nullptr, "/etc", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
       },
       [] { ASSERT_EQ(umount("/etc"), 0); }, "we can't open the file : /etc/temp.conf\n", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.said);
    StartWith(kSaved);
    row.spoil();
    const size_t printed = daemon->Output().size();
    DriveAndStop();
    EXPECT_EQ(daemon->Output()
                  .substr(printed, 400)
                  .find("[CUTIL_SetConfValue] " + row.said + "fail in saving zoom_position\n" +
                        "[CUTIL_SetConfValue] " + row.said + "fail in saving focus_position\n" +
                        "zoom=   0, focus= 30"),
              0U)
        << daemon->Output();
    EXPECT_EQ(std::filesystem::exists(MFZ_CONF_PATH), row.is_kept);
    EXPECT_TRUE(!row.is_kept || sim::ReadTextFile(MFZ_CONF_PATH) == kSaved);
    row.mend();
    DriveAndStop();
    EXPECT_NE(SavedPositions().focus, 300);
    ExpectPromptStop(milliseconds(2000));
  }
}

// --- The tuning file ---------------------------------------------------------------------------

TEST_F(LensHostile, TuningFiles) {
  std::string nested;
  for (int i = 0; i < 100000; ++i)
    nested += "{\"All\":";
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"not JSON", "Antiflicker=true\n"},
      {"cut off", sim::TuningText("true").substr(0, 60)},
      {"empty", ""},
      {"zeros", std::string(4096, '\0')},
      {"nested objects", nested},
      {"nested arrays", std::string(100000, '[')},
      {"arrays in the way", R"({"All": [{"AE": 1}]})"},
      {"a number in the way", R"({"All": {"AE": 5}})"},
      {"null", sim::TuningText("null")},
      {"an object for a value", sim::TuningText("{\"x\": " + std::string(90000, ' ') + "true}")},
  };
  InstallLens(sim::PositionsText(0, 200), "IMX123");
  AttachLens({.zoom = 0, .focus = 200});
  Launch();
  AwaitLoop();
  const std::string off = "g_antiflk_enable=0, g_sensor_supported=1\n";
  const std::string path = sim::TuningPath("IMX123");
  size_t asked = 0;
  for (const auto& [legend, text] : rows) {
    SCOPED_TRACE(legend);
    sim::WriteTextFile(path, text);
    Control(CAMERA_CODE_AF_MODE, 3);
    ASSERT_TRUE(WaitOutput(off, ++asked)) << daemon->Output();
  }
  // Larger than any tuning file, a directory, and nothing at all.
  const auto expect_off = [&] {
    Control(CAMERA_CODE_AF_MODE, 3);
    EXPECT_TRUE(WaitOutput(off, ++asked, milliseconds(2000)));
  };
  std::filesystem::resize_file(path, uintmax_t{1} << 36);
  expect_off();
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  expect_off();
  std::filesystem::remove(path);
  expect_off();
  ExpectPromptStop(milliseconds(4000));
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
  ExpectPromptStop(milliseconds(2000));
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
    ExpectPromptStop(milliseconds(3000 + 3500));
  }
}

}  // namespace
