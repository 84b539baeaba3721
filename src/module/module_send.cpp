#include "module/module_send.h"

#include "relay/pelco_d.h"
#include "serial/serial_io.h"

int SdModuleSend(int fd, uint8_t command2, uint8_t data1, uint8_t data2) {
  const PelcoFrame frame =
      PelcoBuild({.command1 = PELCO_NO_BITS, .command2 = command2, .data1 = data1, .data2 = data2});
  return SerialSend(fd, frame.data(), PELCO_FRAME_SIZE);
}

int HdModuleSend(int fd, HdCommand command, HdAccess access, uint8_t data) {
  const HdFrame frame = HdBuild(command, access, data);
  return SerialSend(fd, frame.data(), HD_FRAME_SIZE);
}
