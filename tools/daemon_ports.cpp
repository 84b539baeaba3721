#include "tools/daemon_ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <vector>

#include "daemon/settings.h"
#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "tools/failure.h"
#include "tools/unique_fd.h"
#include "util/bytes.h"
#include "util/conf_file.h"

namespace tools {

namespace {

constexpr int kPortMax = 65535;
// Value of the port field if the sender has no channel port of its own.
constexpr uint32_t kNoPort = 0xFFFFFFFF;

class LocalSocket {
 public:
  explicit LocalSocket(int port) : port_(port), fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in peer = {};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    peer.sin_port = htons(static_cast<uint16_t>(port));
    if (fd_.Get() < 0 || connect(fd_.Get(), reinterpret_cast<sockaddr*>(&peer), sizeof(peer)) < 0)
      Fail(errno);
  }

  // On loopback, send reports at once that no process has bound the port.
  void Send(std::span<const uint8_t> datagram) const {
    if (send(fd_.Get(), datagram.data(), datagram.size(), 0) < 0) Fail(errno);
    int error = 0;
    socklen_t length = sizeof(error);
    getsockopt(fd_.Get(), SOL_SOCKET, SO_ERROR, &error, &length);
    if (error != 0) Fail(error);
  }

 private:
  [[noreturn]] void Fail(int error) const {
    const std::string port = "UDP port " + std::to_string(port_) + " of 127.0.0.1";
    if (error == ECONNREFUSED) {
      throw Failure(EXIT_STATUS_NO_DAEMON,
                    "no process listens on " + port + "; is rs232d running?");
    }
    throw Failure(EXIT_STATUS_FAILED, "cannot send to " + port + ": " + strerror(error));
  }

  int port_;
  UniqueFd fd_;
};

}  // namespace

int DaemonUdpPort() {
  if (access(UDP_PORT_TABLE_PATH, R_OK) != 0) {
    throw Failure(EXIT_STATUS_FAILED,
                  std::string("cannot open ") + UDP_PORT_TABLE_PATH + ": " + strerror(errno));
  }
  char value[CUTIL_CONF_VALUE_SIZE];
  int port = 0;
  if (CUTIL_GetConfValue(UDP_PORT_TABLE_PATH, UDP_PORT_KEY, value, sizeof(value)) == 0) {
    std::from_chars(value, value + strlen(value), port);
  }
  if (port < 1 || port > kPortMax) {
    throw Failure(EXIT_STATUS_FAILED,
                  std::string(UDP_PORT_TABLE_PATH) + " has no valid " + UDP_PORT_KEY);
  }
  return port;
}

void SendToDaemon(uint16_t code, std::span<const uint8_t> bytes) {
  std::vector<uint8_t> datagram(RS232_UDP_CODE_SIZE + bytes.size());
  StoreLe16(datagram.data(), code);
  std::copy(bytes.begin(), bytes.end(), datagram.begin() + RS232_UDP_CODE_SIZE);
  LocalSocket(DaemonUdpPort()).Send(datagram);
}

void SendCommand(int command, std::span<const uint8_t> payload) {
  CicommHeader header = {};
  header.magic.Set(CICOMM_MAGIC);
  header.version.Set(CICOMM_VERSION);
  header.command.Set(static_cast<uint32_t>(command));
  header.port.Set(kNoPort);
  header.size.Set(static_cast<uint32_t>(payload.size()));
  std::vector<uint8_t> packet(CICOMM_HEADER_SIZE + payload.size());
  memcpy(packet.data(), &header, sizeof(header));
  std::copy(payload.begin(), payload.end(), packet.begin() + CICOMM_HEADER_SIZE);
  LocalSocket(RS232_COMMAND_PORT).Send(packet);
}

void SendControl(const CameraControl& control) {
  uint8_t record[CAMERA_CONTROL_SIZE];
  CameraControlEncode(control, record);
  SendCommand(CICOMM_PCMD_PTZ, record);
}

}  // namespace tools
