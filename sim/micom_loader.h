// The firmware loader of an HD micom.
//
// It listens at 115200 8N1 only: once the line runs at that it shows its sign, then takes a
// header, the data packets and a tail, each with its own checksum, and answers each with one
// byte. While it is at work on a packet it hears nothing. The packets carry no numbers, so that
// a packet sent again after its acceptance was lost on the way is stored twice, as in hardware.
#pragma once

#include <termios.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/pty_line.h"
#include "sim/wait.h"

namespace sim {

constexpr uint8_t kLoaderAccepts = 0x33;
constexpr uint8_t kLoaderRefuses = 0x15;
// Room for firmware, bytes.
constexpr size_t kFlashSize = 1 << 20;
// A packet that has not gone on for this long is over.
constexpr milliseconds kLoaderQuiet{5};

// What may happen to a packet.
enum class LoaderFault {
  kSilent,         // it is not heard
  kRefuse,         // it is answered with another byte than acceptance, and not taken
  kDamagedPacket,  // a bit of it turns over on the way here
  kDamagedAnswer,  // it is taken, and a bit of the answer turns over on the way back
  kLate,           // it is taken, and answered late
};

struct LoaderTrouble {
  int packet;  // 0 the header, 1 the first data packet, ...
  LoaderFault fault;
  int times = 1;                    // how many sends of that packet it strikes
  uint8_t answer = kLoaderRefuses;  // of kRefuse
  milliseconds delay{0};            // of kLate
};

// How a loader behaves; by default as one in good health.
struct LoaderSetup {
  milliseconds start_time{50};  // from the command to enter until it listens
  milliseconds sign_delay{0};   // from the line being right until the sign
  Bytes before_sign = {};       // bytes on the line just before the sign
  Bytes sign = {0xDC, 0x12};
  milliseconds flash_time{0};  // from a packet to its answer
  std::vector<LoaderTrouble> troubles = {};
};

class MicomLoader {
 public:
  // Starts the loader. `line_settings` tells how the daemon's end of the line is set.
  MicomLoader(LoaderSetup setup, std::function<termios()> line_settings, Clock::time_point now);

  void Feed(std::span<const uint8_t> bytes, Clock::time_point now);
  void Tick(Clock::time_point now);

  // "loader waits for the line", "loader has 512 of 4000 bytes", "loader has new firmware, 4000
  // bytes".
  std::string Describe() const;
  bool IsComplete() const { return stage_ == Stage::kDone; }
  // What is stored so far.
  const Bytes& Firmware() const { return firmware_; }

  std::function<void(const std::string&)> on_words = [](const std::string&) {};
  std::function<void(std::span<const uint8_t>)> on_noise = [](std::span<const uint8_t>) {};
  std::function<void(std::span<const uint8_t>)> on_answer = [](std::span<const uint8_t>) {};

 private:
  enum class Stage { kStarting, kHeader, kData, kTail, kDone };

  struct Answer {
    Clock::time_point due;
    uint8_t byte;
  };

  bool IsLineRight() const;
  void ShowSign(Clock::time_point now);
  bool IsPacketWhole() const;
  void TakePacket(Clock::time_point now);
  bool Store();
  bool StoreHeader();
  bool StoreData();
  bool CheckTail();
  std::optional<LoaderTrouble> TakeTrouble();
  void AnswerAfter(milliseconds delay, uint8_t byte, Clock::time_point now);

  LoaderSetup setup_;
  std::function<termios()> line_settings_;
  Stage stage_ = Stage::kStarting;
  Clock::time_point listens_from_;
  std::optional<Clock::time_point> line_right_since_;
  Clock::time_point last_byte_;
  Bytes packet_;
  std::optional<Answer> answer_;
  int accepted_ = 0;  // packets
  size_t announced_ = 0;
  Bytes firmware_;
};

}  // namespace sim
