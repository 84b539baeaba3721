#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <thread>

#include "net/ipv4_address.h"
#include "net/tcp_socket.h"
#include "net/udp_socket.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "tests/support.h"

namespace {

using sim::Bytes;
using sim::UdpPeer;
using std::string;
using support::ExpectTakes;
using support::OnStdout;
using support::Option;
using tools::UniqueFd;

constexpr int kPort = 4100;

TEST(TcpConnect, ConnectsByNameAndByAddress) {
  const tools::UniqueFd listener(ZSK_BindTCPSocketEx(kPort, ZSK_BIND_REUSEADDR));
  for (const auto& [host, port] : {std::pair("127.0.0.1", kPort), {"localhost", kPort + 65536}}) {
    const tools::UniqueFd plain(ZSK_ConnectTCPSocket(host, port));
    EXPECT_EQ(fcntl(plain.Get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(Option(plain.Get(), SOL_SOCKET, SO_SNDTIMEO), 0);  // seconds: sends may block
    EXPECT_TRUE(tools::UniqueFd(accept(listener.Get(), nullptr, nullptr)).IsOpen());
    int fd = -1;
    const int result = ZSK_ASyncConnectTCPSocket(&fd, host, port);
    const tools::UniqueFd async(fd);
    EXPECT_TRUE(result == 0 || result == 1) << result;
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    pollfd writable = {.fd = fd, .events = POLLOUT, .revents = 0};
    EXPECT_EQ(poll(&writable, 1, 5000), 1);
    EXPECT_EQ(Option(fd, SOL_SOCKET, SO_ERROR), 0);
    EXPECT_TRUE(tools::UniqueFd(accept(listener.Get(), nullptr, nullptr)).IsOpen());
  }
  // A connection that nobody accepts stays in progress without blocking the caller.
  ASSERT_EQ(listen(listener.Get(), 0), 0);
  const tools::UniqueFd queued(ZSK_ConnectTCPSocket("127.0.0.1", kPort));
  int fd = -1;
  EXPECT_EQ(ZSK_ASyncConnectTCPSocket(&fd, "127.0.0.1", kPort), 1);
  close(fd);
}

TEST(TcpListener, AppliesTheRequestedOptions) {
  constexpr int kFreshPort = 4200;  // unused so far, as needed without SO_REUSEADDR
  for (const int options : {0, 1, 2, 3}) {
    const tools::UniqueFd fd(ZSK_BindTCPSocketEx(65536 + kFreshPort + options, options));
    EXPECT_EQ(support::LocalAddress(fd.Get()), "0.0.0.0 " + std::to_string(kFreshPort + options));
    EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, SO_REUSEADDR) != 0, (options & 1) != 0);
    EXPECT_EQ(Option(fd.Get(), IPPROTO_TCP, TCP_NODELAY) != 0, (options & 2) != 0);
    tcp_info info = {};
    socklen_t length = sizeof(info);
    getsockopt(fd.Get(), IPPROTO_TCP, TCP_INFO, &info, &length);
    EXPECT_EQ(info.tcpi_sacked, 10U);  // on a listener: the backlog
  }
}

TEST(TcpListener, BindsToTheAddressOfItsKind) {
  // The size that this system grants for 4 MiB.
  const tools::UniqueFd other(socket(AF_INET, SOCK_STREAM, 0));
  const int wish = 4194304;
  setsockopt(other.Get(), SOL_SOCKET, SO_SNDBUF, &wish, sizeof(wish));
  const auto expect = [&](int made, const char* address) {
    const tools::UniqueFd fd(made);
    EXPECT_EQ(support::LocalAddress(made), string(address) + ' ' + std::to_string(kPort));
    EXPECT_EQ(Option(made, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(Option(made, SOL_SOCKET, SO_SNDBUF), Option(other.Get(), SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(Option(made, SOL_SOCKET, SO_ACCEPTCONN), 1);
  };
  expect(ZSK_BindTCPSocket(65536 + kPort), "0.0.0.0");
  expect(ZSK_BindTCPSocketLocal(kPort, 0), "0.0.0.0");
  expect(ZSK_BindTCPSocketLocal(kPort, 7), "127.0.0.1");
  expect(ZSK_BindTCP6Socket(kPort), "::");
  expect(ZSK_BindTCP6SocketLocal(kPort, 0), "::");
  expect(ZSK_BindTCP6SocketLocal(kPort, 7), "::1");
}

TEST(TcpDottedQuad, ChecksOnlyTheForm) {
  for (const char* quad : {"192.168.0.1", "1..2.3", "999.1.1.1", "...", "1.2.3."})
    EXPECT_EQ(ZSK_IsDottedQuad(quad, static_cast<int>(strlen(quad))), 1) << quad;
  for (const char* text : {"1.2.3", "1.2.3.4.5", "1.2.3.4.", "1234.1.1.1", "1.1.1.0001", "a.b.c.d",
                           " 1.2.3.4", "1.2.-3.4", "1.2.3.4\xB2", ""})
    EXPECT_EQ(ZSK_IsDottedQuad(text, static_cast<int>(strlen(text))), 0) << text;
  EXPECT_EQ(ZSK_IsDottedQuad("1.2.3.4x", 7), 1);
  EXPECT_EQ(ZSK_IsDottedQuad("1.2.3.4", 5), 0);
  EXPECT_EQ(ZSK_IsDottedQuad("1.2.3.4", -7), 0);
}

// --- Sending -----------------------------------------------------------------------------------

class TcpSendStream : public testing::Test {
 protected:
  TcpSendStream() {
    const tools::UniqueFd listener(ZSK_BindTCPSocketEx(kPort, ZSK_BIND_REUSEADDR));
    sender_.Reset(ZSK_ConnectTCPSocket("127.0.0.1", kPort));
    receiver_.Reset(accept(listener.Get(), nullptr, nullptr));
    for (size_t i = 0; i < bytes_.size(); ++i)
      bytes_[i] = static_cast<uint8_t>(i * 7 + i / 251);
  }
  int Send(size_t size, int timeout_s) {
    return ZSK_SendTCPStream(sender_.Get(), bytes_.data(), static_cast<int>(size), timeout_s);
  }

  tools::UniqueFd sender_, receiver_;
  sim::Bytes bytes_ = sim::Bytes(32 << 20);  // exceeds the buffers of a connection
};

TEST_F(TcpSendStream, RejectsInvalidArguments) {
  const std::tuple<int, const char*, int, const char*> rows[] = {
      {-1, nullptr, 5, "-4 [ZSK_SendTCPStream, 693] Error 5, 0\n"},
      {1, "x", 0, "-4 [ZSK_SendTCPStream, 693] Error 0, "},  // and the address follows
      {-1, "x", 1, "-3 "},
      {-1, "x", -7, "-3 "},
      {1, "x", -7, "-7 "},
      {9999, "x", 1,
       "-2 [ZSK_SendTCPStream/send] Error Number : 9, Error String Bad file descriptor\n"},
  };
  for (const auto& [fd, bytes, size, outcome] : rows) {
    const auto send = [to = fd, what = bytes, count = size] {
      return ZSK_SendTCPStream(to, what, count, 1);
    };
    EXPECT_TRUE(OnStdout(send).starts_with(outcome)) << outcome;
  }
}

TEST_F(TcpSendStream, SendsEverythingToASlowPeer) {
  sim::Bytes received(bytes_.size());
  std::thread reader([&] {
    std::this_thread::sleep_for(sim::milliseconds(1500));
    EXPECT_EQ(recv(receiver_.Get(), received.data(), received.size(), MSG_WAITALL),
              static_cast<ssize_t>(received.size()));
  });
  EXPECT_EQ(Send(bytes_.size(), 0), 32 << 20);
  reader.join();
  EXPECT_TRUE(received == bytes_);
}

TEST_F(TcpSendStream, GivesUpAfterItsDeadline) {
  const auto send = [this] { return Send(bytes_.size(), 1); };
  support::ExpectTakes(
      1000, [&] { EXPECT_EQ(OnStdout(send), "-1 "); }, 1300);
}

TEST_F(TcpSendStream, SurvivesADisconnectedPeer) {
  receiver_.Reset();
  const auto send = [&] { return OnStdout([&] { return Send(9, 10); }); };
  const string said = "-2 [ZSK_SendTCPStream/send] Error Number : ";
  EXPECT_TRUE(sim::WaitUntil([&] { return send().starts_with(said); }));
  EXPECT_EQ(send(), said + "32, Error String Broken pipe\n");
}

TEST(UdpSocket, BindsToLoopbackOnly) {
  const tools::UniqueFd fd(ZSK_OpenLocalUDPSSocket(65536 + kPort));
  EXPECT_EQ(support::LocalAddress(fd.Get()), "127.0.0.1 4100");
  EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, SO_REUSEADDR), 1);
  const tools::UniqueFd client(ZSK_OpenLocalUDPCSocket());
  EXPECT_EQ(support::LocalAddress(client.Get()), "0.0.0.0 0");
}

TEST(UdpSocket, SendsOneDatagram) {
  UdpPeer peer(kPort);
  const tools::UniqueFd fd(ZSK_OpenLocalUDPCSocket());
  for (const string& text : {string("hello"), string(), string(65507, 'x')}) {
    const int length = static_cast<int>(text.size());
    EXPECT_EQ(ZSK_SendLocalUDPData(fd.Get(), 65536 + kPort, text.data(), length), length);
    const std::optional<Bytes> datagram = peer.Receive();
    EXPECT_EQ(datagram, Bytes(text.begin(), text.end()));
  }
  const sockaddr_in to = ZSK_Ipv4Address(INADDR_LOOPBACK, kPort);
  EXPECT_EQ(ZSK_SendUDPData(fd.Get(), "abc", 3, &to), 3);
  EXPECT_EQ(peer.Receive(), (Bytes{'a', 'b', 'c'}));
  EXPECT_EQ(OnStdout([&] { return ZSK_SendUDPData(-1, "abc", 3, &to); }), "-1 ");
}

TEST(UdpSocket, ReceivesWithoutWaiting) {
  const tools::UniqueFd fd(ZSK_OpenLocalUDPSSocket(kPort));
  UdpPeer peer;
  string buffer(8, '~');
  const auto receive = [&](int from) { return ZSK_RecvLocalUDPData(from, 1, buffer.data(), 8); };
  for (const string text : {"one", "two and more", ""})
    peer.SendTo(kPort, Bytes(text.begin(), text.end()));
  for (const auto& [count, bytes] : {std::pair(3, "one~~~~~"), {8, "two and "}}) {
    EXPECT_EQ(receive(fd.Get()), count);
    EXPECT_EQ(buffer, bytes);
  }
  for (const int nothing : {fd.Get(), fd.Get(), -1})  // empty datagram, none, not a socket
    EXPECT_EQ(receive(nothing), 0);
}

TEST(UdpSocket, ReceivesWithATimeout) {
  const tools::UniqueFd fd(ZSK_OpenLocalUDPSSocket(kPort));
  UdpPeer peer;
  char byte = 0;
  sockaddr_in from = {};
  const auto expect = [&](int source, long sec, long usec, double ms, int result) {
    ExpectTakes(ms, [&] {
      EXPECT_EQ(ZSK_RecvUDPDataTimeout(source, &byte, 1, &from, sec, usec), std::max(result, 0));
      EXPECT_EQ(ZSK_RecvUDPDataEx(source, &byte, 1, &from, sec, usec, 1), result);
    });
  };
  expect(fd.Get(), 0, 0, 0, -1);
  expect(fd.Get(), 1, 50000, 2100, -1);
  for (const int closed : {-1, 9999})  // not open
    expect(closed, 5, 0, 0, -1);
  for (const uint8_t sent : {uint8_t{'a'}, uint8_t{'b'}})
    peer.SendTo(kPort, Bytes{sent});
  expect(fd.Get(), 1, 0, 0, 1);
  EXPECT_EQ(byte, 'b');
  EXPECT_EQ(ntohs(from.sin_port), peer.Port());
  EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
}

// Without a timeout it blocks, here until the timeout of the socket itself.
TEST(RealTimeUdpSocket, BlocksUntilSetNonBlocking) {
  const tools::UniqueFd fd(ZSK_OpenLocalUDPSSocket(kPort));
  char byte = 0;
  sockaddr_in from = {};
  const timeval limit = {.tv_sec = 1, .tv_usec = 0};
  setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  const auto receive = [&] {
    EXPECT_EQ(ZSK_RecvUDPDataEx(fd.Get(), &byte, 1, &from, 5, 0, 0), -1);
  };
  ExpectTakes(950, receive, 20'000);
  fcntl(fd.Get(), F_SETFL, O_APPEND);
  const int flags = ZSK_SetNonBlocking(fd.Get());
  EXPECT_EQ(flags, fcntl(fd.Get(), F_GETFL));
  EXPECT_EQ(flags & (O_NONBLOCK | O_APPEND), O_NONBLOCK | O_APPEND);
  ExpectTakes(0, receive, 900);
}

TEST(UdpSocket, EnlargesItsBuffer) {
  const tools::UniqueFd fd(ZSK_OpenLocalUDPCSocket());
  for (const int option : {SO_SNDBUF, SO_RCVBUF}) {
    const int before = ZSK_GetSocketBufferSize(fd.Get(), option);
    EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, option), before);
    for (const int small : {-1, before})
      EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), small, option), before);
    EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), before + 1, option), before + 1);
    EXPECT_GT(Option(fd.Get(), SOL_SOCKET, option), before);
  }
  EXPECT_EQ(OnStdout([] { return ZSK_GetSocketBufferSize(-1, SO_SNDBUF); }),
            "0 ZSK_GetSocketBufferSize error : 9, Bad file descriptor\n");
}

// An option that accepts only 0 to 3 simulates a system that rejects large buffers.
TEST(UdpSocket, RetriesHalfwayWhenTheSystemRefuses) {
  const tools::UniqueFd fd(ZSK_OpenLocalUDPCSocket());
  constexpr int kBufferLock = 72;                                    // SO_BUF_LOCK
  EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), 40, kBufferLock), 2);  // 40, 20, 10, 5, 2
  EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), 20, kBufferLock), 3);  // 20, 11, 6, 4, 3
  for (const int wish : {SOCK_DGRAM + 1, INT_MAX})                   // an option that cannot be set
    EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), wish, SO_TYPE), SOCK_DGRAM) << wish;
}

}  // namespace
