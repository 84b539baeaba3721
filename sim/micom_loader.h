// The firmware loader of an HD micom.
//
// It listens at 115200 8N1 only. Once the line has these settings, the loader sends its signature,
// then expects a header, the data packets and a tail, each with its own checksum, and answers each
// with one byte. It discards all input while it processes a packet. Packets have no sequence
// numbers: if an acceptance is lost and the daemon repeats the packet, the loader stores it twice,
// as the hardware does.
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
// After this much silence a partial packet is rejected.
constexpr milliseconds kLoaderQuiet{5};

// Faults of a packet.
enum class LoaderFault {
  kSilent,         // not received
  kRefuse,         // rejected with a byte other than kLoaderAccepts
  kDamagedPacket,  // a bit flips on the way to the loader
  kDamagedAnswer,  // accepted, a bit of the answer flips
  kLate,           // accepted, answered late
};

struct LoaderTrouble {
  int packet;  // 0 the header, 1 the first data packet, ...
  LoaderFault fault;
  int times = 1;                    // number of transmissions of that packet that fail
  uint8_t answer = kLoaderRefuses;  // for kRefuse
  milliseconds delay{0};            // for kLate
};

// Behaviour of a loader. The defaults are those of a healthy one.
struct LoaderSetup {
  milliseconds start_time{50};  // from the update command until it listens
  milliseconds sign_delay{0};   // from correct line settings to the signature
  Bytes before_sign = {};       // bytes sent just before the signature
  Bytes sign = {0xDC, 0x12};
  milliseconds flash_time{0};  // from a packet to the answer
  std::vector<LoaderTrouble> troubles = {};
};

class MicomLoader {
 public:
  // Starts the loader. `line_settings` returns the settings of the daemon's end of the line.
  MicomLoader(LoaderSetup setup, std::function<termios()> line_settings, Clock::time_point now);

  void Feed(std::span<const uint8_t> bytes, Clock::time_point now);
  void Tick(Clock::time_point now);

  // "loader waiting for the line", "loader has 512 of 4000 bytes", "loader has new firmware, 4000
  // bytes".
  std::string Describe() const;
  bool IsComplete() const { return stage_ == Stage::kDone; }
  // The firmware stored so far.
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
