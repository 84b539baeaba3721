#include "lens/i2m.h"

#include "lens/mfz_state.h"
#include "lens_line.h"
#include "tests/support.h"

namespace {

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
  support::ExpectTakes(I2M_REPLY_LIMIT_S * 1000, 1400,
                       [&] { EXPECT_FALSE(i2m_read_reply(&reply)); });
}

TEST(I2mDispatch, PrintsRegisterAndValue) {
  const std::pair<sim::Bytes, const char*> rows[] = {
      {{0xA5, 0xA5, 0xA5, 0x41, 0x01, 0x02, 0x03, 0x09},
       "RX parsed: A5,41,01,02,03,EC, ==> [I2M_ADDR_VERSION]     0x02, 0x03\n"},
      {{0xA5, 0x40, 0x02, 0x00, 0x3C, 0x23},
       "RX parsed: A5,40,02,00,3C,23, ==> [I2M_ADDR_MOTOR_SPEED] 0x00, 0x3C\n"},
      {{0xA5, 0x40, 0x0A, 0x00, 0x02, 0xF1},
       "RX parsed: A5,40,0A,00,02,F1, ==> [I2M_ADDR_FOCUS_JOG]   0x00, 0x02\n"},
      {{0xA5, 0x41, 0x23, 0x00, 0x01, 0x0A},
       "RX parsed: A5,41,23,00,01,0A, ==> [I2M_ADDR_AF_MODE]     0x00, 0x01\n"},
      {{0xA5, 0x40, 0x00, 0xFF, 0xAB, 0x8F},
       "RX parsed: A5,40,00,FF,AB,8F, ==> [UNDEFINED CMD:0x00]   0xFF, 0xAB\n"},
  };
  LensLine line;
  g_mfz.parser = {};
  for (const auto& row : rows) {
    const auto parse = [&] { std::for_each(row.first.begin(), row.first.end(), i2m_parse_byte); };
    EXPECT_EQ(support::OnStdout(parse), row.second);
  }
  EXPECT_TRUE(line.TakeWrites().empty());
}

}  // namespace
