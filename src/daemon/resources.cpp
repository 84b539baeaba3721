#include "daemon/resources.h"

#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "ipc/cicomm.h"
#include "net/ipv4_address.h"
#include "net/udp_socket.h"
#include "relay/cfdevent.h"
#include "relay/cptzsvr.h"
#include "serial/serial_port.h"

namespace {

constexpr int kClosed = -1;

CICOMM g_command;
CFDEVENT g_events;
CPTZSVR g_ptz_server;

// Opens the socket for write and stop datagrams. Sets no SO_REUSEADDR, so that a second daemon
// cannot take over the port. Returns the descriptor, or -1 with a line in syslog.
int OpenUdpSocket(int port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    syslog(LOG_ALERT, "[RS232] error while open socket");
    return -1;
  }
  const sockaddr_in address = ZSK_Ipv4Address(INADDR_LOOPBACK, port);
  if (bind(fd, ZSK_Generic(address), sizeof(address)) != 0) {
    syslog(LOG_ALERT, "[RS232] error while bind socket\n");
    close(fd);
    return -1;
  }
  return fd;
}

// While SO_REUSEADDR is set on the socket, any process that sets it too can bind the same port and
// receive its packets. Clearing it after the bind protects the port.
void KeepPort(int fd) {
  const int off = 0;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &off, sizeof(off));
}

CFDEVENT* MakeEventSet(const Rs232Context& context) {
  CFDEVENT_Init(&g_events);
  g_events.Add(&g_events, g_command.GetSocket(&g_command));
  g_events.Add(&g_events, context.serial);
  g_events.Add(&g_events, context.udp_socket);
  return &g_events;
}

CPTZSVR* MakePtzServer(int16_t port) {
  if (port <= 0) return nullptr;
  CPTZSVR_Init(&g_ptz_server, port);
  return &g_ptz_server;
}

}  // namespace

OpenResult OpenResources(Rs232Settings* settings, Rs232Context* context) {
  context->udp_socket = kClosed;
  if (OpenRS232(context, SerialLineOf(*settings)) < 0) return OpenResult::kEnd;
  context->udp_socket = OpenUdpSocket(settings->udp_port);
  if (context->udp_socket < 0) return OpenResult::kFailed;
  if (CICOMM_Init(&g_command, settings->command_port) != 0) return OpenResult::kEnd;
  KeepPort(g_command.GetSocket(&g_command));
  // The kernel may report a packet as readable and then drop it for a bad checksum; receiving must
  // not block the pass.
  ZSK_SetNonBlocking(g_command.GetSocket(&g_command));
  context->command = &g_command;
  context->events = MakeEventSet(*context);
  context->ptz_server = MakePtzServer(settings->ptz_port);
  context->stop = &g_rs232_stop;
  context->settings = settings;
  return OpenResult::kReady;
}

void ReleaseResources(Rs232Context* context) {
  if (context->ptz_server != nullptr) context->ptz_server->Close(context->ptz_server);
  if (context->command != nullptr) context->command->Close(context->command);
  if (context->events != nullptr) context->events->Deinit(context->events);
  CloseRS232(context);
  if (context->udp_socket >= 0) close(context->udp_socket);
  context->ptz_server = nullptr;
  context->command = nullptr;
  context->events = nullptr;
  context->udp_socket = kClosed;
}
