#include "tests/soak/commands.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "sim/peers.h"

namespace soak {
namespace {

using sim::Bytes;
using sim::milliseconds;

constexpr uint8_t kPelcoSync = 0xFF;
constexpr uint8_t kHdSync = 0xFF;
constexpr uint8_t kLensSync = 0xA5;

constexpr milliseconds kNow{0};
constexpr milliseconds kPre{50};
constexpr milliseconds kShort{100};
constexpr milliseconds kLong{250};

// What the third byte of a body stands for: the parameter of the command.
constexpr int kParameter = -1;

// A row holds what goes over the wire, written out: it must not come from the daemon's tables.
struct FrameRow {
  milliseconds after;
  std::array<int, 4> body;  // Pelco-D: command 1 to data 2; HD: command, data
};

struct CommandRow {
  const char* mode;
  uint16_t code;
  std::array<int8_t, 3> parameters;  // kParameter: any of 1 to 60
  std::vector<FrameRow> frames;
};

const std::vector<CommandRow>& Rows() {
  constexpr FrameRow kStop = {kNow, {0, 0, 0, 0}};
  constexpr FrameRow kShortStop = {kShort, {0, 0, 0, 0}};
  constexpr FrameRow kLongStop = {kLong, {0, 0, 0, 0}};
  constexpr int8_t kAny = kParameter;
  static const std::vector<CommandRow> kRows = {
      {"relay", 0x1020, {kAny, 0, 0}, {{kNow, {0, 0x03, 0, kParameter}}}},
      {"relay", 0x1021, {kAny, 0, 0}, {kStop, {kPre, {0, 0x07, 0, kParameter}}}},
      {"relay", 0x1022, {kAny, 0, 0}, {{kNow, {0, 0x05, 0, kParameter}}}},
      {"relay", 0x4001, {kAny, 0, 0}, {{kNow, {0, 0x09, 0, kParameter}}}},
      {"relay", 0x1012, {127, 0, 0}, {{kNow, {0, 0x02, 63, 0}}}},
      {"relay", 0x1012, {-127, 127, 0}, {{kNow, {0, 0x0C, 63, 63}}}},
      {"relay", 0x1012, {0, 0, 0}, {kStop, kLongStop}},
      {"relay", 0x1012, {0, -127, 1}, {{kNow, {0, 0x10, 0, 63}}, {kNow, {0, 0x20, 0, 0}}}},
      {"relay", 0x2007, {0, 0, 0}, {{kNow, {0, 0x08, 0, 29}}, kShortStop, kShortStop}},
      {"relay", 0x200A, {0, 0, 0}, {{kNow, {0, 0x02, 29, 0}}, kShortStop, kShortStop}},
      {"relay", 0x2001, {5, 0, 0}, {{kNow, {0x01, 0, 0, 0}}}},
      {"relay", 0x2001, {-5, 0, 0}, {{kNow, {0, 0x80, 0, 0}}}},
      {"relay", 0x4003, {0, 0, 0}, {kStop, {kPre, {0, 0x07, 0, 99}}}},
      {"relay", 0x1077, {3, 0, 0}, {}},
      {"sd", 0x2002, {0, 0, 7}, {{kNow, {0, 0x20, 0, 0}}}},
      {"sd", 0x2002, {0, 0, -7}, {{kNow, {0, 0x40, 0, 0}}}},
      {"sd", 0x2002, {0, 0, 0}, {kStop}},
      {"sd", 0x2000, {0, 0, 0}, {{kNow, {0, 0x03, 0, 95}}, kStop}},
      {"sd", 0x2007, {0, 0, 0}, {{kNow, {0, 0x08, 0, 0}}, kStop}},
      {"sd", 0x2009, {0, 0, 0}, {{kNow, {0, 0x04, 0, 0}}, kStop}},
      {"sd", 0x1021, {1, 0, 0}, {}},
      {"hd", 0x2002, {0, 0, 9}, {{kNow, {0x41, 0x01}}}},
      {"hd", 0x2002, {0, 0, -9}, {{kNow, {0x41, 0x02}}}},
      {"hd", 0x2002, {0, 0, 0}, {{kNow, {0x41, 0x00}}}},
      {"hd", 0x2001, {1, 0, 0}, {{kNow, {0x41, 0x18}}}},
      {"hd", 0x2001, {-5, 0, 0}, {{kNow, {0x41, 0x14}}}},
      {"hd", 0x1202, {0, 0, 0}, {{kNow, {0x41, 0x03}}}},
      {"hd", 0x2008, {0, 0, 0}, {{kNow, {0x4B, 0x02}}}},
      {"hd", 0x1093, {kAny, 0, 0}, {{kNow, {0x21, kParameter}}}},
      {"hd", 0x1012, {1, 1, 1}, {}},
      // A lens: no frame is foretold, the lens itself is looked at.
      {"lens", 0x2001, {kAny, 0, 0}, {}},
      {"lens", 0x2001, {-30, 0, 0}, {}},
      {"lens", 0x2001, {0, 0, 0}, {}},
      {"lens", 0x2002, {0, 0, 40}, {}},
      {"lens", 0x2002, {0, 0, -60}, {}},
      {"lens", 0x2002, {0, 0, 0}, {}},
      {"lens", 0x1202, {0, 0, 0}, {}},
      {"lens", 0x100A, {1, 0, 0}, {}},
      {"lens", 0x100A, {-1, 0, 0}, {}},
      {"lens", 0x1077, {1, 0, 0}, {}},
  };
  return kRows;
}

Bytes PelcoFrame(const std::array<int, 4>& body) {
  Bytes frame = {kPelcoSync, 0x01};
  for (const int byte : body)
    frame.push_back(static_cast<uint8_t>(byte));
  frame.push_back(static_cast<uint8_t>(std::accumulate(frame.begin() + 1, frame.end(), 0U)));
  return frame;
}

Bytes HdFrame(const std::array<int, 4>& body) {
  Bytes frame = {kHdSync, static_cast<uint8_t>(body[0]), 2, 0, 0,
                 0,       static_cast<uint8_t>(body[1]), 0, 0};
  frame.push_back(static_cast<uint8_t>(std::accumulate(frame.begin(), frame.end(), 0U)));
  return frame;
}

int Roll(std::mt19937* random, int low, int high) {
  return std::uniform_int_distribution<>(low, high)(*random);
}

Bytes Nonsense(std::mt19937* random, size_t size) {
  Bytes bytes(size);
  std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(Roll(random, 0, 255)); });
  return bytes;
}

}  // namespace

