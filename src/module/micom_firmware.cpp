#include "module/micom_firmware.h"

#include <algorithm>

#include "util/bytes.h"

namespace {

// --- Checksum ----------------------------------------------------------------------------------

constexpr uint16_t kPolynomial = 0x8408;

// CRC remainder of every byte value, to process a byte per step.
constexpr std::array<uint16_t, 256> MakeCrcTable() {
  std::array<uint16_t, 256> table = {};
  for (size_t value = 0; value < table.size(); ++value) {
    unsigned remainder = static_cast<unsigned>(value);
    for (int bit = 0; bit < 8; ++bit)
      remainder = remainder >> 1 ^ ((remainder & 1) != 0 ? kPolynomial : 0U);
    table[value] = static_cast<uint16_t>(remainder);
  }
  return table;
}

constexpr std::array<uint16_t, 256> kCrcTable = MakeCrcTable();

constexpr uint16_t Crc(std::span<const uint8_t> bytes) {
  unsigned crc = 0;
  for (const uint8_t byte : bytes)
    crc = crc >> 8 ^ kCrcTable[(crc ^ byte) & 0xFF];
  return static_cast<uint16_t>(crc);
}

constexpr std::array<uint8_t, 9> kCheckBytes = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
static_assert(Crc(kCheckBytes) == 0x2189);

// --- Packets -----------------------------------------------------------------------------------

// Appends the end mark and checksum to a packet with `used` bytes.
void Finish(MicomPacket* packet, size_t used) {
  packet->bytes[used] = MICOM_END;
  const std::span<const uint8_t> covered(packet->bytes.data(), used + 1);
  StoreLe16(packet->bytes.data() + used + 1, MicomCrc(covered));
  packet->size = static_cast<int>(used + 1 + sizeof(uint16_t));
}

MicomPacket Begin() {
  MicomPacket packet = {};
  packet.bytes[0] = MICOM_START;
  return packet;
}

}  // namespace

uint16_t MicomCrc(std::span<const uint8_t> bytes) {
  return Crc(bytes);
}

MicomPacket MicomHeaderPacket(uint32_t payload_length) {
  MicomPacket packet = Begin();
  StoreLe32(packet.bytes.data() + MICOM_HEADER_LENGTH_AT, payload_length);
  Finish(&packet, MICOM_HEADER_END_AT);
  return packet;
}

MicomPacket MicomDataPacket(std::span<const uint8_t> bytes) {
  MicomPacket packet = Begin();
  const size_t count = std::min(bytes.size(), static_cast<size_t>(MICOM_DATA_MAX));
  StoreLe16(packet.bytes.data() + MICOM_DATA_COUNT_AT, static_cast<uint16_t>(count));
  std::copy_n(bytes.begin(), count, packet.bytes.begin() + MICOM_DATA_BYTES_AT);
  Finish(&packet, MICOM_DATA_BYTES_AT + count);
  return packet;
}

MicomPacket MicomTailPacket(std::span<const uint8_t> payload) {
  MicomPacket packet = Begin();
  packet.bytes[MICOM_TAIL_MARK_AT] = MICOM_TAIL;
  StoreLe16(packet.bytes.data() + MICOM_TAIL_PAYLOAD_CRC_AT, MicomCrc(payload));
  Finish(&packet, MICOM_TAIL_END_AT);
  return packet;
}

bool MicomAckTake(MicomAckSearch* search, uint8_t byte) {
  if (search->has_first) {
    search->value = static_cast<uint16_t>((search->value & 0xFF00) | byte);
    search->has_first = false;
    return search->value == MICOM_ACK;
  }
  search->value = static_cast<uint16_t>(byte << 8);
  search->has_first = byte == MICOM_ACK >> 8;
  return false;
}
