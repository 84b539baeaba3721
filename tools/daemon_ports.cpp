#include "tools/daemon_ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "daemon/settings.h"
#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/format.h"
#include "tools/unique_fd.h"
#include "util/bytes.h"
#include "util/conf_file.h"

namespace tools {

namespace {

// The port of a sender without a command channel of its own.
constexpr uint32_t kNoPort = 0xFFFFFFFF;

std::vector<uint8_t> Joined(std::span<const uint8_t> head, std::span<const uint8_t> rest) {
  std::vector<uint8_t> bytes(head.begin(), head.end());
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  return bytes;
}

void Send(int port, std::span<const uint8_t> datagram) {
  sockaddr_in peer = {};
  peer.sin_family = AF_INET;
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  peer.sin_port = htons(static_cast<uint16_t>(port));
  const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  int error = 0;
  socklen_t length = sizeof(error);
  if (!fd.IsOpen() || connect(fd.Get(), reinterpret_cast<sockaddr*>(&peer), sizeof(peer)) < 0 ||
      send(fd.Get(), datagram.data(), datagram.size(), 0) < 0) {
    error = errno;
  } else {
    // On loopback, an unbound port has refused the datagram by now.
    getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &error, &length);
  }
  if (error == ECONNREFUSED) {
    throw Failure(
        EXIT_STATUS_NO_DAEMON,
        Format("no process listens on UDP port %d of 127.0.0.1; is rs232d running?", port));
  }
  if (error != 0) {
    throw Failure(Format("cannot send to UDP port %d of 127.0.0.1: %s", port, strerror(error)));
  }
}

}  // namespace

std::vector<uint8_t> DaemonDatagram(uint16_t code, std::span<const uint8_t> bytes) {
  std::array<uint8_t, RS232_UDP_CODE_SIZE> head;
  StoreLe16(head.data(), code);
  return Joined(head, bytes);
}

std::vector<uint8_t> CommandPacket(int32_t command, std::span<const uint8_t> payload) {
  CicommHeader header = {};
  header.magic.Set(CICOMM_MAGIC);
  header.version.Set(CICOMM_VERSION);
  header.command.Set(static_cast<uint32_t>(command));
  header.port.Set(kNoPort);
  header.size.Set(static_cast<uint32_t>(payload.size()));
  std::array<uint8_t, sizeof(header)> head;
  memcpy(head.data(), &header, sizeof(header));
  return Joined(head, payload);
}

std::vector<uint8_t> CameraControlPacket(const CameraControl& control) {
  std::array<uint8_t, CAMERA_CONTROL_SIZE> record;
  CameraControlEncode(control, record.data());
  return CommandPacket(CICOMM_PCMD_PTZ, record);
}

int DaemonUdpPort() {
  if (access(UDP_PORT_TABLE_PATH, R_OK) != 0) FailOn("open", UDP_PORT_TABLE_PATH);
  std::array<char, CUTIL_CONF_VALUE_SIZE> value = {};
  CUTIL_GetConfValue(UDP_PORT_TABLE_PATH, UDP_PORT_KEY, value.data(), value.size());
  const long port = strtol(value.data(), nullptr, 10);
  if (port >= 1 && port <= UINT16_MAX) return static_cast<int>(port);
  throw Failure(Format("%s has no valid %s", UDP_PORT_TABLE_PATH, UDP_PORT_KEY));
}

void SendToDaemon(uint16_t code, std::span<const uint8_t> bytes) {
  Send(DaemonUdpPort(), DaemonDatagram(code, bytes));
}

void SendCommand(int32_t command) {
  Send(RS232_COMMAND_PORT, CommandPacket(command, {}));
}

void SendControl(const CameraControl& control) {
  Send(RS232_COMMAND_PORT, CameraControlPacket(control));
}

}  // namespace tools
