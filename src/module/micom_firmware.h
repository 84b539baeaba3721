// The packets that carry a firmware image to the micom of an HD camera module.
//
// In its update mode the micom takes one packet at a time and answers each with one byte: first
// a header with the payload's length, then the payload in pieces, then a tail with the
// payload's checksum. Every packet ends with its own checksum. Integers are little-endian.
// Nothing here does I/O or keeps state of its own.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// Bytes at the start of an image that are not part of the payload.
constexpr int MICOM_IMAGE_HEADER_SIZE = 64;

constexpr uint8_t MICOM_START = 0xA0;     // first byte of every packet
constexpr uint8_t MICOM_END = 0xAF;       // the byte before a packet's checksum
constexpr uint8_t MICOM_TAIL = 0x02;      // second byte of the tail packet
constexpr uint8_t MICOM_ACCEPTED = 0x33;  // the answer to a packet that was taken

// The micom's sign that it has entered its update mode: two bytes, the high one first.
constexpr uint16_t MICOM_ACK = 0xDC12;

// Header packet: start, payload length (32 bits), end, checksum.
enum MicomHeaderOffset : int {
  MICOM_HEADER_LENGTH_AT = 1,
  MICOM_HEADER_END_AT = 5,
  MICOM_HEADER_CRC_AT = 6,
  MICOM_HEADER_SIZE = 8,
};

// Data packet: start, number of payload bytes n (16 bits), the bytes, end, checksum.
enum MicomDataOffset : int {
  MICOM_DATA_COUNT_AT = 1,
  MICOM_DATA_BYTES_AT = 3,
  MICOM_DATA_OVERHEAD = 6,  // bytes of a packet besides its payload bytes
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

// One packet; `size` bytes of it are sent.
struct MicomPacket {
  std::array<uint8_t, MICOM_DATA_MAX + MICOM_DATA_OVERHEAD> bytes;
  int size;
};

// CRC-16/KERMIT: reflected polynomial 0x8408, initial value 0, nothing added at the end. 0 of
// no bytes.
uint16_t MicomCrc(std::span<const uint8_t> bytes);

MicomPacket MicomHeaderPacket(uint32_t payload_length);

// Takes 1 to MICOM_DATA_MAX payload bytes; more are cut.
MicomPacket MicomDataPacket(std::span<const uint8_t> bytes);

// Takes the whole payload.
MicomPacket MicomTailPacket(std::span<const uint8_t> payload);

// Search for MICOM_ACK among other bytes. Starts all zero.
struct MicomAckSearch {
  uint16_t value;  // the pair assembled last, the high byte first
  bool has_first;  // the last byte may be the first half
};

// Takes one byte. Returns true when it completes MICOM_ACK. A byte that does not follow a first
// half as it should ends the pair and is not looked at as a first half itself.
bool MicomAckTake(MicomAckSearch* search, uint8_t byte);
