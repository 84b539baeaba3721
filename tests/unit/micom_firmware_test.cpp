#include "module/micom_firmware.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Sent(const MicomPacket& packet) {
  return {packet.bytes.begin(), packet.bytes.begin() + packet.size};
}

// The checksum a bit at a time, low byte first, at the end of the bytes.
Bytes WithCrc(Bytes bytes) {
  unsigned crc = 0;
  for (const uint8_t byte : bytes) {
    for (int bit = 0; bit < 8; ++bit) {
      const unsigned out = (crc ^ static_cast<unsigned>(byte >> bit)) & 1;
      crc = crc >> 1 ^ (out != 0 ? 0x8408U : 0U);
    }
  }
  bytes.push_back(static_cast<uint8_t>(crc & 0xFF));
  bytes.push_back(static_cast<uint8_t>(crc >> 8));
  return bytes;
}

Bytes Payload(size_t size) {
  Bytes bytes(size);
  std::iota(bytes.begin(), bytes.end(), uint8_t{0x21});
  return bytes;
}

TEST(MicomFirmware, HeaderCarriesThePayloadLength) {
  EXPECT_EQ(Sent(MicomHeaderPacket(0)), (Bytes{0xA0, 0, 0, 0, 0, 0xAF, 0x3F, 0xDD}));
  EXPECT_EQ(Sent(MicomHeaderPacket(256)), (Bytes{0xA0, 0, 1, 0, 0, 0xAF, 0x84, 0xC1}));
  EXPECT_EQ(Sent(MicomHeaderPacket(0x12345678)), WithCrc({0xA0, 0x78, 0x56, 0x34, 0x12, 0xAF}));
}

TEST(MicomFirmware, DataPacketIsAsLongAsItsPiece) {
  for (const size_t size : {1U, 44U, 255U, 256U}) {
    const Bytes piece = Payload(size);
    Bytes expected = {0xA0, static_cast<uint8_t>(size & 0xFF), static_cast<uint8_t>(size >> 8)};
    expected.insert(expected.end(), piece.begin(), piece.end());
    expected.push_back(0xAF);
    EXPECT_EQ(Sent(MicomDataPacket(piece)), WithCrc(expected)) << size;
  }
}

TEST(MicomFirmware, TailCarriesTheChecksumOfThePayload) {
  EXPECT_EQ(Sent(MicomTailPacket({})), (Bytes{0xA0, 0x02, 0, 0, 0xAF, 0x4F, 0x8E}));
  const std::string check = "123456789";
  EXPECT_EQ(Sent(MicomTailPacket(Bytes(check.begin(), check.end()))),
            WithCrc({0xA0, 0x02, 0x89, 0x21, 0xAF}));
  const Bytes whole = WithCrc(Payload(1000));
  EXPECT_EQ(Sent(MicomTailPacket(Payload(1000))),
            WithCrc({0xA0, 0x02, whole[1000], whole[1001], 0xAF}));
}

TEST(MicomFirmware, AcknowledgementIsFoundPairByPair) {
  const struct {
    Bytes bytes;
    size_t found_at;  // bytes taken when it is complete, 0 never
    uint16_t value;   // the pair assembled last
  } rows[] = {
      {{}, 0, 0},
      {{0xDC, 0x12}, 2, 0xDC12},
      {{0x00, 0xFF, 0x12, 0xDC, 0x12}, 5, 0xDC12},
      {{0xDC, 0xDC, 0x12}, 0, 0x1200},
      {{0xDC, 0xDC, 0xDC, 0x12}, 4, 0xDC12},
      {{0xDC, 0x13, 0x12}, 0, 0x1200},
      {{0xDC, 0x13, 0xDC, 0x12}, 4, 0xDC12},
      {{0x12, 0xDC}, 0, 0xDC00},
      {{0xDC, 0x34}, 0, 0xDC34},
      {{0x55}, 0, 0x5500},
  };
  for (const auto& row : rows) {
    MicomAckSearch search = {};
    size_t found_at = 0;
    for (size_t i = 0; i < row.bytes.size() && found_at == 0; ++i) {
      if (MicomAckTake(&search, row.bytes[i])) found_at = i + 1;
    }
    EXPECT_EQ(found_at, row.found_at) << testing::PrintToString(row.bytes);
    EXPECT_EQ(search.value, row.value) << testing::PrintToString(row.bytes);
  }
}

}  // namespace
