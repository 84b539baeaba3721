// A device for system tests: the real daemon on a pty line in the test's own world.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "sim/daemon_process.h"
#include "sim/device.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "sim/wait.h"

class DeviceTest : public testing::Test {
 protected:
  // Lays the device's files out without starting the daemon.
  void Install() { sim::InstallDevice(config); }

  // Starts the daemon without waiting for anything.
  void Launch(std::vector<std::string> arguments = {}) {
    daemon = std::make_unique<sim::DaemonProcess>(RS232D_PATH, std::move(arguments));
  }

  // Lays the files out, starts the daemon and waits until it serves.
  void Start(std::vector<std::string> arguments = {}) {
    Install();
    Launch(std::move(arguments));
    ASSERT_TRUE(daemon->WaitServing(config)) << daemon->Output() << daemon->Errors();
  }

  void StartModel(const char* model) {
    config.model = model;
    Start();
  }

  void Control(uint16_t code, int first = 0, int second = 0, int third = 0) {
    SendCommand(sim::CameraControlPacket(sim::Control(code, first, second, third)));
  }

  void SendCommand(std::span<const uint8_t> packet) { sender.SendTo(RS232_COMMAND_PORT, packet); }

  void SendUdp(std::span<const uint8_t> datagram) { sender.SendTo(config.udp_port, datagram); }

  // The next `count` bytes on the line in hexadecimal.
  std::string Line(size_t count) { return sim::Hex(line.Receive(count)); }

  // Sends one byte by UDP and expects it to be the next byte on the line: nothing else came.
  void ExpectLineQuiet() {
    const uint8_t marker = 0x5A;
    SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, {&marker, 1}));
    EXPECT_EQ(Line(1), "5A");
  }

  void ExpectEnd(int status) { EXPECT_EQ(daemon->WaitEnd(), status) << daemon->Errors(); }

  sim::DeviceConfig config;
  sim::SyslogRecorder syslog;
  sim::PtyLine line;
  sim::UdpPeer sender;
  std::unique_ptr<sim::DaemonProcess> daemon;
};
