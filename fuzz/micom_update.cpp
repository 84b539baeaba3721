// In: the length of a firmware image (16 bits), then what the micom answers (fake_line.h).
// Holds: the micom gets the order to enter its update mode, then the header, the payload in full
// pieces and in order, and the tail, each with a good checksum; a packet is followed by the next
// only when it was accepted, and is not sent more often than allowed; the result says whether the
// tail was accepted; the time is bounded.
#include <cstdlib>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/fake_line.h"
#include "fuzz/files.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "module/firmware_update.h"
#include "module/hd_frame.h"
#include "module/micom_firmware.h"

int WrapOpenRS232(const SerialLine& line) asm("__wrap__Z9OpenRS232RK10SerialLine");
int WrapCloseRS232() asm("__wrap__Z10CloseRS232v");

namespace {

using Packet = std::vector<uint8_t>;

constexpr int kSerial = 77;
constexpr size_t kLongestImage = 4096;
constexpr int kMostSends = MICOM_SENDS * MICOM_SERIES;

int g_opened = 0;
int g_closed = 0;

uint16_t Checksum(std::span<const uint8_t> bytes) {
  unsigned crc = 0;
  for (const uint8_t byte : bytes) {
    for (int bit = 0; bit < 8; ++bit) {
      const bool odd = ((crc ^ byte >> bit) & 1U) != 0;
      crc = crc >> 1 ^ (odd ? 0x8408U : 0U);
    }
  }
  return static_cast<uint16_t>(crc);
}

void AppendWord(Packet* packet, uint16_t word) {
  packet->push_back(static_cast<uint8_t>(word & 0xFF));
  packet->push_back(static_cast<uint8_t>(word >> 8));
}

Packet Finished(Packet packet) {
  packet.push_back(0xAF);
  AppendWord(&packet, Checksum(packet));
  return packet;
}

// Every packet of an update, in order.
std::vector<Packet> PacketsOf(std::span<const uint8_t> payload) {
  const auto length = static_cast<uint16_t>(payload.size());
  std::vector<Packet> packets;
  Packet header = {0xA0};
  AppendWord(&header, length);
  AppendWord(&header, 0);
  packets.push_back(Finished(header));
  for (size_t at = 0; at < payload.size(); at += 256) {
    const auto piece = payload.subspan(at, std::min<size_t>(256, payload.size() - at));
    Packet data = {0xA0};
    AppendWord(&data, static_cast<uint16_t>(piece.size()));
    data.insert(data.end(), piece.begin(), piece.end());
    packets.push_back(Finished(data));
  }
  Packet tail = {0xA0, 0x02};
  AppendWord(&tail, Checksum(payload));
  packets.push_back(Finished(tail));
  return packets;
}

// Whether the answer to the write of that number accepts it.
bool IsAccepted(const fuzz::FakeLine& line, size_t write) {
  bool accepted = false;
  int answers = 0;
  for (const fuzz::FakeLine::Reading& reading : line.readings) {
    if (reading.writes_before != write + 1) continue;
    accepted = reading.byte == MICOM_ACCEPTED;
    ++answers;
  }
  FUZZ_CHECK(answers <= 1);
  return accepted;
}

// Follows the writes through the packets. Returns whether the last one was accepted.
bool CheckPackets(const fuzz::FakeLine& line, const std::vector<Packet>& packets) {
  size_t packet = 0;
  int sends = 0;
  for (size_t write = 1; write < line.writes.size(); ++write) {
    FUZZ_CHECK(packet < packets.size());
    FUZZ_CHECK(line.writes[write] == packets[packet]);
    const bool is_data = packet > 0 && packet + 1 < packets.size();
    FUZZ_CHECK(++sends <= (is_data ? kMostSends : 1));
    if (!IsAccepted(line, write)) continue;
    ++packet;
    sends = 0;
  }
  return packet == packets.size();
}

}  // namespace

int WrapOpenRS232(const SerialLine& line) {
  FUZZ_CHECK(line.baud_rate == 115200 && line.data_bits == 8);
  FUZZ_CHECK(line.parity == 0 && line.stop_bits == 1);
  FUZZ_CHECK(g_closed == 1 && g_opened++ == 0);
  return kSerial;
}

int WrapCloseRS232() {
  ++g_closed;
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::BeginExecution();
  fuzz::Input input(data, size);
  g_opened = 0;
  g_closed = 0;
  std::string image(input.Word() % kLongestImage, '\0');
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = static_cast<char>(i * 7 + i / 256);
  fuzz::PutFile(MICOM_FIRMWARE_PATH, image);

  const fuzz::FakeLine line(&input);
  Rs232Context context = {};
  const int64_t begin_us = fuzz::NowUs();
  const int result = MicomFirmwareUpdate(&context);
  if (image.size() < MICOM_IMAGE_HEADER_SIZE) {
    FUZZ_CHECK(result == -1 && line.writes.empty());
    return 0;
  }
  const std::span<const uint8_t> payload(
      reinterpret_cast<const uint8_t*>(image.data()) + MICOM_IMAGE_HEADER_SIZE,
      image.size() - MICOM_IMAGE_HEADER_SIZE);
  const HdFrame enter = HdBuild(HD_FIRMWARE_UPDATE, HD_SETTING, HD_NO_DATA);
  FUZZ_CHECK(context.serial == kSerial && !line.writes.empty());
  FUZZ_CHECK(line.writes[0] == Packet(enter.begin(), enter.end()));
  FUZZ_CHECK(CheckPackets(line, PacketsOf(payload)) == (result == 0));
  const auto writes = static_cast<int64_t>(line.writes.size());
  FUZZ_CHECK(fuzz::NowUs() - begin_us <= 13'000'000 + writes * 4'200'000);
  return 0;
}
