// The simulated camera modules: what they understand, answer, refuse and store.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "module/micom_firmware.h"
#include "sim/hd_micom.h"
#include "sim/sd_module.h"

namespace {

using sim::Bytes;
using sim::LoaderFault;
using sim::milliseconds;

const Bytes kSdQuery = {0xFF, 0x01, 0x00, 0x00, 0x96, 0x69, 0x00};
const Bytes kHdQuery = {0xFF, 0xE3, 1, 0, 0, 0, 0, 0, 0, 0xE3};
const Bytes kEnter = {0xFF, 0xFD, 2, 0, 0, 0, 0, 0, 0, 0xFE};

// A far end with a clock of its own; writes down what it takes in and sends.
struct Bench {
  explicit Bench(sim::FarEnd* tested) : end(tested) {
    end->on_words = [this](const std::string& word) { words += word + "; "; };
    end->on_noise = [this](std::span<const uint8_t> bytes) { noise += bytes.size(); };
    end->on_answer = [this](std::span<const uint8_t> bytes) { answers += sim::Hex(bytes) + "; "; };
  }
  void Feed(const Bytes& bytes) { end->Feed(bytes, now); }
  void Run(milliseconds time) {
    now += time;
    end->Tick(now);
  }

  sim::FarEnd* end;
  sim::Clock::time_point now = {};
  std::string words;
  std::string answers;
  size_t noise = 0;
};

TEST(SdModule, TakesFramesOutOfNoiseAndAnswersTheQueryOnly) {
  Bytes damaged = kSdQuery;
  damaged[4] ^= 1;
  const Bytes up = {0xFF, 0x01, 0x00, 0x08, 0x00, 0x00, 0x09};
  const struct {
    const char* legend;
    std::vector<Bytes> pieces;
    const char* words;
    size_t noise;
    const char* answers;
  } rows[] = {
      {"query", {kSdQuery}, "asked for its model; ", 0, "FF 01 00 00 00 12 13; "},
      {"in pieces",
       {{0xFF, 0x01}, {0x00, 0x00, 0x96}, {0x69, 0x00}},
       "asked for its model; ",
       0,
       "FF 01 00 00 00 12 13; "},
      {"damaged", {damaged}, "", 7, ""},
      {"noise before",
       {{0xFF, 0x00}, kSdQuery},
       "asked for its model; ",
       2,
       "FF 01 00 00 00 12 13; "},
      {"cut off", {{0xFF, 0x01, 0x00}}, "", 3, ""},
      {"key", {up}, "up key; ", 0, ""},
      {"not of this module",
       {{0xFF, 0x01, 0x00, 0x07, 0x00, 0x05, 0x0D}},
       "go to preset 5; ",
       0,
       ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    sim::SdModule module(0x12, {});
    Bench bench(&module);
    for (const Bytes& piece : row.pieces)
      bench.Feed(piece);
    EXPECT_EQ(bench.answers, "");
    bench.Run(sim::kQuietAfter);
    EXPECT_EQ(bench.words, row.words);
    EXPECT_EQ(bench.noise, row.noise);
    EXPECT_EQ(bench.answers, row.answers);
  }
}

TEST(SdModule, ZoomsWhileItIsTold) {
  sim::SdModule module(0x12, {});
  Bench bench(&module);
  bench.Feed({0xFF, 0x01, 0x00, 0x20, 0x00, 0x00, 0x21});
  bench.Run(milliseconds(1000));
  EXPECT_EQ(module.Describe(), "zoom 5.0x, menu closed");
  bench.Feed({0xFF, 0x01, 0x00, 0x03, 0x00, 0x5F, 0x63});  // a preset is no motion
  EXPECT_TRUE(module.IsMoving());
  bench.Feed({0xFF, 0x01, 0x00, 0x08, 0x00, 0x00, 0x09});
  EXPECT_FALSE(module.IsMoving());
  bench.Feed({0xFF, 0x01, 0x00, 0x40, 0x00, 0x00, 0x41});
  bench.Run(milliseconds(60'000));
  EXPECT_EQ(module.Describe(), "zoom 1.0x, menu at exit");
}

// A micom whose line is set as the test wants.
struct MicomBench {
  explicit MicomBench(const sim::LoaderSetup& setup = {})
      : micom({0x21, 0x01, 0x46}, setup, [this] { return line; }, {}), bench(&micom) {
    SetLine(B9600, CS8);
  }
  void SetLine(speed_t speed, tcflag_t frame) {
    line = {};
    line.c_cflag = frame;
    cfsetospeed(&line, speed);
  }
  // Enters the loader and waits for its sign.
  void Enter() {
    bench.Feed(kEnter);
    SetLine(B115200, CS8);
    bench.Run(milliseconds(100));
    bench.Run(milliseconds(0));
    EXPECT_EQ(bench.answers, "DC 12; ");
    bench.answers.clear();
  }
  // Sends a packet and returns its answer.
  std::string Send(const MicomPacket& packet) {
    return SendBytes({packet.bytes.begin(), packet.bytes.begin() + packet.size});
  }
  std::string SendBytes(const Bytes& bytes) {
    bench.Feed(bytes);
    bench.Run(sim::kLoaderQuiet);
    return std::exchange(bench.answers, "");
  }

  termios line = {};
  sim::HdMicom micom;
  Bench bench;
};

TEST(HdMicom, TakesFramesOutOfNoise) {
  Bytes damaged = kHdQuery;
  damaged[9] ^= 1;
  const struct {
    const char* legend;
    std::vector<Bytes> pieces;
    const char* words;
    size_t noise;
    const char* answers;
  } rows[] = {
      {"query", {kHdQuery}, "asked for its version; ", 0, "FF E3 01 00 00 00 21 00 00 04; "},
      {"in pieces",
       {{0xFF, 0x5C, 1, 0}, {0, 0, 0, 0, 0}, {0x5C}},
       "asked for its resolution; ",
       0,
       "FF 5C 01 00 00 00 01 00 00 5D; "},
      {"damaged", {damaged}, "", 10, ""},
      {"noise before",
       {{0xFF, 0xFF, 0x41}, kHdQuery},
       "asked for its version; ",
       3,
       "FF E3 01 00 00 00 21 00 00 04; "},
      {"cut off", {{0xFF, 0xE3, 1}}, "", 3, ""},
      {"settings are not answered",
       {{0xFF, 0x21, 2, 0, 0, 0, 5, 0, 0, 0x27}},
       "setting 5; ",
       0,
       ""},
      {"unknown query",
       {{0xFF, 0x10, 1, 0, 0, 0, 0, 0, 0, 0x10}},
       "unknown command and data 10 00; ",
       0,
       ""},
      {"unknown key",
       {{0xFF, 0x4B, 2, 0, 0, 0, 9, 0, 0, 0x55}},
       "unknown command and data 4B 09; ",
       0,
       ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    MicomBench test;
    for (const Bytes& piece : row.pieces)
      test.bench.Feed(piece);
    EXPECT_EQ(test.bench.answers, "");
    test.bench.Run(sim::kQuietAfter);
    EXPECT_EQ(test.bench.words, row.words);
    EXPECT_EQ(test.bench.noise, row.noise);
    EXPECT_EQ(test.bench.answers, row.answers);
  }
}

TEST(MicomLoader, HearsTheLineAtItsSpeedOnly) {
  const struct {
    speed_t speed;
    tcflag_t frame;
  } rows[] = {
      {B9600, CS8}, {B57600, CS8}, {B115200, CS7}, {B115200, CS8 | PARENB}, {B115200, CS8 | CSTOPB},
  };
  for (const auto& row : rows) {
    MicomBench test;
    test.bench.Feed(kEnter);
    test.SetLine(row.speed, row.frame);
    test.bench.Run(milliseconds(10'000));
    EXPECT_EQ(test.Send(MicomHeaderPacket(0)), "");
    EXPECT_EQ(test.bench.noise, 8U);
    test.SetLine(B115200, CS8);
    test.bench.Run(milliseconds(1));
    EXPECT_EQ(test.bench.answers, "DC 12; ");
    test.bench.answers.clear();
    test.SetLine(row.speed, row.frame);
    EXPECT_EQ(test.Send(MicomHeaderPacket(0)), "");
  }
}

TEST(MicomLoader, RefusesWhatIsNotSound) {
  const Bytes piece = {1, 2, 3, 4};
  const auto changed = [](MicomPacket packet, size_t at) {
    packet.bytes[at] ^= 0x10;
    return packet;
  };
  MicomBench test;
  test.Enter();
  EXPECT_EQ(test.Send(changed(MicomHeaderPacket(8), 1)), "15; ");  // length
  EXPECT_EQ(test.Send(changed(MicomHeaderPacket(8), 5)), "15; ");  // end mark
  EXPECT_EQ(test.Send(changed(MicomHeaderPacket(8), 7)), "15; ");  // checksum
  EXPECT_EQ(test.Send(MicomHeaderPacket(0xFFFFFFC0)), "15; ");     // a negative length
  EXPECT_EQ(test.Send(MicomDataPacket(piece)), "15; ");            // no header yet
  EXPECT_EQ(test.Send(MicomHeaderPacket(8)), "33; ");
  EXPECT_EQ(test.Send(MicomTailPacket({})), "15; ");                 // no data yet
  EXPECT_EQ(test.Send(MicomDataPacket(Bytes(9, 1))), "15; ");        // more than announced
  EXPECT_EQ(test.Send(changed(MicomDataPacket(piece), 4)), "15; ");  // a payload byte
  EXPECT_EQ(test.SendBytes({0xA0, 0x04, 0x00, 0x01}), "15; ");       // cut off
  EXPECT_EQ(test.Send(MicomDataPacket(piece)), "33; ");
  EXPECT_EQ(test.Send(MicomDataPacket(piece)), "33; ");  // nobody knows it came twice
  EXPECT_EQ(test.micom.Loader()->Firmware(), (Bytes{1, 2, 3, 4, 1, 2, 3, 4}));
  EXPECT_EQ(test.Send(MicomTailPacket(piece)), "15; ");  // checksum of other bytes
  EXPECT_FALSE(test.micom.Loader()->IsComplete());
  EXPECT_EQ(test.Send(MicomTailPacket(test.micom.Loader()->Firmware())), "33; ");
  EXPECT_TRUE(test.micom.Loader()->IsComplete());
}

TEST(MicomLoader, IsDeafWhileItIsAtWork) {
  MicomBench test(
      {.troubles = {{.packet = 0, .fault = LoaderFault::kLate, .delay = milliseconds(5000)}}});
  test.Enter();
  EXPECT_EQ(test.Send(MicomHeaderPacket(4)), "");
  test.bench.Run(milliseconds(4000));
  EXPECT_EQ(test.Send(MicomHeaderPacket(4)), "");
  test.bench.Run(milliseconds(1000));
  EXPECT_EQ(test.bench.answers, "33; ");
  EXPECT_EQ(test.micom.Describe(), "loader has 0 of 4 bytes");
}

}  // namespace
