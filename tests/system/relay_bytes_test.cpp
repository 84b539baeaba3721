// Raw bytes through the real daemon: clients, local processes, the serial line.
#include <sys/socket.h>

#include <numeric>
#include <optional>
#include <thread>

#include "net/tcp_socket.h"
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

// Serial bytes reach the clients only that the daemon has let in: CONNECT[...].
using RelayBytes = DeviceTest;

TEST_F(RelayBytes, DatagramsToTheDaemon) {
  Start();
  const struct {
    const char* legend;
    Bytes datagram;
    const char* line;
  } rows[] = {
      {"write", {0x01, 0x70, 0x41, 0x42, 0x43}, "41 42 43"},
      {"every byte value goes",
       {0x01, 0x70, 0x00, 0xFF, 0x0A, 0x0D, 0x11, 0x13},
       "00 FF 0A 0D 11 13"},
      {"code in the other byte order", {0x70, 0x01, 0x41}, ""},
      {"write of nothing", {0x01, 0x70}, ""},
      {"half a code", {0x01}, ""},
      {"empty", {}, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    SendUdp(row.datagram);
    EXPECT_EQ(Line((std::string(row.line).size() + 1) / 3), row.line);
    ExpectLineQuiet();
  }
}

TEST_F(RelayBytes, LongDatagramIsCutAtTheBuffer) {
  config.baud_rate = 115200;
  Start();
  // A datagram beyond the buffer brings no byte of another one and does no harm; how much of it
  // the line takes in one write is the driver's business.
  SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, Bytes(60000, 0x43)));
  const Bytes taken = line.Receive(RS232_UDP_MAX, milliseconds(300));
  EXPECT_GT(taken.size(), 0U);
  EXPECT_EQ(taken, Bytes(taken.size(), 0x43));
  EXPECT_LE(taken.size(), static_cast<size_t>(RS232_UDP_MAX - RS232_UDP_CODE_SIZE));
  ExpectLineQuiet();
}

// A client may be faster than the line: what the line has no room for waits with the client.
TEST_F(RelayBytes, LineThatIsBehindLosesNoClientByte) {
  Start();
  PtzClient client(config.ptz_port);
  const Bytes bytes = Numbered(300'001);
  std::thread sending([&] { client.Send(bytes); });
  const double cpu_before = daemon->CpuSeconds();
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(500)).has_value());
  EXPECT_LT(daemon->CpuSeconds() - cpu_before, 0.2);  // it waits without looking all the time
  PtzClient other(config.ptz_port);                   // and serves others meanwhile
  EXPECT_TRUE(WaitErrors("CONNECT[", 2));
  line.Send(Numbered(5));
  EXPECT_EQ(other.Receive(5), Numbered(5));
  EXPECT_TRUE(line.Receive(bytes.size()) == bytes);
  sending.join();
}

TEST_F(RelayBytes, SerialBytesReachEveryClientAndTheDataPort) {
  UdpPeer data(SERIAL_DATA_PORT);
  Start();
  std::vector<PtzClient> clients;
  for (int i = 0; i < 10; ++i)
    clients.emplace_back(config.ptz_port);
  ASSERT_TRUE(WaitErrors("CONNECT[", clients.size()));

  const Bytes bytes = Numbered(100);
  daemon->Signal(SIGSTOP);  // they come in one piece
  line.Send(bytes);
  daemon->Signal(SIGCONT);
  for (PtzClient& client : clients)
    EXPECT_EQ(client.Receive(bytes.size()), bytes);
  // One read a pass, 64 bytes at most: two datagrams.
  const auto first = data.Receive();
  const auto second = data.Receive();
  ASSERT_TRUE(first.has_value() && second.has_value());
  EXPECT_EQ(sim::Hex({first->data(), 20}),
            "50 54 50 52 50 32 33 32 40 00 00 00 01 00 00 00 01 02 03 04");
  EXPECT_EQ(first->size(), 80U);
  EXPECT_EQ(sim::Hex({second->data(), 17}), "50 54 50 52 50 32 33 32 24 00 00 00 01 00 00 00 41");
  EXPECT_EQ(second->size(), 52U);

  // The eleventh is let in and out again; the ten stay.
  PtzClient eleventh(config.ptz_port);
  EXPECT_TRUE(eleventh.WaitClosed());
  line.Send(Numbered(1));
  for (PtzClient& client : clients)
    EXPECT_EQ(client.Receive(1), Numbered(1));

  // A client that leaves frees its place.
  clients.erase(clients.begin());
  ASSERT_TRUE(WaitErrors("DISCONNECT : "));
  PtzClient next(config.ptz_port);
  ASSERT_TRUE(sim::WaitUntil([&] {
    line.Send(Numbered(1));
    return next.Receive(1, milliseconds(50)).size() == 1;
  }));
}

