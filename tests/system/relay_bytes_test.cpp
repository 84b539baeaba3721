// Raw bytes through the real daemon: clients, local processes, the serial line.
#include <sys/socket.h>

#include <numeric>
#include <vector>

#include "sim/virtual_time.h"
#include "tests/system/device_fixture.h"

namespace {

using sim::Bytes;
using sim::milliseconds;
using sim::PtzClient;
using sim::UdpPeer;

Bytes Numbered(size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), static_cast<uint8_t>(1));
  return bytes;
}

// Serial bytes reach only admitted clients: wait for CONNECT[...].
using RelayBytes = DeviceTest;

TEST_F(RelayBytes, RelaysOnlyWriteDatagrams) {
  config.baud_rate = 115200;
  Start();
  const std::pair<Bytes, std::string> rows[] = {
      {{0x01, 0x70, 0x41, 0x42, 0x43}, "41 42 43"},
      {{0x01, 0x70, 0x00, 0xFF, 0x0A, 0x0D, 0x11, 0x13}, "00 FF 0A 0D 11 13"},
      {{0x70, 0x01, 0x41}, ""},  // wrong byte order
      {{0x01, 0x70}, ""},
      {{0x01}, ""},
      {{}, ""},
  };
  for (const auto& [datagram, sent] : rows) {
    SendUdp(datagram);
    EXPECT_EQ(Line((sent.size() + 1) / 3), sent) << sim::Hex(datagram);
    ExpectLineQuiet();
  }
  // A long datagram is truncated to the buffer; the driver determines how much one write accepts.
  SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, Bytes(60000, 0x43)));
  EXPECT_LE(line.Receive(RS232_UDP_MAX, milliseconds(300)).size(),
            static_cast<size_t>(RS232_UDP_MAX - RS232_UDP_CODE_SIZE));
  ExpectLineQuiet();
}

// If a client is faster than the line, its excess bytes stay in its connection.
TEST_F(RelayBytes, SlowLineLosesNoClientBytes) {
  Start();
  PtzClient client(config.ptz_port);
  const Bytes bytes = Numbered(300'001);
  size_t sent = 0;
  const auto send_more = [&] {
    const ssize_t count = send(client.Fd(), bytes.data() + sent, bytes.size() - sent, MSG_DONTWAIT);
    if (count > 0) sent += static_cast<size_t>(count);
  };
  sim::WaitUntil([&] { return send_more(), false; }, milliseconds(500));
  PtzClient other(config.ptz_port);  // others are still served
  EXPECT_TRUE(WaitErrors("CONNECT[", 2));
  line.Send(Numbered(5));
  EXPECT_EQ(other.Receive(5), Numbered(5));
  Bytes received;
  EXPECT_TRUE(sim::WaitUntil([&] {
    send_more();
    const Bytes piece = line.Receive(4096, milliseconds(0));
    received.insert(received.end(), piece.begin(), piece.end());
    return received.size() == bytes.size();
  }));
  EXPECT_TRUE(received == bytes);
}

TEST_F(RelayBytes, SerialBytesReachEveryClientAndTheDataPort) {
  UdpPeer data(SERIAL_DATA_PORT);
  Start();
  std::vector<PtzClient> clients;
  for (int i = 0; i < 10; ++i)
    clients.emplace_back(config.ptz_port);
  ASSERT_TRUE(WaitErrors("CONNECT[", clients.size()));

  const Bytes bytes = Numbered(100);
  Control(CAMERA_CODE_FOCUS);  // stop frame, 250 ms, stop frame: the bytes accumulate
  EXPECT_EQ(line.Receive(7).size(), 7U);
  line.Send(bytes);
  for (PtzClient& client : clients)
    EXPECT_EQ(client.Receive(bytes.size()), bytes);
  // One read of at most 64 bytes per pass: two datagrams.
  for (const auto& [head, from, to] :
       {std::tuple("40 00 00 00 01 00 00 00 ", 0, 64), {"24 00 00 00 01 00 00 00 ", 64, 100}})
    EXPECT_EQ(sim::Hex(data.Receive().value_or(Bytes())),
              "50 54 50 52 50 32 33 32 " +
                  (head + sim::Hex(Bytes(bytes.begin() + from, bytes.begin() + to))));

  // The eleventh client is accepted and closed; the ten stay.
  PtzClient eleventh(config.ptz_port);
  EXPECT_TRUE(eleventh.WaitClosed());
  line.Send(Numbered(1));
  for (PtzClient& client : clients)
    EXPECT_EQ(client.Receive(1), Numbered(1));

  // The daemon sleeps until an event.
  const uint64_t before = sim::VirtualTime()->waits(daemon->Pid());
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(2000)).has_value());
  EXPECT_LE(sim::VirtualTime()->waits(daemon->Pid()) - before, 2U);
}

TEST_F(RelayBytes, ReopensALostLine) {
  config.baud_rate = 57600;
  config.stop_bits = 2;
  Start();
  PtzClient client(config.ptz_port);
  ASSERT_TRUE(WaitErrors("CONNECT[", 1));
  for (size_t i = 1; i <= 2; ++i) {
    const uint64_t before = sim::VirtualTime()->waits(daemon->Pid());
    line.HangUp();
    EXPECT_FALSE(daemon->WaitEnd(milliseconds(1500)).has_value());
    EXPECT_LT(sim::VirtualTime()->waits(daemon->Pid()) - before, 20U);
    client.Send(Numbered(3));  // lost with the line
    line = sim::PtyLine();
    ASSERT_TRUE(WaitErrors("[LineSource] serial line is back\n", i)) << daemon->Errors();
    const termios settings = line.Settings();
    EXPECT_EQ(cfgetospeed(&settings), B57600);
    EXPECT_NE(settings.c_cflag & CSTOPB, 0U);
    line.Send(Numbered(64));
    EXPECT_EQ(client.Receive(64), Numbered(64));
  }
  // The reason is "hung up", or EIO while the kernel is still hanging up the pty.
  EXPECT_TRUE(WaitErrors("[LineSource] serial line lost, reason(", 2));
  EXPECT_EQ(sim::CountOf("[LineSource]", daemon->Errors()), 4U) << daemon->Errors();
}

// Input that arrives during a sequence of frames is served in the order of the pass (clients,
// datagrams, commands), not of arrival.
TEST_F(RelayBytes, ServesInputDuringASequenceInOrder) {
  Start();
  const std::string stop = "FF 01 00 00 00 00 01";
  std::vector<PtzClient> client;
  for (const bool connected : {false, true}) {
    Control(CAMERA_CODE_FOCUS);  // stop frame, 250 ms, stop frame
    EXPECT_EQ(Line(7), stop);
    Control(CAMERA_CODE_FOCUS, 1);
    SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, Bytes{0x42, 0x42}));
    if (!connected) client.emplace_back(config.ptz_port);
    client[0].Send(Bytes{0x43, 0x43, 0x43});
    EXPECT_EQ(Line(19), stop + " 43 43 43 42 42 FF 01 01 00 00 00 02");
  }
}

}  // namespace
