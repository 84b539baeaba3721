// A device for system tests: the real daemon on a pty line in the test's world.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "daemon/model_family.h"
#include "relay/daemon_datagram.h"
#include "sim/device_rig.h"

class DeviceTest : public testing::Test, protected sim::DeviceRig {
 protected:
  // A daemon that still runs must exit properly at SIGTERM.
  void TearDown() override {
    if (daemon == nullptr || HasEnded()) return;
    EXPECT_EQ(daemon->Stop(), 0) << daemon->Errors();
  }

  // Writes the device's files without starting the daemon.
  void Install() { sim::InstallDevice(config); }

  // Starts the daemon without waiting.
  void Launch(std::vector<std::string> arguments = {}, sim::LaunchOptions options = {}) {
    DeviceRig::Launch(RS232D_PATH, std::move(arguments), std::move(options));
  }

  // Writes the files, starts the daemon and waits until it serves.
  void Start(std::vector<std::string> arguments = {}) {
    Install();
    Launch(std::move(arguments));
    ASSERT_TRUE(WaitServing()) << daemon->Output() << daemon->Errors();
  }

  // Like Start, for a device of this model, and answers the start-up queries of a camera module. An
  // HD module answers 0 to all.
  void StartModel(const std::string& model, std::vector<std::string> arguments = {}) {
    config.model = model;
    Start(std::move(arguments));
    if (IsSdModuleModel(model.c_str()) != 0) {
      EXPECT_EQ(Line(7), "FF 01 00 00 96 69 00");
    }
    if (IsHdModuleModel(model.c_str()) == 0) return;
    for (const uint8_t command : sim::Bytes{0xE3, 0x5C, 0xE0}) {
      EXPECT_EQ(line.Receive(10)[1], command);
      const auto checksum = static_cast<uint8_t>(0xFF + command + 1);
      line.Send(sim::Bytes{0xFF, command, 1, 0, 0, 0, 0, 0, 0, checksum});
    }
  }

  // Returns the next `count` bytes on the line in hexadecimal.
  std::string Line(size_t count) { return sim::Hex(line.Receive(count)); }

  // Sends one byte by UDP and expects it as the next byte on the line, so nothing else was sent.
  void ExpectLineQuiet() {
    const uint8_t marker = 0x5A;
    SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, {&marker, 1}));
    EXPECT_EQ(Line(1), "5A");
  }

  // Wait until the daemon has printed `text` `count` times.
  bool WaitOutput(const std::string& text, size_t count = 1,
                  sim::milliseconds limit = sim::milliseconds(15000)) {
    return sim::WaitUntil([&] { return sim::CountOf(text, daemon->Output()) >= count; }, limit);
  }
  bool WaitErrors(const std::string& text, size_t count = 1,
                  sim::milliseconds limit = sim::milliseconds(8000)) {
    return sim::WaitUntil([&] { return sim::CountOf(text, daemon->Errors()) >= count; }, limit);
  }

  void ExpectEnd(int status) { EXPECT_EQ(daemon->WaitEnd(), status) << daemon->Errors(); }

  sim::SyslogRecorder syslog;
};