TEST_F(RelayBytes, SerialBytesAreServedWithoutAnyoneListening) {
  config.ptz_enable = 0;
  Start({"1"});
  // Nobody is bound to the data port: the refusal that comes back ends nothing.
  for (const size_t count : {3U, 2U}) {
    line.Send(Numbered(count));
    EXPECT_TRUE(WaitOutput("  RECV    " + std::to_string(count) + ": 01 02 "));
  }
}

TEST_F(RelayBytes, PortThatIsServedAlreadyIsLeftAlone) {
  const int other = ZSK_BindTCPSocketEx(config.ptz_port, ZSK_BIND_REUSEADDR);
  ASSERT_GE(other, 0);
  Start();
  EXPECT_EQ(daemon->Errors().find("ZSK_ConnectTCPSocket"), std::string::npos);
  ExpectLineQuiet();
  close(other);
}

TEST_F(RelayBytes, LineThatGoesAwayIsOpenedAgain) {
  config.baud_rate = 57600;
  config.stop_bits = 2;
  Start();
  PtzClient client(config.ptz_port);
  ASSERT_TRUE(WaitErrors("CONNECT[", 1));
  for (size_t i = 1; i <= 2; ++i) {
    const double cpu_before = daemon->CpuSeconds();
    line.HangUp();
    EXPECT_FALSE(daemon->WaitEnd(milliseconds(1500)).has_value());
    EXPECT_LT(daemon->CpuSeconds() - cpu_before, 0.1);
    client.Send(Numbered(3));  // lost with the line
    line = sim::PtyLine();
    ASSERT_TRUE(WaitErrors("[LineSource] serial line is back\n", i)) << daemon->Errors();
    const termios settings = line.Settings();
    EXPECT_EQ(cfgetospeed(&settings), B57600);
    EXPECT_NE(settings.c_cflag & CSTOPB, 0U);
    line.Send(Numbered(64));
    EXPECT_EQ(client.Receive(64), Numbered(64));
    client.Send(Numbered(9));
    EXPECT_EQ(line.Receive(9), Numbered(9));
  }
  const std::string log = daemon->Errors();
  EXPECT_EQ(sim::CountOf("[LineSource] serial line lost, reason(hung up)\n", log), 2U) << log;
  EXPECT_EQ(sim::CountOf("[LineSource]", log), 4U) << log;
  line.HangUp();
  ASSERT_TRUE(WaitErrors("lost", 3));
  EXPECT_EQ(daemon->Stop(milliseconds(500)), 0);
}

// What comes while a sequence of frames is sent is served in the order of the pass: clients,
// datagrams, commands, whichever came first.
TEST_F(RelayBytes, WhatComesDuringASequenceIsServedInOrder) {
  Start();
  const std::string stop = "FF 01 00 00 00 00 01";
  std::optional<PtzClient> client;
  for (const bool connected : {false, true}) {
    Control(CAMERA_CODE_FOCUS);  // stop frame, 250 ms, stop frame
    EXPECT_EQ(Line(7), stop);
    Control(CAMERA_CODE_FOCUS, 1);
    SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, Bytes{0x42, 0x42}));
    if (!connected) client.emplace(config.ptz_port);
    client->Send(Bytes{0x43, 0x43, 0x43});
    EXPECT_EQ(Line(19), stop + " 43 43 43 42 42 FF 01 01 00 00 00 02");
  }
}

TEST_F(RelayBytes, LineThatTakesNothingHoldsUpNoStop) {
  config.baud_rate = 1200;
  Start();
  PtzClient client(config.ptz_port);
  for (int i = 0; i < 200; ++i) {
    SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, Bytes(5000, 0x42)));
    client.Send(Bytes(250, 0x43));
  }
  EXPECT_EQ(daemon->Stop(milliseconds(2000)), 0);
}

TEST_F(RelayBytes, SleepsUntilSomethingHappens) {
  Start();
  std::vector<PtzClient> clients;
  for (int i = 0; i < 10; ++i)
    clients.emplace_back(config.ptz_port);
  ASSERT_TRUE(WaitErrors("CONNECT[", clients.size()));
  const long before = daemon->Sleeps();
  const double cpu_before = daemon->CpuSeconds();
  EXPECT_FALSE(daemon->WaitEnd(milliseconds(2000)).has_value());
  EXPECT_LE(daemon->Sleeps() - before, 2);
  EXPECT_LT(daemon->CpuSeconds() - cpu_before, 0.02);
}

}  // namespace
