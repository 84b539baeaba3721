// A device with a camera module on its line, and new firmware for an HD module.
#pragma once

#include <unistd.h>

#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "ipc/csysmgr.h"
#include "sim/hd_micom.h"
#include "tests/system/device_fixture.h"

class ModuleTest : public DeviceTest {
 protected:
  static constexpr char kInfoPath[] = "/var/nvt/camera.info";

  void SetUp() override { unlink(kInfoPath); }

  // Starts a new daemon with an HD module, and waits until its start-up queries are done.
  void StartMicom(sim::LoaderSetup loader, const sim::HdIdentity& identity = {},
                  const std::string& model = "QB-310") {
    auto end = std::make_unique<sim::HdMicom>(
        identity, std::move(loader), [this] { return line.Settings(); }, sim::Clock::now());
    micom = end.get();
    daemon.reset();
    Attach(std::move(end));
    std::string words;
    far_end->on_words = [&](const std::string& word) { words += word + "\n"; };
    config.model = model;
    Start();
    Control(CAMERA_CODE_UP);
    EXPECT_TRUE(sim::WaitUntil([&] { return words.ends_with("up key\n"); })) << words;
    EXPECT_NE(words.find("sensor query\n"), std::string::npos) << words;
    far_end->on_words = [](const std::string&) {};
  }

  std::string Info() { return sim::ReadTextFile(kInfoPath); }

  sim::HdMicom* micom = nullptr;
};

class UpdateTest : public ModuleTest {
 protected:
  static constexpr char kImagePath[] = "/tmp/micom_firmware";

  void SetUp() override { unlink(kImagePath); }

  // After an update the daemon does not exit at SIGTERM.
  void TearDown() override { daemon.reset(); }

  // Random bytes that include every value.
  static sim::Bytes Payload(size_t size) {
    sim::Bytes payload(size);
    std::mt19937 random;
    std::ranges::generate(payload, [&] { return static_cast<uint8_t>(random()); });
    return payload;
  }

  // Writes an image: an arbitrary header, then the payload.
  static void WriteImage(std::span<const uint8_t> payload) {
    std::string image(64, '\xA0');
    image.append(payload.begin(), payload.end());
    sim::WriteTextFile(kImagePath, image);
  }

  // Orders the update. Returns the notice to the system manager, which follows every update, or
  // nullopt on timeout.
  std::optional<sim::Bytes> OrderUpdate(sim::milliseconds limit) {
    SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
    return manager.Receive(limit);
  }

  void ExpectStored(size_t payload) {
    ASSERT_NE(micom->Loader(), nullptr);
    EXPECT_TRUE(micom->Loader()->IsComplete()) << micom->Loader()->Describe();
    EXPECT_TRUE(micom->Loader()->Firmware() == Payload(payload));
  }

  sim::UdpPeer manager{CSYSMGR_PORT};
};
