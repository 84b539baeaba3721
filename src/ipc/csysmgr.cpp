#include "ipc/csysmgr.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "net/ipv4_address.h"
#include "net/udp_socket.h"

namespace {

CsysmgrPacket BuildPacket(int32_t code, const void* data, int size) {
  CsysmgrPacket packet = {};
  packet.magic.Set(CSYSMGR_MAGIC);
  packet.code.Set(static_cast<uint32_t>(code));
  if (size > 0) memcpy(packet.data, data, static_cast<size_t>(size));
  return packet;
}

}  // namespace

int CSYSMGR_SendPacket(int32_t code, const void* data, int size) {
  if (size < 0 || size > CSYSMGR_MAX_DATA) return -1;
  if (data == nullptr && size > 0) return -1;
  const CsysmgrPacket packet = BuildPacket(code, data, size);

  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    puts("[CSYSMGR_SendPacket] local socket error. exit");
    return -1;
  }
  const sockaddr_in to = ZSK_Ipv4Address(INADDR_LOOPBACK, CSYSMGR_PORT);
  const int sent = ZSK_SendUDPData(fd, &packet, CSYSMGR_HEADER_SIZE + size, &to);
  if (sent == -1) {
    printf("[CSYSMGR_SendPacket] : error while send message : %s\n", strerror(errno));
  }
  close(fd);
  return sent == -1 ? -1 : 0;
}
