// The packets that transfer a firmware image to the micom of an HD camera module.
//
// In its update mode the micom accepts one packet at a time and answers each with one byte: first a
// header with the payload's length, then the payload in pieces, then a tail with the payload's
// checksum. Every packet ends with its own checksum. Integers are little-endian. No I/O and no
// state.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// Length of the image header, which is not part of the payload, bytes.
constexpr int MICOM_IMAGE_HEADER_SIZE = 64;

constexpr uint8_t MICOM_START = 0xA0;     // first byte of every packet
constexpr uint8_t MICOM_END = 0xAF;       // the byte before a packet's checksum
constexpr uint8_t MICOM_TAIL = 0x02;      // second byte of the tail packet
constexpr uint8_t MICOM_ACCEPTED = 0x33;  // answer to an accepted packet

// Acknowledgement that the micom has entered its update mode: two bytes, high byte first.
constexpr uint16_t MICOM_ACK = 0xDC12;

// Header packet: start, payload length (32 bits), end, checksum.
enum MicomHeaderOffset : int {
  MICOM_HEADER_LENGTH_AT = 1,
  MICOM_HEADER_END_AT = 5,
  MICOM_HEADER_CRC_AT = 6,
  MICOM_HEADER_SIZE = 8,
};

// Data packet: start, number of payload bytes (16 bits), payload bytes, end, checksum.
enum MicomDataOffset : int {
  MICOM_DATA_COUNT_AT = 1,
  MICOM_DATA_BYTES_AT = 3,
  MICOM_DATA_OVERHEAD = 6,  // bytes of a packet without its payload bytes
};
// Payload bytes of a full data packet.
constexpr int MICOM_DATA_MAX = 256;

// Tail packet: start, MICOM_TAIL, checksum of the payload, end, checksum.
enum MicomTailOffset : int {
  MICOM_TAIL_MARK_AT = 1,
  MICOM_TAIL_PAYLOAD_CRC_AT = 2,
  MICOM_TAIL_END_AT = 4,
  MICOM_TAIL_CRC_AT = 5,
  MICOM_TAIL_SIZE = 7,
};

// One packet; its first `size` bytes are sent.
struct MicomPacket {
  std::array<uint8_t, MICOM_DATA_MAX + MICOM_DATA_OVERHEAD> bytes;
  int size;
};

// CRC-16/KERMIT: reflected polynomial 0x8408, initial value 0, no final XOR. Returns 0 for no
// bytes.
uint16_t MicomCrc(std::span<const uint8_t> bytes);

MicomPacket MicomHeaderPacket(uint32_t payload_length);

// Builds a packet of 1 to MICOM_DATA_MAX payload bytes; ignores any further bytes.
MicomPacket MicomDataPacket(std::span<const uint8_t> bytes);

// Builds the tail packet for the whole payload.
MicomPacket MicomTailPacket(std::span<const uint8_t> payload);

// Searches a byte stream for MICOM_ACK. An all-zero object is at the start.
struct MicomAckSearch {
  uint16_t value;  // the last pair of bytes, high byte first
  bool has_first;  // the last byte is the high byte of MICOM_ACK
};

// Processes one byte. Returns true when it completes MICOM_ACK. A byte that follows a high byte but
// does not match ends the pair and is not itself tried as a high byte.
bool MicomAckTake(MicomAckSearch* search, uint8_t byte);
