// Tests the pass alone, on a line that records writes.
#include "relay/mode_pass.h"

#include <fcntl.h>
#include <sys/eventfd.h>

#include <algorithm>
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
#include "sim/virtual_time.h"
#include "tests/support.h"
#include "util/sleep.h"

namespace {

using sim::Bytes;

constexpr int kPtzPort = 4001;
constexpr int kUdpPort = 10020;
constexpr int kCommandPort = 10017;

// The writes to the line, each as "COUNT FIRST-BYTE", and an action during the first one.
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
    CICOMM_Init(&command_, kCommandPort);
    support::OnStderr([this] { EXPECT_EQ(CPTZSVR_Init(&server_, kPtzPort), 0); });
    context_ = {.trace_level = 0,
                .stop = &stop_,
                .settings = &settings_,
                .events = &events_,
                .ptz_server = &server_,
                .command = &command_,
                .serial = near_end_.Get(),
                .udp_socket = ZSK_OpenLocalUDPSSocket(kUdpPort)};
    for (const int fd : {command_.GetSocket(&command_), context_.serial, context_.udp_socket})
      events_.Add(&events_, fd);
    port_.Write = Write;
    g_serial_port = &port_;
    g_writes.clear();
    stop_ = 0;
    ModePassInit(&pass_, &context_, &hooks_, nullptr);
  }
  ~ModePassTest() override {
    g_serial_port = nullptr;
    support::OnStderr([this] { server_.Close(&server_); });
    close(context_.udp_socket);
    command_.Close(&command_);
  }

  sim::PtyLine line_;
  const tools::UniqueFd near_end_{open(ptsname(line_.FarEnd()), O_RDWR | O_NOCTTY | O_NONBLOCK)};
  SerialPort port_{};
  inline static std::atomic<int32_t> stop_ = 0;
  CFDEVENT events_;
  CICOMM command_;
  CPTZSVR server_;
  Rs232Settings settings_ = {};
  Rs232Context context_ = {};
  ModeHooks hooks_ = {};
  ModePass pass_;
};

// The line is slow to accept a client's bytes. Other input that arrives meanwhile is served before
// the client's next bytes.
TEST_F(ModePassTest, ServesInputThatArrivesWhileTheLineIsBusy) {
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

// SIGTERM arrives between the check of the stop flag and the wait.
TEST_F(ModePassTest, DoesNotSleepOnceStopped) {
  const tools::UniqueFd stop_event(eventfd(0, EFD_CLOEXEC));
  g_rs232_stop_event = stop_event.Get();
  hooks_.periodic = [](void* /*mode*/) {
    stop_ = 1;
    eventfd_write(g_rs232_stop_event, 1);
    return int64_t{20'000'000};
  };
  support::ExpectTakes(0, [this] { pass_.RunOnce(&pass_); });
  EXPECT_EQ(pass_.RunOnce(&pass_), 1);
  g_rs232_stop_event = -1;
}

// A source that stays ready but cannot be read must not cause a busy loop.
TEST_F(ModePassTest, PausesAfterAFailedReceive) {
  constexpr int kPasses = 20;
  const auto pass = [this] {
    for (int i = 0; i < kPasses; ++i)
      pass_.RunOnce(&pass_);
  };
  for (int i = 0; i < kPasses; ++i)
    sim::UdpPeer().SendTo(kCommandPort, {});
  support::ExpectTakes(kPasses, [&] { support::OnStderr(pass); });
  const tools::UniqueFd udp_socket(context_.udp_socket);
  context_.udp_socket = eventfd(1, EFD_CLOEXEC);  // readable, but not a socket
  events_.Add(&events_, context_.udp_socket);
  support::ExpectTakes(kPasses, pass);
}

TEST_F(ModePassTest, IgnoresDatagramsThatAreNotCommands) {
  static std::vector<int> commands;
  hooks_.command = [](void* /*mode*/, int command) { commands.push_back(command); };
  const Bytes order = sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {});
  Bytes negative = order;
  negative[19] = 0x80;  // size
  Bytes unmarked = negative;
  unmarked[0] = 'i';
  const Bytes datagrams[] = {
      {order.begin(), order.begin() + 9}, {order.begin(), order.end() - 1}, unmarked, negative};
  sim::UdpPeer peer;
  const auto serve = [&](const Bytes& datagram) {
    peer.SendTo(kCommandPort, datagram);
    pass_.RunOnce(&pass_);
  };
  for (int second = 0; second < 2; ++second) {
    const auto serve_all = [&] { std::ranges::for_each(datagrams, serve); };
    const double slack_ms = sim::IsTimeVirtual() ? 0.9 : 500;
    EXPECT_EQ(support::OnStderr([&] { support::ExpectTakes(0, serve_all, slack_ms); }),
              "[ModePass] error, reason(datagram of 9 bytes is no command)\n");
    CUTIL_SleepUs(1'000'000);
  }
  EXPECT_EQ(commands, std::vector<int>());
  serve(order);
  EXPECT_EQ(commands, std::vector<int>{CICOMM_PCMD_MICOM_FIRMWARE_UPDATE});
}

}  // namespace
