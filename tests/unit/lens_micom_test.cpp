// The simulated lens itself: a micom that lost no steps would let every daemon pass.
#include "sim/lens_micom.h"

#include <gtest/gtest.h>

#include <string>

#include "sim/lens_optics.h"

namespace {

using sim::milliseconds;

class LensMicomTest : public testing::Test {
 protected:
  LensMicomTest() {
    micom_.on_words = [this](const std::string& words) { words_ += words + "\n"; };
    micom_.on_noise = [this](std::span<const uint8_t> bytes) { noise_ += bytes.size(); };
    micom_.on_answer = [this](std::span<const uint8_t> bytes) {
      answers_.insert(answers_.end(), bytes.begin(), bytes.end());
    };
    Write(I2M_ADDR_MOTOR_SPEED, 0x30);  // 515 steps a second
  }

  void Feed(const std::vector<uint8_t>& bytes) {
    micom_.Tick(now_);
    micom_.Feed(bytes, now_);
  }

  void Write(I2mAddress address, int value) {
    const I2mFrame frame = I2mBuild(I2M_WRITE, address, static_cast<uint8_t>(value >> 8 & 0xFF),
                                    static_cast<uint8_t>(value & 0xFF));
    Feed({frame.begin(), frame.end()});
  }

  // Lets time pass, a look at the line every millisecond.
  void Wait(int ms) {
    for (int i = 0; i < ms; ++i) {
      now_ += milliseconds(1);
      micom_.Tick(now_);
    }
  }

  sim::Clock::time_point now_{std::chrono::seconds(1)};
  sim::LensMicom micom_{now_, {.zoom = 100, .focus = 500, .iris = 40}};
  std::string words_;
  size_t noise_ = 0;
  std::vector<uint8_t> answers_;
};

TEST_F(LensMicomTest, MovesTakeTheirTimeAtTheRateThatIsSet) {
  Write(I2M_ADDR_FOCUS_MOVE, -100);  // inverted: up
  Wait(97);
  EXPECT_EQ(micom_.Pose().focus, 550);  // the first step at once, then one every 1.94 ms
  EXPECT_TRUE(micom_.IsMoving());
  Wait(97);
  EXPECT_EQ(micom_.Pose().focus, 600);
  Write(I2M_ADDR_MOTOR_SPEED, 0x00);  // 1082
  Write(I2M_ADDR_FOCUS_MOVE, 100);
  Wait(92);
  EXPECT_EQ(micom_.Pose().focus, 500);
  EXPECT_EQ(micom_.Focus().Lost(), 0);
}

TEST_F(LensMicomTest, InterruptedMovesLoseTheirSteps) {
  Write(I2M_ADDR_ZOOM_MOVE, -10);
  Wait(10);
  EXPECT_EQ(micom_.Pose().zoom, 106);
  Write(I2M_ADDR_ZOOM_MOVE, 3);
  Wait(100);
  EXPECT_EQ(micom_.Pose().zoom, 103);
  EXPECT_EQ(micom_.Zoom().Lost(), 4);
  EXPECT_NE(words_.find("zoom 3 steps tele at 515 pps, 4 steps of the last move lost\n"),
            std::string::npos)
      << words_;
  EXPECT_EQ(micom_.Focus().Lost(), 0);
}

// A bench that looked too late must not see steps lost that were not.
TEST_F(LensMicomTest, LateLookTakesNothingFromTheMotor) {
  Write(I2M_ADDR_FOCUS_MOVE, -10);
  now_ += milliseconds(20);  // nobody looked
  const std::vector<uint8_t> next = {0xA5, 0x40, 0x0D, 0xFF, 0xF6, 0xE7};
  micom_.Feed(next, now_);
  Wait(20);
  EXPECT_EQ(micom_.Pose().focus, 520);
  EXPECT_EQ(micom_.Focus().Lost(), 0);
}

TEST_F(LensMicomTest, EndsStopTheMotors) {
  Write(I2M_ADDR_ZOOM_MOVE, 150);
  Write(I2M_ADDR_PIRIS_STEP, 80);
  Wait(400);
  EXPECT_EQ(micom_.Pose().zoom, 0);
  EXPECT_EQ(micom_.Pose().iris, 96);
  EXPECT_EQ(micom_.Zoom().Slipped(), 50);
  EXPECT_EQ(micom_.Iris().Slipped(), 24);
  Write(I2M_ADDR_ZOOM_MOVE, -1500);
  Wait(3000);
  EXPECT_EQ(micom_.Pose().zoom, 1400);
}

TEST_F(LensMicomTest, AnswersAfterAWhileAndNotWhenSilent) {
  Feed({0xA5, 0x41, 0x01, 0x00, 0x00, 0xE7});
  EXPECT_TRUE(answers_.empty());
  Wait(2);
  EXPECT_EQ(answers_, (std::vector<uint8_t>{0xA5, 0x41, 0x01, 0x81, 0x05, 0x6D}));
  answers_.clear();
  micom_.traits.silent = true;
  Feed({0xA5, 0x41, 0x01, 0x00, 0x00, 0xE7});
  Wait(10);
  EXPECT_TRUE(answers_.empty());
}

TEST_F(LensMicomTest, BrokenFramesAreNoiseAndMoveNothing) {
  Feed({0x00, 0xA5, 0x40, 0x0C, 0xFF, 0xF6, 0xE7});  // the checksum is one too high
  Feed({0xA5, 0xA5, 0x40, 0x0D, 0xFF, 0xF6, 0xE7});  // a frame behind a stray byte
  Feed({0xA5, 0x40});
  Wait(60);
  EXPECT_EQ(micom_.Pose().zoom, 100);
  EXPECT_EQ(micom_.Pose().focus, 510);
  EXPECT_EQ(noise_, 7U + 1U + 2U);
}

}  // namespace
