#include "relay/pelco_d.h"

#include <cstddef>

uint8_t PelcoChecksum(const PelcoFrame& frame) {
  unsigned sum = 0;
  for (size_t i = PELCO_ADDRESS_AT; i < PELCO_CHECKSUM_AT; ++i)
    sum += frame[i];
  return static_cast<uint8_t>(sum & 0xFF);
}

PelcoFrame PelcoBuild(const PelcoCommand& command) {
  PelcoFrame frame = {
      PELCO_SYNC, PELCO_ADDRESS, command.command1, command.command2, command.data1, command.data2,
      0};
  frame[PELCO_CHECKSUM_AT] = PelcoChecksum(frame);
  return frame;
}
