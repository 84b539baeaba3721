// Commands with the frames that they have to bring to the line, and nonsense.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "ipc/camera_control.h"
#include "sim/pty_line.h"
#include "sim/wait.h"

namespace soak {

// A mode of the daemon.
struct Mode {
  const char* name;
  const char* model;
  bool feeds;          // bytes from the line go to clients and datagrams, frames are foretold
  uint8_t frame_sync;  // first byte of every frame to the line
  size_t frame_size;
  size_t start_bytes;  // of an answer to the start's question, which goes out as a datagram
};

const std::vector<Mode>& Modes();

// A frame, and how long after the one before it is sent at least.
struct CommandFrame {
  sim::milliseconds after;
  sim::Bytes bytes;
};

struct Command {
  CameraControl control;
  std::vector<CommandFrame> frames;
};

// One of the mode's commands.
Command AnyCommand(const Mode& mode, std::mt19937* random);

// A datagram for the daemon's port that asks for nothing, up to the largest that there is.
sim::Bytes HostileDatagram(std::mt19937* random, size_t size);

// The same for the command channel.
sim::Bytes HostilePacket(std::mt19937* random, size_t size);

// Sizes of nonsense: those about which something in the daemon changes.
size_t AnyHostileSize(std::mt19937* random);
constexpr size_t kLargestHostile = 65000;

}  // namespace soak
