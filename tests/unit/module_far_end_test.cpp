// The simulated head and camera modules: what they understand, answer, refuse and store.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "module/micom_firmware.h"
#include "sim/hd_micom.h"
#include "sim/ptz_head.h"
#include "sim/sd_module.h"

namespace {

using sim::Bytes;
using sim::LoaderFault;
using sim::milliseconds;

const Bytes kEnter = {0xFF, 0xFD, 2, 0, 0, 0, 0, 0, 0, 0xFE};

// A far end with a clock of its own; writes down what it takes in and sends.
struct Bench {
  explicit Bench(sim::FarEnd* tested) : end(tested) {
    end->on_words = [this](const std::string& word) { words += word + "; "; };
    end->on_noise = [this](std::span<const uint8_t> bytes) { noise += bytes.size(); };
    end->on_answer = [this](std::span<const uint8_t> bytes) { answers += sim::Hex(bytes) + "; "; };
  }
  void Feed(std::span<const uint8_t> bytes) { end->Feed(bytes, now); }
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

// In pieces of every size.
TEST(FarEnds, TakeFramesOutOfNoise) {
  using Make = std::function<std::unique_ptr<sim::FarEnd>()>;
  const sim::Clock::time_point start;
  const Make head = [&]() { return std::make_unique<sim::PtzHead>(start); };
  const Make sd = [&]() { return std::make_unique<sim::SdModule>(uint8_t{0x12}, start); };
  const Make hd = [&]() {
    return std::make_unique<sim::HdMicom>(
        sim::HdIdentity{0x21, 0x01, 0x46}, sim::LoaderSetup{}, [] { return termios(); }, start);
  };
  const std::string left = "FF 01 00 04 1D 00 22 ";
  const std::string left_words = "pan left at speed 29; ";
  const std::string answer = "FF 01 00 01; ";
  const std::string sd_query = "FF 01 00 00 96 69 00 ";
  const std::string hd_query = "FF E3 01 00 00 00 00 00 00 E3 ";
  const struct {
    Make make;
    std::string bytes, words;
    size_t noise;
    std::string answers;
  } rows[] = {
      {head, left + "FF 01 00 00 00 00 01 ", left_words + "stop; ", 0, answer + answer},
      {head, "00 41 " + left + "01 ", left_words, 3, answer},
      {head, "FF 01 00 " + left, left_words, 3, answer},
      {head, "FF 01 00 04 1D 00 23 " + left, left_words, 7, answer},  // bad checksum
      {head, "FF 02 00 04 1D 00 23 " + left, left_words, 7, answer},  // another receiver
      {sd, "FF 00 " + sd_query, "asked for its model; ", 2, "FF 01 00 00 00 12 13; "},
      {sd, "FF 01 00 00 97 69 00 ", "", 7, ""},
      {sd, "FF 01 00 07 00 05 0D ", "go to preset 5; ", 0, ""},
      {hd, "FF FF 41 " + hd_query, "asked for its version; ", 3, "FF E3 01 00 00 00 21 00 00 04; "},
      {hd, "FF 5C 01 00 00 00 00 00 00 5C ", "asked for its resolution; ", 0,
       "FF 5C 01 00 00 00 01 00 00 5D; "},
      {hd, "FF E3 01 00 00 00 00 00 00 E2 ", "", 10, ""},
      {hd, "FF 21 02 00 00 00 05 00 00 27 ", "setting 5; ", 0, ""},
      {hd, "FF 4B 02 00 00 00 09 00 00 55 ", "unknown command and data 4B 09; ", 0, ""},
  };
  for (const auto& row : rows) {
    Bytes all;
    for (size_t at = 0; at < row.bytes.size(); at += 3)
      all.push_back(static_cast<uint8_t>(std::stoi(row.bytes.substr(at, 2), nullptr, 16)));
    for (size_t piece = 1; piece <= all.size(); ++piece) {
      SCOPED_TRACE(row.bytes + "by " + std::to_string(piece));
      const auto end = row.make();
      Bench bench(end.get());
      for (size_t at = 0; at < all.size(); at += piece)
        bench.Feed(std::span(all).subspan(at, std::min(piece, all.size() - at)));
      bench.Run(sim::kQuietAfter);
      EXPECT_EQ(bench.words, row.words);
      EXPECT_EQ(bench.noise, row.noise);
      EXPECT_EQ(bench.answers, row.answers);
    }
  }
}

TEST(MicomLoader, HearsTheLineAtItsSpeedOnly) {
  for (const auto& [speed, frame] : {std::pair(B9600, CS8), {B115200, CS8 | PARENB}}) {
    MicomBench test;
    test.bench.Feed(kEnter);
    test.SetLine(static_cast<speed_t>(speed), static_cast<tcflag_t>(frame));
    test.bench.Run(milliseconds(10'000));
    EXPECT_EQ(test.Send(MicomHeaderPacket(0)), "");
    EXPECT_EQ(test.bench.noise, 8U);
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
