// The pass by itself, on a line whose writes are followed.
#include "relay/mode_pass.h"

#include <fcntl.h>

#include <functional>
#include <string>
#include <vector>

#include "ipc/cicomm.h"
#include "net/udp_socket.h"
#include "relay/cfdevent.h"
#include "relay/cptzsvr.h"
#include "serial/serial_port.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "tests/support.h"

namespace {

using sim::Bytes;

constexpr int kPtzPort = 4001;
constexpr int kUdpPort = 10020;

// What the line was given, each write as "COUNT FIRST-BYTE", and what comes during the first one.
std::vector<std::string> g_writes;
std::function<void()> g_during_first;

int Write(SerialPort* /*self*/, const void* buffer, int length) {
  g_writes.push_back(std::to_string(length) + " " + *static_cast<const char*>(buffer));
  if (g_writes.size() == 1) g_during_first();
  return length;
}

class ModePassTest : public testing::Test {
 protected:
  ModePassTest() {
    CFDEVENT_Init(&events_);
    CICOMM_Init(&command_, 0);
    support::OnStderr([this] { EXPECT_EQ(CPTZSVR_Init(&server_, kPtzPort), 0); });
    context_.serial = near_end_.Get();
    context_.udp_socket = ZSK_OpenLocalUDPSSocket(kUdpPort);
    for (const int fd : {command_.GetSocket(&command_), context_.serial, context_.udp_socket})
      events_.Add(&events_, fd);
    g_serial_port = &port_;
    g_writes.clear();
    ModePassInit(&pass_, &context_, &hooks_, nullptr);
  }
  ~ModePassTest() override {
    g_serial_port = nullptr;
    support::OnStderr([this] { server_.Close(&server_); });
    close(context_.udp_socket);
    command_.Close(&command_);
  }

  sim::PtyLine line_;
  const sim::UniqueFd near_end_{open(ptsname(line_.FarEnd()), O_RDWR | O_NOCTTY | O_NONBLOCK)};
  SerialPort port_ = {.fd = -1,
                      .saved = {},
                      .Close = nullptr,
                      .Write = Write,
                      .Read = nullptr,
                      .tells_transmitter = false};
  volatile std::sig_atomic_t stop_ = 0;
  CFDEVENT events_;
  CICOMM command_;
  CPTZSVR server_;
  Rs232Settings settings_ = {};
  Rs232Context context_ = {.trace_level = 0,
                           .stop = &stop_,
                           .settings = &settings_,
                           .events = &events_,
                           .ptz_server = &server_,
                           .command = &command_,
                           .serial = -1,
                           .udp_socket = -1};
  ModeHooks hooks_ = {};
  ModePass pass_;
};

// The line takes long for a client's bytes. What comes meanwhile is served before the client's
// next bytes.
TEST_F(ModePassTest, WhatComesWhileTheLineIsBusyIsNotPassedOver) {
  sim::PtzClient client(kPtzPort);
  client.Send(Bytes(size_t{2} * CPTZSVR_RECV_MAX, 'c'));
  sim::UdpPeer peer;
  g_during_first = [&] { peer.SendTo(kUdpPort, sim::DaemonDatagram(RS232_UDP_WRITE, Bytes{'u'})); };
  support::OnStderr([this] {
    while (g_writes.size() < 3)
      pass_.RunOnce(&pass_);
  });
  EXPECT_EQ(g_writes, (std::vector<std::string>{"256 c", "1 u", "256 c"}));
}

TEST_F(ModePassTest, SlowClientGetsWhatWaits) {
  sim::PtzClient client(kPtzPort);
  const Bytes chunk(1000, 'c');
  size_t sent = 0;
  support::OnStderr([&] {
    server_.Accept(&server_, 5000000);
    for (; server_.queues[0].count == 0; sent += chunk.size())
      server_.SendAll(&server_, chunk.data(), static_cast<int>(chunk.size()));
    EXPECT_EQ(client.Receive(sent - chunk.size()).size(), sent - chunk.size());
    for (int i = 0; i < 10 && server_.queues[0].count > 0; ++i)
      pass_.RunOnce(&pass_);
  });
  EXPECT_EQ(client.Receive(chunk.size()), chunk);
}

}  // namespace
