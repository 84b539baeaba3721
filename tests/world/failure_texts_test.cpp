// The messages when a socket cannot be created or used, and that no descriptor leaks.
#include <fcntl.h>
#include <netdb.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "ipc/cicomm.h"
#include "ipc/csysmgr.h"
#include "net/tcp_socket.h"
#include "net/udp_socket.h"
#include "relay/cptzsvr.h"
#include "sim/peers.h"
#include "tests/support.h"
#include "tests/world/failing_call.h"

namespace {

using std::string;

constexpr int kTaken = 4100;  // in use by another socket
constexpr int kFree = 4101;   // unused

CICOMM g_channel;
CPTZSVR g_server;

string Numbered(int error, const string& text) {
  return "] Error Number : " + std::to_string(error) + ", Error String : " + text + "\n";
}

auto ConnectASync(const char* host) {
  return [host] {
    int fd = -1;
    const int result = ZSK_ASyncConnectTCPSocket(&fd, host, kFree);
    EXPECT_EQ(fcntl(fd, F_GETFL), -1);  // closed or never set
    return result;
  };
}

// Receives from a descriptor that is not a socket, and from -1.
int ReceiveLocal() {
  const tools::UniqueFd no_socket(eventfd(1, EFD_CLOEXEC));
  char byte;
  return ZSK_RecvLocalUDPData(no_socket.Get(), 1, &byte, 1);
}

TEST(FailureTexts, Sockets) {
  using std::bind_front;
  const string connect = "-1 new [ZSK_ConnectTCPSocket/";
  const string async = "-1 [ZSK_ASyncConnectTCPSocket/";
  const string bind = "-1 [ZSK_BindTCPSocketEx] error ";
  const string server = "-1 [ZSK_OpenLocalUDPSSocket] ";
  const string denied = "Operation not permitted";
  const string no_ipv4 = "getaddrinfo" + Numbered(EAI_ADDRFAMILY, gai_strerror(EAI_ADDRFAMILY));
  const string no_socket = "socket" + Numbered(EPERM, denied);
  const string refused = "connect" + Numbered(ECONNREFUSED, "Connection refused");
  const string no_route = "Network is unreachable";
  const string async_no_route =
      async + "gethostbyname] Error connecting on ZSK_ASyncConnectTCPSocket 101 - " + no_route;
  const string in_use = "Address already in use\n";
  const string no_client =
      "[ZSK_OpenLocalUDPCSocket] local socket error. exit : 1, " + denied + '\n';
  const auto send_command = [](int fd, const char* data, int size) {
    return CICOMM_SendCommand(fd, 34, 77, kFree, data, size, 0);
  };
  const struct {
    const char* call;  // the failing call; "": none
    std::function<int()> action;
    string said;
  } rows[] = {
      {"", bind_front(ZSK_ConnectTCPSocket, "127.0.0.1", kFree), connect + refused},
      {"", bind_front(ZSK_ConnectTCPSocket, "192.0.2.1", kFree),
       connect + "connect" + Numbered(ENETUNREACH, no_route)},
      {"", bind_front(ZSK_ConnectTCPSocket, "::1", kFree), connect + no_ipv4},
      {"socket", bind_front(ZSK_ConnectTCPSocket, "127.0.0.1", kFree), connect + no_socket},
      {"", ConnectASync("192.0.2.1"), async_no_route + '\n'},
      {"", ConnectASync("999.1.1.1"), async_no_route + '\n'},  // looks like a dotted quad
      {"", ConnectASync("::1"), async + no_ipv4},
      {"socket", ConnectASync("127.0.0.1"), async + no_socket},
      {"", bind_front(ZSK_BindTCPSocketEx, kTaken, 3), bind + "while bind tcp socket : " + in_use},
      {"socket", bind_front(ZSK_BindTCPSocketEx, kFree, 0),
       bind + "while get socket for middle connection."},
      {"setsockopt", bind_front(ZSK_BindTCPSocketEx, kFree, ZSK_BIND_REUSEADDR),
       bind + "setsockopt"},
      {"setsockopt", bind_front(ZSK_BindTCPSocketEx, kFree, ZSK_BIND_NODELAY),
       bind + "setsockopt 'TCP_NODELAY' : " + denied + '\n'},
      {"listen", bind_front(ZSK_BindTCPSocketEx, kFree, 0), bind + "while listen"},
      {"", bind_front(ZSK_BindTCPSocket, kTaken),
       "-1 [open_tcp_socket error] while bind tcp socket : " + in_use},
      {"socket", bind_front(ZSK_BindTCP6Socket, kFree),
       "-1 [TSER_InitServer] error while get socket for middle connection.\n"},
      {"setsockopt", bind_front(ZSK_BindTCPSocket, kFree), "-1 setsockopt\n"},
      {"listen", bind_front(ZSK_BindTCPSocket, kFree),
       "-1 [open_tcp_socket error] error while listen\n"},
      {"listen", bind_front(CPTZSVR_Init, &g_server, kFree),
       connect + refused + "[ZSK_BindTCPSocketEx] error while listenPTZ TCP CONNECTION ERR [-1]\n"},
      {"", bind_front(ZSK_OpenLocalUDPSSocket, kTaken),
       server + "local bind error. exit, 98 '" + in_use},
      {"socket", bind_front(ZSK_OpenLocalUDPSSocket, kFree), server + "local socket error. exit\n"},
      {"setsockopt", bind_front(ZSK_OpenLocalUDPSSocket, kFree),
       server + "setsockopt error. exit\n"},
      {"socket", ZSK_OpenLocalUDPCSocket, "-1 " + no_client},
      {"", bind_front(ZSK_SendLocalUDPData, -1, kTaken, "abc", 3),
       "-1 [ZSK_SendLocalUDPData] : error while send message : Bad file descriptor\n"},
      {"", ReceiveLocal,
       "-1 [ZSK_RecvLocalUDPData] : error while recv message : Socket operation on non-socket\n"},
      {"socket", bind_front(CICOMM_Init, &g_channel, -1),
       "-1 " + no_client + "[CICOMM_Init] error, reason(ZSK_OpenLocalUDPSSocket)\n"},
      {"socket", bind_front(send_command, -1, nullptr, 0),
       "-3 " + no_client + "[CICOMM_SendCommand] error, reason(ZSK_OpenLocalUDPCSocket)\n"},
      {"", bind_front(send_command, -1, nullptr, 1),
       "-1 [CICOMM_SendCommand] error, reason(size[1], buff[0])\n"},
      {"sendto", bind_front(send_command, -1, "x", 1),
       "-1 [SendTo] Error Number : 1, Error String " + denied +
           "\n[CICOMM_SendCommand] error, reason(SendTo -1 vs 33)\n"},
      {"socket", bind_front(CSYSMGR_SendPacket, 1, nullptr, 0),
       "-1 [CSYSMGR_SendPacket] local socket error. exit\n"},
      {"sendto", bind_front(CSYSMGR_SendPacket, 1, nullptr, 0),
       "-1 [CSYSMGR_SendPacket] : error while send message : " + denied + '\n'},
  };
  const sim::UdpPeer datagrams(kTaken);
  const tools::UniqueFd stream(ZSK_BindTCPSocket(kTaken));
  const auto descriptors = support::OpenDescriptors();
  for (const auto& row : rows) {
    const FailingCall call(row.call);
    testing::internal::CaptureStderr();
    const string printed = support::OnStdout(row.action);
    EXPECT_EQ(printed + testing::internal::GetCapturedStderr(), row.said) << row.call;
    EXPECT_EQ(support::OpenDescriptors(), descriptors) << row.said;
  }
}

}  // namespace
