#include "net/udp_socket.h"

#include <fcntl.h>

#include <climits>

#include "sim/peers.h"
#include "tests/support.h"

namespace {

using sim::Bytes;
using sim::UdpPeer;
using sim::UniqueFd;
using std::string;
using support::ExpectTakes;
using support::OnStdout;
using support::Option;
using support::WithoutDescriptors;

constexpr int kPort = 1860;

TEST(UdpSocket, BindsToLoopbackOnly) {
  const UniqueFd fd(ZSK_OpenLocalUDPSSocket(65536 + kPort));
  EXPECT_EQ(support::LocalAddress(fd.Get()), "127.0.0.1 1860");
  EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, SO_REUSEADDR), 1);
  const UniqueFd client(ZSK_OpenLocalUDPCSocket());
  EXPECT_EQ(support::LocalAddress(client.Get()), "0.0.0.0 0");
}

TEST(UdpSocket, SaysWhatFailed) {
  const UdpPeer holder(kPort);
  const auto descriptors = support::OpenDescriptors();
  EXPECT_EQ(OnStdout([] { return ZSK_OpenLocalUDPSSocket(kPort); }),
            "-1 [ZSK_OpenLocalUDPSSocket] local bind error. exit, 98 'Address already in use\n");
  EXPECT_EQ(
      OnStdout([] { return WithoutDescriptors([] { return ZSK_OpenLocalUDPSSocket(kPort); }); }),
      "-1 [ZSK_OpenLocalUDPSSocket] local socket error. exit\n");
  EXPECT_EQ(OnStdout([] { return WithoutDescriptors(ZSK_OpenLocalUDPCSocket); }),
            "-1 [ZSK_OpenLocalUDPCSocket] local socket error. exit : 24, Too many open files\n");
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST(UdpSocket, SendsOneDatagram) {
  UdpPeer peer(kPort);
  const UniqueFd fd(ZSK_OpenLocalUDPCSocket());
  for (const string& text : {string("hello"), string(), string(65507, 'x')}) {
    const int length = static_cast<int>(text.size());
    EXPECT_EQ(ZSK_SendLocalUDPData(fd.Get(), 65536 + kPort, text.data(), length), length);
    const std::optional<Bytes> datagram = peer.Receive();
    EXPECT_EQ(datagram, Bytes(text.begin(), text.end()));
  }
  sockaddr_in to = {
      .sin_family = AF_INET, .sin_port = htons(kPort), .sin_addr = {}, .sin_zero = {}};
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(ZSK_SendUDPData(fd.Get(), "abc", 3, &to), 3);
  EXPECT_EQ(peer.Receive(), (Bytes{'a', 'b', 'c'}));
  EXPECT_EQ(OnStdout([&] { return ZSK_SendUDPData(-1, "abc", 3, &to); }), "-1 ");
  EXPECT_EQ(OnStdout([] { return ZSK_SendLocalUDPData(-1, kPort, "abc", 3); }),
            "-1 [ZSK_SendLocalUDPData] : error while send message : Bad file descriptor\n");
}

TEST(UdpSocket, ReceivesWithoutWaiting) {
  const UniqueFd fd(ZSK_OpenLocalUDPSSocket(kPort));
  UdpPeer peer;
  string buffer(8, '~');
  const auto receive = [&](int from) {
    return OnStdout([&] { return ZSK_RecvLocalUDPData(from, 1, buffer.data(), 8); });
  };
  EXPECT_EQ(receive(fd.Get()), "0 ");
  for (const string text : {"one", "two and more", ""})
    peer.SendTo(kPort, Bytes(text.begin(), text.end()));
  EXPECT_EQ(receive(fd.Get()) + buffer, "3 one~~~~~");
  EXPECT_EQ(receive(fd.Get()) + buffer, "8 two and ");
  EXPECT_EQ(receive(fd.Get()), "0 ");
  EXPECT_EQ(receive(fd.Get()), "0 ");
  EXPECT_EQ(receive(-1), "0 ");
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  EXPECT_EQ(receive(ends[0]),
            "-1 [ZSK_RecvLocalUDPData] : error while recv message : Socket operation on "
            "non-socket\n");
  close(ends[0]);
  close(ends[1]);
}

TEST(UdpSocket, ReceivesWithALimit) {
  const UniqueFd fd(ZSK_OpenLocalUDPSSocket(kPort));
  UdpPeer peer;
  char byte = 0;
  sockaddr_in from = {};
  const struct {
    long sec, usec;
    double ms;
  } rows[] = {{0, 0, 0}, {0, 120000, 120}, {1, 50000, 1050}};
  for (const auto& row : rows) {
    const auto receive = [&](int source) {
      return ZSK_RecvUDPDataTimeout(source, &byte, 1, &from, row.sec, row.usec);
    };
    const auto receive_ex = [&](int source) {
      return ZSK_RecvUDPDataEx(source, &byte, 1, &from, row.sec, row.usec, 1);
    };
    ExpectTakes(row.ms, [&] { EXPECT_EQ(receive(fd.Get()), 0); });
    ExpectTakes(row.ms, [&] { EXPECT_EQ(receive_ex(fd.Get()), -1); });
    peer.SendTo(kPort, Bytes{'a'});
    EXPECT_EQ(receive(fd.Get()), 1);
    EXPECT_EQ(byte, 'a');
    EXPECT_EQ(ntohs(from.sin_port), peer.Port());
    EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    peer.SendTo(kPort, Bytes{'b'});
    EXPECT_EQ(receive_ex(fd.Get()), 1);
    EXPECT_EQ(byte, 'b');
    for (const int closed : {-1, 9999}) {  // nothing to wait for
      ExpectTakes(0, [&] { EXPECT_EQ(receive(closed), 0); });
      ExpectTakes(0, [&] { EXPECT_EQ(receive_ex(closed), -1); });
    }
  }
  // Asked not to wait, it blocks: here until the limit of the socket itself.
  const timeval limit = {.tv_sec = 0, .tv_usec = 200000};
  setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  ExpectTakes(150, [&] { EXPECT_EQ(ZSK_RecvUDPDataEx(fd.Get(), &byte, 1, &from, 0, 1, 0), -1); });
}

TEST(UdpSocket, BecomesNonBlocking) {
  const UniqueFd fd(ZSK_OpenLocalUDPCSocket());
  fcntl(fd.Get(), F_SETFL, O_APPEND);
  const int flags = ZSK_SetNonBlocking(fd.Get());
  EXPECT_EQ(flags, fcntl(fd.Get(), F_GETFL));
  EXPECT_EQ(flags & (O_NONBLOCK | O_APPEND), O_NONBLOCK | O_APPEND);
  EXPECT_EQ(OnStdout([] { ZSK_SetNonBlocking(-1); }), "");
}

TEST(UdpSocket, EnlargesItsBuffer) {
  const UniqueFd fd(ZSK_OpenLocalUDPCSocket());
  for (const int option : {SO_SNDBUF, SO_RCVBUF}) {
    const int before = Option(fd.Get(), SOL_SOCKET, option);
    EXPECT_EQ(ZSK_GetSocketBufferSize(fd.Get(), option), before);
    for (const int small : {-1, 0, before})
      EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), small, option), before);
    EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, option), before);
    EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), before + 1, option), before + 1);
    EXPECT_GT(Option(fd.Get(), SOL_SOCKET, option), before);
  }
  EXPECT_EQ(OnStdout([] { return ZSK_GetSocketBufferSize(-1, SO_SNDBUF); }),
            "0 ZSK_GetSocketBufferSize error : 9, Bad file descriptor\n");
}

// Options of the same shape that take no value, or only small ones, stand in for a system that
// refuses large buffers.
TEST(UdpSocket, GoesHalfwayWhereTheSystemRefuses) {
  const UniqueFd fd(ZSK_OpenLocalUDPCSocket());
  for (const int wish : {SOCK_DGRAM + 1, 100, INT_MAX}) {
    EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), wish, SO_TYPE), SOCK_DGRAM) << wish;
  }
  constexpr int kBufferLock = 72;                                    // SO_BUF_LOCK: takes 0 to 3
  EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), 40, kBufferLock), 2);  // 40, 20, 10, 5, 2
  EXPECT_EQ(ZSK_SetSocketBufferSize(fd.Get(), 20, kBufferLock), 3);  // 20, 11, 6, 4, 3
}

}  // namespace
