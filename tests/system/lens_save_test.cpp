// The positions file across sudden ends: whatever stops the daemon in the middle of a save, the
// file is whole and holds the old positions or the new ones.
//
// Each round starts the daemon anew, which takes its time. The rounds run in several worlds at
// once, so this program is not in a world itself.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "lens/position.h"
#include "sim/lens_rig.h"
#include "sim/world.h"
#include "tests/system/device_fixture.h"
#include "tests/system/lens_fixture.h"

namespace {

using sim::milliseconds;

constexpr int kWorlds = 8;
constexpr int kRounds = 25;
constexpr int kStartFocus = 1000;
constexpr int kSaves = 30;

class LensSaves : public LensTest {
 public:
  explicit LensSaves(uint32_t seed) : random_(seed) {}
  void TestBody() override {}

  // Stops the daemon at some moment of a series of saves. Odd rounds go the hard way.
  void Round(int round) {
    const bool hard = round % 2 == 1;
    // Every other pair of rounds at the limit: the same is saved over and over, and little else
    // is done. Else each save moves the focus.
    const int value = round % 4 < 2 ? 1 : -1;
    const int start = value > 0 ? 0 : kStartFocus;
    StartLens({.zoom = 0, .focus = start});
    for (int i = 0; i < kSaves; ++i) {
      Focus(value);
      Focus(0);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random_() % (value > 0 ? 8000 : 60000)));
    daemon->Signal(hard ? SIGKILL : SIGTERM);
    ASSERT_EQ(daemon->WaitEnd(), hard ? -SIGKILL : 0);
    const std::string text = sim::ReadTextFile(MFZ_CONF_PATH);
    const Positions saved = SavedPositions();
    EXPECT_EQ(text, sim::PositionsText(saved.zoom, saved.focus)) << "not whole";
    EXPECT_EQ(saved.zoom, 0);
    // Every move is one of two steps at the least speed; none is saved before it was sent.
    EXPECT_EQ((saved.focus - start) % 2, 0);
    EXPECT_GE(saved.focus, start);
    ASSERT_TRUE(sim::WaitUntil([&] { return !IsMoving(); }));
    EXPECT_LE(saved.focus, Pose().focus);
    const bool left_behind = std::filesystem::exists("/etc/temp.conf");
    if (left_behind) ++cut_short_;
    EXPECT_TRUE(hard || !left_behind) << "an orderly end finishes the save";
    // A device's boot script clears what a sudden end left behind.
    std::filesystem::remove("/etc/temp.conf");
  }

  int CutShort() const { return cut_short_; }

 private:
  std::mt19937 random_;
  int cut_short_ = 0;
};

TEST(LensSaveTest, FileIsWholeWheneverTheDaemonEnds) {
  EXPECT_EQ(sim::RunInWorlds(kWorlds,
                             [](int world) {
                               LensSaves saves(static_cast<uint32_t>(world));
                               for (int round = 0; round < kRounds; ++round) {
                                 saves.Round(round);
                                 if (testing::Test::HasFailure()) return EXIT_FAILURE;
                               }
                               printf("world %d: %d of %d saves cut short\n", world,
                                      saves.CutShort(), kRounds);
                               return EXIT_SUCCESS;
                             }),
            0);
}

}  // namespace
