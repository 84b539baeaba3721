// CSYSMGR: one-way notices to the device's system manager.
//
// Each notice is one datagram to CSYSMGR_PORT of this host; there is no answer. Keeps no state
// between calls; any thread may call. Messages go to standard output.
#pragma once

#include <cstdint>

#include "util/bytes.h"

constexpr int CSYSMGR_PORT = 4100;
constexpr uint32_t CSYSMGR_MAGIC = 0x50535953;  // "SYSP" as bytes
// Largest payload of a notice, bytes.
constexpr int CSYSMGR_MAX_DATA = 256;

// Notice codes.
enum CsysmgrCode : int32_t {
  CSYSMGR_CODE_REBOOT = 0x52454254,  // 'REBT', no data: this daemon is about to reboot the device
};

struct CsysmgrPacket {
  Le32 magic;
  Le32 reserved;  // 0
  Le32 code;      // a CsysmgrCode
  uint8_t data[CSYSMGR_MAX_DATA];
};
constexpr int CSYSMGR_HEADER_SIZE = 12;
static_assert(sizeof(CsysmgrPacket) == CSYSMGR_HEADER_SIZE + CSYSMGR_MAX_DATA);

// Sends a notice with `size` bytes of `data` (may be null if `size` is 0). Returns 0 if it was
// sent, whether or not anyone receives it. Returns -1 if `size` is negative or exceeds
// CSYSMGR_MAX_DATA or the data is missing; also, after printing one line, if sending fails.
int CSYSMGR_SendPacket(int32_t code, const void* data, int size);
