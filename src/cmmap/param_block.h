// The parameter block: the device's settings, a file that several processes map.
//
// The block is the first PARAM_BLOCK_SIZE bytes of PARAM_BLOCK_PATH. Integers are 32-bit
// little-endian. Only the fields that this daemon reads are named here.
#pragma once

constexpr char PARAM_BLOCK_PATH[] = "/var/nvt/param.dat";
constexpr int PARAM_BLOCK_KEY = 823;  // System V key of its semaphore
constexpr int PARAM_BLOCK_SIZE = 23972;

// Byte offsets.
enum ParamBlockOffset : int {
  PARAM_MODEL_NAME = 0,          // NUL-terminated device model
  PARAM_SERIAL_COUNT = 23728,    // number of serial ports of the device
  PARAM_SERIAL2_BAUD = 23764,    // second serial port: bits per second
  PARAM_SERIAL2_PARITY = 23768,  // 0 none, 1 even, 2 odd
  PARAM_SERIAL2_DATA_BITS = 23772,
  PARAM_SERIAL2_STOP_BITS = 23776,
  PARAM_PTZ_ENABLE = 23780,  // 1 enables the PTZ TCP server
  PARAM_PTZ_PORT = 23784,    // its TCP port
};
