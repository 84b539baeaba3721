#include "lens/i2m.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lens/mfz_state.h"
#include "lens_line.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

TEST(I2mSend, PutsOneFrameOnTheLine) {
  const struct {
    uint8_t kind;
    uint8_t address;
    uint16_t value;
    const char* frame;
  } rows[] = {
      {I2M_READ, I2M_ADDR_VERSION, 0x0000, "A5 41 01 00 00 E7"},
      {I2M_WRITE, I2M_ADDR_PIRIS_STEP, 0xFFFC, "A5 40 0B FF FC EB"},
      {I2M_WRITE, I2M_ADDR_PIRIS_STEP, 0x0004, "A5 40 0B 00 04 F4"},
      {I2M_WRITE, I2M_ADDR_MOTOR_SPEED, 0x0010, "A5 40 02 00 10 F7"},
      {I2M_READ, I2M_ADDR_MOTOR_SPEED, 0x0000, "A5 41 02 00 00 E8"},
      {I2M_WRITE, I2M_ADDR_MFZ_MODEL, 0x0302, "A5 40 30 03 02 1A"},
      {I2M_WRITE, I2M_ADDR_AF_MODE, 0x0001, "A5 40 23 00 01 09"},
  };
  LensLine line;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.frame);
    EXPECT_EQ(i2m_send(row.kind, row.address, static_cast<uint8_t>(row.value >> 8),
                       static_cast<uint8_t>(row.value & 0xFF)),
              I2M_FRAME_SIZE);
    EXPECT_EQ(line.TakeWrites(), Lines{row.frame});
  }
  EXPECT_EQ(i2m_write(I2M_ADDR_FOCUS_MOVE, 0xFF33), I2M_FRAME_SIZE);
  EXPECT_EQ(line.TakeWrites(), Lines{"A5 40 0D FF 33 24"});
}

TEST(I2mSend, ClosedLineIsAFailure) {
  EXPECT_EQ(i2m_write(I2M_ADDR_ZOOM_MOVE, 1), -1);
}

TEST(I2mReadReply, CountsBytesOnly) {
  LensLine line;
  I2mFrame reply;
  line.Reply({1, 2, 3, 4, 5, 6});
  EXPECT_TRUE(i2m_read_reply(&reply));
  EXPECT_EQ(reply, (I2mFrame{1, 2, 3, 4, 5, 6}));
  line.Reply({I2M_SYNC, I2M_READ, 1, 0x81, 5});
  EXPECT_FALSE(i2m_read_reply(&reply));
}

TEST(I2mParser, FindsFrames) {
  const struct {
    const char* name;
    Bytes bytes;
    std::vector<Bytes> frames;
  } rows[] = {
      {"nothing", {}, {}},
      {"one frame", {0xA5, 0x40, 0x22, 0x00, 0x01, 0x08}, {{0xA5, 0x40, 0x22, 0x00, 0x01, 0x08}}},
      {"leading noise",
       {0x00, 0x40, 0x41, 0xFF, 0xA5, 0x41, 0x01, 0x81, 0x05, 0x6D},
       {{0xA5, 0x41, 0x01, 0x81, 0x05, 0x6D}}},
      {"repeated sync, wrong checksum",
       {0xA5, 0xA5, 0xA5, 0x41, 0x01, 0x02, 0x03, 0x09},
       {{0xA5, 0x41, 0x01, 0x02, 0x03, 0xEC}}},
      {"wrong kind", {0xA5, 0x42, 0x01, 0x02, 0x03, 0xEC}, {}},
      {"wrong kind, then a frame",
       {0xA5, 0x42, 0xA5, 0x40, 0x30, 0x00, 0x00, 0x15},
       {{0xA5, 0x40, 0x30, 0x00, 0x00, 0x15}}},
      {"kind without sync", {0x40, 0x01, 0x02, 0x03, 0x04, 0x05}, {}},
      {"sync bytes as address, value and checksum",
       {0xA5, 0x41, 0xA5, 0xA5, 0xA5, 0xA5, 0x40},
       {{0xA5, 0x41, 0xA5, 0xA5, 0xA5, 0xD5}}},
      {"short by a byte", {0xA5, 0x40, 0x22, 0x00, 0x01}, {}},
      {"a lost byte takes the next frame's first",
       {0xA5, 0x40, 0x22, 0x01, 0x08, 0xA5, 0x40, 0x22, 0x00, 0x00, 0x07},
       {{0xA5, 0x40, 0x22, 0x01, 0x08, 0x10}}},
      {"two frames back to back",
       {0xA5, 0x40, 0x22, 0x00, 0x01, 0x08, 0xA5, 0x40, 0x22, 0x00, 0x00, 0x07},
       {{0xA5, 0x40, 0x22, 0x00, 0x01, 0x08}, {0xA5, 0x40, 0x22, 0x00, 0x00, 0x07}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    I2mParser parser = {};
    std::vector<Bytes> frames;
    for (const uint8_t byte : row.bytes) {
      if (I2mParserTake(&parser, byte)) {
        frames.emplace_back(parser.frame.begin(), parser.frame.end());
      }
    }
    EXPECT_EQ(frames, row.frames);
  }
}

TEST(I2mParser, EveryByteInEveryStateIsTaken) {
  for (uint8_t state = 0; state < I2M_FRAME_SIZE; ++state) {
    for (int byte = 0; byte <= 0xFF; ++byte) {
      I2mParser parser = {.state = state, .frame = {I2M_SYNC, I2M_WRITE, 0, 0, 0, 0}};
      const bool complete = I2mParserTake(&parser, static_cast<uint8_t>(byte));
      EXPECT_EQ(complete, state == I2M_CHECKSUM_AT);
      EXPECT_LT(parser.state, I2M_FRAME_SIZE);
    }
  }
}

TEST(I2mDispatch, PrintsRegisterAndValue) {
  const struct {
    Bytes bytes;
    const char* printed;
  } rows[] = {
      {{0xA5, 0xA5, 0xA5, 0x41, 0x01, 0x02, 0x03, 0x09},
       "RX parsed: A5,41,01,02,03,EC, ==> [I2M_ADDR_VERSION]     0x02, 0x03\n"},
      {{0xA5, 0x40, 0x02, 0x00, 0x3C, 0x23},
       "RX parsed: A5,40,02,00,3C,23, ==> [I2M_ADDR_MOTOR_SPEED] 0x00, 0x3C\n"},
      {{0xA5, 0x40, 0x0A, 0x00, 0x02, 0xF1},
       "RX parsed: A5,40,0A,00,02,F1, ==> [I2M_ADDR_FOCUS_JOG]   0x00, 0x02\n"},
      {{0xA5, 0x41, 0x23, 0x00, 0x01, 0x0A},
       "RX parsed: A5,41,23,00,01,0A, ==> [I2M_ADDR_AF_MODE]     0x00, 0x01\n"},
      {{0xA5, 0x40, 0x22, 0x00, 0x01, 0x08},
       "RX parsed: A5,40,22,00,01,08, ==> [UNDEFINED CMD:0x22]   0x00, 0x01\n"},
      {{0xA5, 0x40, 0x00, 0xFF, 0xAB, 0x8F},
       "RX parsed: A5,40,00,FF,AB,8F, ==> [UNDEFINED CMD:0x00]   0xFF, 0xAB\n"},
  };
  LensLine line;
  g_mfz.parser = {};
  for (const auto& row : rows) {
    testing::internal::CaptureStdout();
    for (const uint8_t byte : row.bytes)
      i2m_parse_byte(byte);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
  }
  EXPECT_TRUE(line.TakeWrites().empty());
}

}  // namespace
