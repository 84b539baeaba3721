#include "tests/system/update_fixture.h"

#include <regex>

using sim::Bytes;
using sim::milliseconds;

Bytes UpdateTest::Payload(size_t size) {
  Bytes payload(size);
  uint32_t state = 1;
  for (uint8_t& byte : payload) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return payload;
}

void UpdateTest::WriteImage(std::span<const uint8_t> payload) {
  std::string image(kImageHeader, '\xA0');
  image.append(payload.begin(), payload.end());
  sim::WriteTextFile(kImagePath, image);
}

void UpdateTest::StartMicom(sim::LoaderSetup setup) {
  auto end = std::make_unique<sim::HdMicom>(
      sim::HdIdentity{}, std::move(setup), [this] { return line.Settings(); }, sim::Clock::now());
  micom = end.get();
  while (manager.Receive(milliseconds(0)).has_value()) {
  }
  daemon.reset();
  StartWith("QB-310", std::move(end));
  Control(CAMERA_CODE_UP);
  ASSERT_TRUE(ServeUntilWords("up key\n")) << words;
}

std::optional<Bytes> UpdateTest::OrderUpdate(milliseconds limit) {
  std::optional<Bytes> notice;
  SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  server->ServeUntil(
      [&] {
        notice = manager.Receive(milliseconds(0));
        return notice.has_value();
      },
      limit);
  return notice;
}

std::string UpdateTest::WithoutLineNumbers(const std::string& text) {
  return std::regex_replace(text, std::regex("line\\[\\d+"), "line[N");
}