const std::vector<Mode>& Modes() {
  static const std::vector<Mode> kModes = {
      {"relay", "QB-620", true, kPelcoSync, 7, 0},
      {"sd", "QB-210", true, kPelcoSync, 7, 7},
      {"hd", "QB-310", true, kHdSync, 10, 0},
      {"lens", "QB-420", false, kLensSync, 6, 0},
  };
  return kModes;
}

Command AnyCommand(const Mode& mode, std::mt19937* random) {
  std::vector<const CommandRow*> rows;
  for (const CommandRow& row : Rows()) {
    if (std::string_view(row.mode) == mode.name) rows.push_back(&row);
  }
  const CommandRow& row =
      *rows[static_cast<size_t>(Roll(random, 0, static_cast<int>(rows.size()) - 1))];
  const int parameter = Roll(random, 1, 60);
  const auto fill = [parameter](int value) { return value == kParameter ? parameter : value; };
  Command command = {.control = {.target = CAMERA_CONTROL_TARGET,
                                 .code = row.code,
                                 .first = row.parameters[0],
                                 .second = row.parameters[1],
                                 .third = row.parameters[2]},
                     .frames = {}};
  const bool is_any = row.parameters[0] == kParameter;
  if (is_any) command.control.first = static_cast<int8_t>(parameter);
  for (const FrameRow& frame : row.frames) {
    std::array<int, 4> body = frame.body;
    if (is_any) std::ranges::transform(body, body.begin(), fill);
    command.frames.push_back(
        {.after = frame.after, .bytes = mode.frame_size == 10 ? HdFrame(body) : PelcoFrame(body)});
  }
  return command;
}

Bytes HostileDatagram(std::mt19937* random, size_t size) {
  Bytes bytes = Nonsense(random, size);
  // Neither the order to write nor that to stop: both have this byte second.
  if (size > 1) bytes[1] = static_cast<uint8_t>(Roll(random, 0, RS232_UDP_WRITE / 256 - 1));
  return bytes;
}

Bytes HostilePacket(std::mt19937* random, size_t size) {
  Bytes bytes = Nonsense(random, size);
  if (Roll(random, 0, 1) == 0) {
    // A packet that is as it should be, but for its size field and for whom it is.
    const Bytes good = sim::CameraControlPacket({.target = CAMERA_CONTROL_TARGET + 1,
                                                 .code = CAMERA_CODE_UP,
                                                 .first = 1,
                                                 .second = 1,
                                                 .third = 1});
    std::copy_n(good.begin(), std::min(size, good.size()), bytes.begin());
    if (size > 20) bytes[19] = 0x7F;
    return bytes;
  }
  // Not the command to renew the firmware, which would end in a reboot.
  constexpr size_t kCommandAt = 8;
  if (size > kCommandAt) bytes[kCommandAt] = CICOMM_PCMD_PTZ + 1;
  return bytes;
}

size_t AnyHostileSize(std::mt19937* random) {
  constexpr std::array<size_t, 12> kSizes = {0,  1,  2,  11,   12,   31,
                                             32, 48, 49, 5122, 5123, kLargestHostile};
  return kSizes[static_cast<size_t>(Roll(random, 0, kSizes.size() - 1))];
}

}  // namespace soak
