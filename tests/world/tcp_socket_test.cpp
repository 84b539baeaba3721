#include "net/tcp_socket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <cstring>
#include <thread>
#include <vector>

#include "sim/pty_line.h"
#include "tests/support.h"

namespace {

using sim::UniqueFd;
using std::string;
using support::OnStderr;
using support::OnStdout;
using support::Option;
using support::WithoutDescriptors;

constexpr int kPort = 4100;
constexpr int kFreePort = 4101;  // nobody there

const string kConnect = "-1 new [ZSK_ConnectTCPSocket/";
const string kASync = "-1 [ZSK_ASyncConnectTCPSocket/";
const string kASyncConnecting = kASync +
                                "gethostbyname] Error connecting on "
                                "ZSK_ASyncConnectTCPSocket 101 - Network is unreachable\n";

string Numbered(int error, const char* text) {
  return "] Error Number : " + std::to_string(error) + ", Error String : " + text + "\n";
}

int ConnectASync(const char* host) {
  int fd = -1;
  const int result = ZSK_ASyncConnectTCPSocket(&fd, host, kFreePort);
  EXPECT_EQ(fcntl(fd, F_GETFL), -1);  // closed again, or never stored
  return result;
}

TEST(TcpConnect, ConnectsByNameAndByAddress) {
  const UniqueFd listener(ZSK_BindTCPSocketEx(kPort, ZSK_BIND_REUSEADDR));
  for (const auto& [host, port] : {std::pair("127.0.0.1", kPort), {"localhost", kPort + 65536}}) {
    const UniqueFd plain(ZSK_ConnectTCPSocket(host, port));
    EXPECT_EQ(fcntl(plain.Get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(UniqueFd(accept(listener.Get(), nullptr, nullptr)).IsOpen());
    int fd = -1;
    const int result = ZSK_ASyncConnectTCPSocket(&fd, host, port);
    const UniqueFd async(fd);
    EXPECT_TRUE(result == 0 || result == 1) << result;
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    pollfd writable = {.fd = fd, .events = POLLOUT, .revents = 0};
    EXPECT_EQ(poll(&writable, 1, 5000), 1);
    EXPECT_EQ(Option(fd, SOL_SOCKET, SO_ERROR), 0);
    EXPECT_TRUE(UniqueFd(accept(listener.Get(), nullptr, nullptr)).IsOpen());
  }
  // Where nobody accepts the connection stays in progress, and nobody waits for it.
  ASSERT_EQ(listen(listener.Get(), 0), 0);
  const UniqueFd queued(ZSK_ConnectTCPSocket("127.0.0.1", kPort));
  int fd = -1;
  support::ExpectTakes(0,
                       [&] { EXPECT_EQ(ZSK_ASyncConnectTCPSocket(&fd, "127.0.0.1", kPort), 1); });
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  close(fd);
}

TEST(TcpConnect, SaysWhatFailed) {
  const auto plain = [](const char* host) { return ZSK_ConnectTCPSocket(host, kFreePort); };
  const string no_ipv4 = "getaddrinfo" + Numbered(EAI_ADDRFAMILY, gai_strerror(EAI_ADDRFAMILY));
  const struct {
    int (*connect)(const char*);
    const char* host;
    string outcome;
  } rows[] = {
      {plain, "127.0.0.1", kConnect + "connect" + Numbered(111, "Connection refused")},
      {plain, "192.0.2.1", kConnect + "connect" + Numbered(101, "Network is unreachable")},
      {plain, "::1", kConnect + no_ipv4},
      {ConnectASync, "192.0.2.1", kASyncConnecting},
      {ConnectASync, "999.1.1.1", kASyncConnecting},  // dotted by its looks: not looked up
      {ConnectASync, "::1", kASync + no_ipv4},
  };
  const auto descriptors = support::OpenDescriptors();
  for (const auto& row : rows) {
    EXPECT_EQ(OnStderr([&] { return row.connect(row.host); }), row.outcome);
  }
  const string socket_failed = "socket" + Numbered(24, "Too many open files");
  EXPECT_EQ(OnStderr([&] { return WithoutDescriptors([&] { return plain("127.0.0.1"); }); }),
            kConnect + socket_failed);
  EXPECT_EQ(OnStderr([] { return WithoutDescriptors([] { return ConnectASync("127.0.0.1"); }); }),
            kASync + socket_failed);
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST(TcpListener, TakesTheOptionsAsked) {
  constexpr int kFreshPort = 4200;  // never used before: without SO_REUSEADDR that counts
  for (const int options : {0, 1, 2, 3}) {
    const UniqueFd fd(ZSK_BindTCPSocketEx(65536 + kFreshPort + options, options));
    EXPECT_EQ(support::LocalAddress(fd.Get()), "0.0.0.0 " + std::to_string(kFreshPort + options));
    EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, SO_REUSEADDR) != 0, (options & 1) != 0);
    EXPECT_EQ(Option(fd.Get(), IPPROTO_TCP, TCP_NODELAY) != 0, (options & 2) != 0);
    tcp_info info = {};
    socklen_t length = sizeof(info);
    getsockopt(fd.Get(), IPPROTO_TCP, TCP_INFO, &info, &length);
    EXPECT_EQ(info.tcpi_state, TCP_LISTEN);
    EXPECT_EQ(info.tcpi_sacked, 10U);  // of a listener: its backlog
  }
}

TEST(TcpListener, BindsToTheAddressOfItsKind) {
  const struct {
    int (*make)(int port);
    string address;
  } rows[] = {
      {ZSK_BindTCPSocket, "0.0.0.0"},
      {[](int port) { return ZSK_BindTCPSocketLocal(port, 0); }, "0.0.0.0"},
      {[](int port) { return ZSK_BindTCPSocketLocal(port, 7); }, "127.0.0.1"},
      {ZSK_BindTCP6Socket, "::"},
      {[](int port) { return ZSK_BindTCP6SocketLocal(port, 0); }, "::"},
      {[](int port) { return ZSK_BindTCP6SocketLocal(port, 7); }, "::1"},
  };
  // What this system makes of a wish for 4 MiB.
  const UniqueFd other(socket(AF_INET, SOCK_STREAM, 0));
  const int wish = 4194304;
  setsockopt(other.Get(), SOL_SOCKET, SO_SNDBUF, &wish, sizeof(wish));
  for (const auto& row : rows) {
    const UniqueFd fd(row.make(65536 + kPort));
    EXPECT_EQ(support::LocalAddress(fd.Get()), row.address + ' ' + std::to_string(kPort));
    EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, SO_SNDBUF), Option(other.Get(), SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(Option(fd.Get(), SOL_SOCKET, SO_ACCEPTCONN), 1);
    EXPECT_EQ(OnStdout([&] { return row.make(kPort); }),
              "-1 [open_tcp_socket error] while bind tcp socket : Address already in use\n");
    EXPECT_EQ(OnStdout([&] { return WithoutDescriptors([&] { return row.make(kPort); }); }),
              "-1 [TSER_InitServer] error while get socket for middle connection.\n");
  }
}

TEST(TcpListener, SaysWhatFailed) {
  const UniqueFd holder(ZSK_BindTCPSocket(kPort));
  const auto descriptors = support::OpenDescriptors();
  const auto bind_again = [] { return ZSK_BindTCPSocketEx(kPort, 3); };
  EXPECT_EQ(OnStderr(bind_again),
            "-1 [ZSK_BindTCPSocketEx] error while bind tcp socket : Address already in use\n");
  EXPECT_EQ(OnStderr([&] { return WithoutDescriptors(bind_again); }),
            "-1 [ZSK_BindTCPSocketEx] error while get socket for middle connection.");
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST(TcpDottedQuad, LooksAtTheFormOnly) {
  const std::pair<const char*, int> rows[] = {
      {"192.168.0.1", 1}, {"1..2.3", 1},     {"999.1.1.1", 1},   {"...", 1},
      {"1.2.3.", 1},      {"1.2.3", 0},      {"1.2.3.4.5", 0},   {"1.2.3.4.", 0},
      {"1234.1.1.1", 0},  {"1.1.1.0001", 0}, {"host.local", 0},  {"a.b.c.d", 0},
      {" 1.2.3.4", 0},    {"1.2.-3.4", 0},   {"1.2.3.4\xB2", 0}, {"", 0},
  };
  for (const auto& [text, is_quad] : rows)
    EXPECT_EQ(ZSK_IsDottedQuad(text, static_cast<int>(strlen(text))), is_quad) << text;
  EXPECT_EQ(ZSK_IsDottedQuad("1.2.3.4x", 7), 1);
  EXPECT_EQ(ZSK_IsDottedQuad("1.2.3.4", 5), 0);
  EXPECT_EQ(ZSK_IsDottedQuad("1.2.3.4", -7), 0);
}

// --- Sending -----------------------------------------------------------------------------------

class TcpSendStream : public testing::Test {
 protected:
  TcpSendStream() {
    const UniqueFd listener(ZSK_BindTCPSocketEx(kPort, ZSK_BIND_REUSEADDR));
    sender_.Reset(ZSK_ConnectTCPSocket("127.0.0.1", kPort));
    receiver_.Reset(accept(listener.Get(), nullptr, nullptr));
    for (size_t i = 0; i < bytes_.size(); ++i)
      bytes_[i] = static_cast<uint8_t>(i * 7 + i / 251);
  }
  int Send(size_t size, int timeout_s) {
    return ZSK_SendTCPStream(sender_.Get(), bytes_.data(), static_cast<int>(size), timeout_s);
  }

  UniqueFd sender_, receiver_;
  sim::Bytes bytes_ = sim::Bytes(32 << 20);  // more than the system holds for a connection
};

TEST_F(TcpSendStream, RefusesWhatIsNoSend) {
  const char* const text = "x";
  char address[16];
  snprintf(address, sizeof(address), "%x\n",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(text)));
  const struct {
    int fd;
    const char* buf;
    int len;
    string outcome;
  } rows[] = {
      {-1, nullptr, 5, "-4 [ZSK_SendTCPStream, 693] Error 5, 0\n"},
      {1, text, 0, "-4 [ZSK_SendTCPStream, 693] Error 0, " + string(address)},
      {-1, text, 1, "-3 "},
      {-1, text, -7, "-3 "},
      {1, text, -7, "-7 "},
      {9999, text, 1,
       "-2 [ZSK_SendTCPStream/send] Error Number : 9, Error String Bad file descriptor\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(OnStdout([&] { return ZSK_SendTCPStream(row.fd, row.buf, row.len, 1); }),
              row.outcome);
  }
}

TEST_F(TcpSendStream, SendsAllHoweverLongThePeerTakes) {
  sim::Bytes received(bytes_.size());
  const auto stall = sim::milliseconds(1500);  // beyond what would be a limit of one second
  std::thread reader([&] {
    std::this_thread::sleep_for(stall);
    EXPECT_EQ(recv(receiver_.Get(), received.data(), received.size(), MSG_WAITALL),
              static_cast<ssize_t>(received.size()));
  });
  support::ExpectTakes(1000, 9000, [&] { EXPECT_EQ(Send(bytes_.size(), 0), 32 << 20); });
  reader.join();
  EXPECT_TRUE(received == bytes_);
}

TEST_F(TcpSendStream, GivesUpAfterItsDeadline) {
  const auto send = [this] { return Send(bytes_.size(), 1); };
  support::ExpectTakes(1000, 1300, [&] { EXPECT_EQ(OnStdout(send), "-1 "); });
}

TEST_F(TcpSendStream, SurvivesAPeerThatIsGone) {
  receiver_.Reset();
  string outcome;
  EXPECT_TRUE(
      sim::WaitUntil([&] { return (outcome = OnStdout([&] { return Send(9, 10); }))[0] == '-'; }));
  EXPECT_EQ(outcome.find("-2 [ZSK_SendTCPStream/send] Error Number : "), 0U) << outcome;
  EXPECT_EQ(OnStdout([&] { return Send(9, 10); }),
            "-2 [ZSK_SendTCPStream/send] Error Number : 32, Error String Broken pipe\n");
}

}  // namespace
