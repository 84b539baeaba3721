// A device whose HD module gets new firmware from the real daemon.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "ipc/csysmgr.h"
#include "sim/hd_micom.h"
#include "tests/system/module_fixture.h"

class UpdateTest : public ModuleTest {
 protected:
  static constexpr char kImagePath[] = "/tmp/micom_firmware";
  static constexpr size_t kImageHeader = 64;
  static constexpr char kOrder[] = "CICOMM_PCMD_MICOM_FIRMWARE_UPDATE\n";
  static constexpr char kAcknowledged[] = "Recv ACK [DC12]\n";

  void SetUp() override {
    ModuleTest::SetUp();
    unlink(kImagePath);
  }

  // What follows an update is no end by SIGTERM.
  void TearDown() override { daemon.reset(); }

  // Bytes without a pattern, every value among them.
  static sim::Bytes Payload(size_t size);

  // Puts an image there: a header that belongs to nobody, then the payload.
  static void WriteImage(std::span<const uint8_t> payload);

  // A micom whose loader will behave like this, behind the line of a new daemon that serves.
  void StartMicom(sim::LoaderSetup setup);

  // Orders the update and serves the line until the system manager gets its notice, which ends
  // an update whatever came of it. Returns the notice; nothing when none comes within `limit`.
  std::optional<sim::Bytes> OrderUpdate(sim::milliseconds limit);

  // What the daemon printed, with N for the numbers of source lines.
  std::string Output() const { return WithoutLineNumbers(daemon->Output()); }
  std::string Errors() const { return WithoutLineNumbers(daemon->Errors()); }

  // The whole output of an update that printed `text` after the order.
  static std::string Said(const std::string& text) { return kOrder + text; }
  static std::string Failed(const std::string& reason) {
    return "[MicomFirmwareUpdate] Error line[N], reason(" + reason + ")\n";
  }

  const sim::MicomLoader* Loader() const { return micom->Loader(); }

  sim::UdpPeer manager{CSYSMGR_PORT};
  sim::HdMicom* micom = nullptr;

 private:
  static std::string WithoutLineNumbers(const std::string& text);
};
