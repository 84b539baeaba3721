#include "module/hd_frame.h"

#include <cstddef>

uint8_t HdChecksum(const HdFrame& frame) {
  unsigned sum = 0;
  for (size_t i = HD_SYNC_AT; i < HD_CHECKSUM_AT; ++i)
    sum += frame[i];
  return static_cast<uint8_t>(sum & 0xFF);
}

HdFrame HdBuild(HdCommand command, HdAccess access, uint8_t data) {
  HdFrame frame = {};
  frame[HD_SYNC_AT] = HD_SYNC;
  frame[HD_COMMAND_AT] = command;
  frame[HD_ACCESS_AT] = access;
  frame[HD_DATA_AT] = data;
  frame[HD_CHECKSUM_AT] = HdChecksum(frame);
  return frame;
}
