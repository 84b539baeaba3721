// In: datagrams for a command channel, each behind its length (16 bits).
// Holds: a packet is taken as it came, whatever it says about itself; bytes that it did not bring
// read as zero, also when the one before was longer; a negative port becomes the sender's; a
// channel that sends sends what another one receives.
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "ipc/cicomm.h"
#include "net/udp_socket.h"

namespace {

// The packet that the datagram is.
std::vector<uint8_t> Expected(std::span<const uint8_t> datagram, int sender) {
  std::vector<uint8_t> packet(datagram.begin(), datagram.end());
  packet.resize(sizeof(CicommPacket));
  CicommHeader header;
  memcpy(&header, packet.data(), sizeof(header));
  sockaddr_in address = {};
  socklen_t length = sizeof(address);
  getsockname(sender, reinterpret_cast<sockaddr*>(&address), &length);
  if (header.port.GetSigned() < 0) header.port.Set(ntohs(address.sin_port));
  memcpy(packet.data(), &header, sizeof(header));
  return packet;
}

void CheckReceived(CICOMM* channel, std::span<const uint8_t> datagram, int sender) {
  FUZZ_CHECK(ZSK_SendLocalUDPData(sender, RS232_COMMAND_PORT, datagram.data(),
                                  static_cast<int>(datagram.size())) >= 0);
  FUZZ_CHECK(channel->Wait(channel, 0) == 0);
  int command = -1;
  const int result = channel->Recv(channel, &command);
  if (datagram.empty()) {
    FUZZ_CHECK(result == -1);
    return;
  }
  const std::vector<uint8_t> packet = Expected(datagram, sender);
  FUZZ_CHECK(memcmp(&channel->recv, packet.data(), packet.size()) == 0);
  const CicommHeader* header = channel->GetHeader(channel);
  FUZZ_CHECK(command == header->command.GetSigned() && result == header->size.GetSigned());
}

void CheckSent(CICOMM* from, CICOMM* to, std::span<const uint8_t> payload) {
  const int size = static_cast<int>(payload.size());
  FUZZ_CHECK(from->Send(from, CICOMM_PCMD_PTZ, RS232_COMMAND_PORT, payload.data(), size) ==
             size + CICOMM_HEADER_SIZE);
  int command = -1;
  FUZZ_CHECK(to->Recv(to, &command) == size && command == CICOMM_PCMD_PTZ);
  FUZZ_CHECK(memcmp(to->GetData(to), payload.data(), payload.size()) == 0);
  FUZZ_CHECK(to->GetHeader(to)->magic.Get() == CICOMM_MAGIC);
}

CICOMM g_channel;
CICOMM g_asker;

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FUZZ_CHECK(CICOMM_Init(&g_channel, RS232_COMMAND_PORT) == 0);
  FUZZ_CHECK(CICOMM_Init(&g_asker, -1) == 0);
  fuzz::Input input(data, size);
  while (!input.IsEmpty()) {
    const auto datagram = input.Bytes(input.Word());
    CheckReceived(&g_channel, datagram, g_asker.GetSocket(&g_asker));
    if (datagram.size() % 2 == 1) CheckSent(&g_asker, &g_channel, datagram);
  }
  g_asker.Close(&g_asker);
  g_channel.Close(&g_channel);
  return 0;
}
