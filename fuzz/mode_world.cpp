#include "fuzz/mode_world.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "daemon/dispatch.h"
#include "daemon/resources.h"
#include "daemon/settings.h"
#include "fuzz/check.h"
#include "fuzz/files.h"
#include "fuzz/input.h"
#include "fuzz/stand_ins.h"
#include "fuzz/virtual_time.h"
#include "ipc/camera_control.h"
#include "ipc/cicomm.h"
#include "lens/camera_query.h"
#include "lens/mfz_state.h"
#include "lens/position.h"
#include "module/firmware_update.h"
#include "net/tcp_socket.h"
#include "relay/cfdevent.h"
#include "relay/cptzsvr.h"
#include "relay/daemon_datagram.h"
#include "relay/mode_pass.h"
#include "sim/device.h"
#include "sim/leftovers.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace fuzz {
namespace {

using Bytes = std::vector<uint8_t>;
using ByteSpan = std::span<const uint8_t>;

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kUsPerS = 1'000'000;
// How long the kernel may take to hand bytes on, milliseconds of the machine's own time.
constexpr int kKernelMs = 5000;
// Passes that may go by without an event before the daemon counts as spinning.
constexpr int kMostPasses = 3000;
constexpr int kPassesOfWork = 60;
constexpr size_t kMostLinePending = 2000;
constexpr size_t kMostClients = 16;
// Clients with a mark of their own; further ones send nothing.
constexpr size_t kMarkedClients = 10;
constexpr size_t kLocalSender = kMarkedClients;
constexpr uint8_t kLocalMark = 0xB0;
constexpr uint8_t kNothingComes = 0xC0;  // and above: as in fake_line.h

int Pending(int fd) {
  int count = 0;
  return ioctl(fd, FIONREAD, &count) == 0 ? count : 0;
}

// Asks `is_done` until it is so or the kernel has had its time. Returns its last answer.
template <typename Condition>
bool AwaitKernel(Condition is_done) {
  const auto end = sim::Clock::now() + sim::milliseconds(kKernelMs);
  while (!is_done()) {
    if (sim::Clock::now() > end) return false;
    sched_yield();
  }
  return true;
}

// A process that sends marked bytes to the line: the mark in the high nibble, a count in the low
// one.
struct Sender {
  uint8_t mark = 0;
  uint8_t next = 0;  // count of the next byte sent
  int expected = 0;  // count of the next byte to arrive, -1 when bytes may have been lost
  size_t sent = 0;
  size_t arrived = 0;
  bool may_lose = false;

  Bytes Make(size_t count) {
    Bytes bytes(count);
    for (size_t i = 0; i < count; ++i)
      bytes[i] = static_cast<uint8_t>(mark | ((next + i) & 0x0F));
    return bytes;
  }
  void NoteSent(size_t count) {
    sent += count;
    next = static_cast<uint8_t>((next + count) & 0x0F);
  }
  void NoteArrived(uint8_t byte) {
    const int count = byte & 0x0F;
    if (expected >= 0 && expected != count) Fail("bytes of sender %02X out of order", mark);
    expected = (count + 1) & 0x0F;
    ++arrived;
  }
  void Forgive() {
    may_lose = true;
    expected = -1;
  }
};

struct Client {
  sim::UniqueFd fd;
  uint16_t port = 0;
  bool is_admitted = false;
  bool is_reading = true;
  bool has_ended = false;   // by itself
  int64_t stopped_us = -1;  // when it stopped reading for the first time
  size_t first = 0;         // of the line's bytes, the first that it gets
  size_t received = 0;
  size_t sender = 0;
};

// What belongs to the whole program.
struct Surroundings {
  sim::UdpPeer data{SERIAL_DATA_PORT};
  sim::UdpPeer camera{CAMD_QUERY_PORT};
  sim::UdpPeer local;

  Surroundings() {
    // Sockets of earlier executions must not pile up; a small buffer fills up sooner.
    PutFile("/proc/sys/net/ipv4/tcp_max_tw_buckets", "0");
    PutFile("/proc/sys/net/ipv4/tcp_wmem", "4096 4096 4096");
    PutFile(MICOM_FIRMWARE_PATH, std::string(600, 'f'));
  }
};

Surroundings& TheSurroundings() {
  static Surroundings surroundings;
  return surroundings;
}

class ModeWorld {
 public:
  ModeWorld(const ModeKind& kind, Input script) : kind_(kind), script_(script) {
    for (size_t i = 0; i < senders_.size(); ++i)
      senders_[i].mark = static_cast<uint8_t>(i << 4);
    senders_[kLocalSender].mark = kLocalMark;
  }

  void Run();

  // Events. Each takes its particulars from the script.
  void Connect();
  void ClientSends();
  void ClientEnds();
  void ClientStopsOrReads();
  void LocalSends();
  void RawDatagram();
  void CameraControlCommand();
  void RawCommand();
  void LineSpeaks();
  void LineBursts();
  void LineHangsUpOrReturns();
  void TimePasses();
  void WorkerSteps();

 private:
  // What the daemon waits in.
  int OnPass(pollfd* fds, nfds_t count, int64_t limit_us);
  void OnWait(const pollfd* fds, nfds_t count);
  int NextWakeUp(pollfd* fds, nfds_t count, int64_t limit_us);
  int LetRun(pollfd* fds, nfds_t count, int64_t limit_us);
  bool IsUnderWay() const;
  int End(pollfd* fds, nfds_t count, int64_t limit_us);
  void Act();

  // The line.
  bool IsLineUp() const { return line_.has_value() && g_rs232_context.serial >= 0; }
  void SendOnLine(ByteSpan bytes);
  void ReplyOnLine();
  void TakeFromLine();
  void TakeByte(uint8_t byte);
  size_t ReadTotal() const;

  // The clients and the local processes.
  Client* PickClient();
  void NoteAdmissions();
  void TakeFromClient(Client* client);
  void NoteClosed(Client* client);
  void CheckSlowClients() const;
  void TakeDatagrams();
  void AnswerCamera();
  void SendLocal(ByteSpan datagram, int port);

  void Install(int how) const;
  void PrepareGlobals();
  void BeginStreams();
  void Observe();
  void CheckEnd();

  const ModeKind& kind_;
  Input script_;
  std::optional<sim::PtyLine> line_;
  std::array<Sender, kMarkedClients + 1> senders_;
  std::vector<std::unique_ptr<Client>> clients_;
  Bytes from_line_;        // what came from the line since the pass runs, without what got lost
  Bytes early_;            // before that
  Bytes to_line_;          // arrived at the far end, not taken apart yet
  size_t read_total_ = 0;  // of from_line_, as of the last look
  size_t datagrams_at_ = 0;
  bool is_running_ = false;  // the mode has come to its passes
  bool is_ending_ = false;
  bool is_told_to_stop_ = false;
  bool are_streams_known_ = true;
  int passes_ = 0;         // since the last event
  int passes_to_run_ = 0;  // before the next one
  int64_t pass_began_us_ = 0;
};

// By the low nibble of an event's first byte; the high one is how many passes follow it.
constexpr std::array<void (ModeWorld::*)(), 16> kEvents = {
    &ModeWorld::Connect,
    &ModeWorld::ClientSends,
    &ModeWorld::ClientEnds,
    &ModeWorld::ClientStopsOrReads,
    &ModeWorld::LocalSends,
    &ModeWorld::RawDatagram,
    &ModeWorld::CameraControlCommand,
    &ModeWorld::RawCommand,
    &ModeWorld::LineSpeaks,
    &ModeWorld::LineBursts,
    &ModeWorld::LineHangsUpOrReturns,
    &ModeWorld::TimePasses,
    &ModeWorld::WorkerSteps,
    &ModeWorld::ClientSends,
    &ModeWorld::CameraControlCommand,
    &ModeWorld::LineSpeaks,
};

// --- Waits of the daemon -----------------------------------------------------------------------

int ModeWorld::OnPass(pollfd* fds, nfds_t count, int64_t limit_us) {
  if (!is_running_) BeginStreams();
  if (NowUs() - pass_began_us_ > kind_.longest_pass_us) {
    Fail("a pass of %lld us", static_cast<long long>(NowUs() - pass_began_us_));
  }
  if (++passes_ > kMostPasses) Fail("the daemon spins");
  CheckSlowClients();
  Observe();
  const int ready = NextWakeUp(fds, count, limit_us);
  pass_began_us_ = NowUs();
  return ready;
}

// Whoever had taken nothing for too long when the pass began has been dropped by it.
void ModeWorld::CheckSlowClients() const {
  const CPTZSVR* server = g_rs232_context.ptz_server;
  for (int slot = 0; slot < CPTZSVR_MAX_CLIENTS; ++slot) {
    const int64_t dropped_us = server->took_us[slot] + CPTZSVR_SEND_LIMIT_S * kUsPerS;
    FUZZ_CHECK(server->queues[slot].count == 0 || dropped_us >= pass_began_us_);
  }
}

// Lets the daemon do what there is to do, as many passes as the last event says.
int ModeWorld::LetRun(pollfd* fds, nfds_t count, int64_t limit_us) {
  if (passes_to_run_ == 0) return 0;
  --passes_to_run_;
  const int ready = RealPoll(fds, count, 0);
  if (ready == 0 && (limit_us < 0 || limit_us > MODE_PASS_PACE_US)) passes_to_run_ = 0;
  return ready;
}

int ModeWorld::NextWakeUp(pollfd* fds, nfds_t count, int64_t limit_us) {
  const int64_t end_us = limit_us < 0 ? INT64_MAX : NowUs() + limit_us;
  if (const int ready = LetRun(fds, count, limit_us); ready != 0) return ready;
  if (passes_to_run_ > 0) {
    PassTime(limit_us);
    return 0;
  }
  while (!script_.IsEmpty()) {
    Act();
    const int ready = RealPoll(fds, count, 0);
    if (ready != 0 || NowUs() >= end_us) return ready;
  }
  return End(fds, count, limit_us);
}

// Whether the kernel still has bytes between a client and the daemon that did not fit into a
// buffer.
bool ModeWorld::IsUnderWay() const {
  const CPTZSVR* server = g_rs232_context.ptz_server;
  const bool is_queued = std::any_of(std::begin(server->queues), std::end(server->queues),
                                     [](const SendQueue& queue) { return queue.count > 0; });
  return is_queued || std::any_of(clients_.begin(), clients_.end(), [](const auto& client) {
           int unsent = 0;
           return client->is_admitted && client->fd.IsOpen() &&
                  ioctl(client->fd.Get(), SIOCOUTQ, &unsent) == 0 && unsent > 0;
         });
}

// The script is over: everybody takes what there is, the daemon does what it has left to do, and
// is told to stop.
int ModeWorld::End(pollfd* fds, nfds_t count, int64_t limit_us) {
  if (!is_ending_) {
    is_ending_ = true;
    passes_ = 0;
    for (const auto& client : clients_)
      client->is_reading = true;
  }
  Observe();
  int ready = RealPoll(fds, count, 0);
  for (int ms = 0; ready == 0 && ms < kKernelMs && IsUnderWay(); ++ms) {
    ready = RealPoll(fds, count, 1);
    Observe();
  }
  if (ready != 0) return ready;
  if (limit_us >= 0 && limit_us <= MODE_PASS_PACE_US && passes_ < kPassesOfWork) {
    PassTime(limit_us);
    return 0;
  }
  g_rs232_stop = 1;
  errno = EINTR;
  return -1;
}

void ModeWorld::Act() {
  constexpr int kMany = 15;
  const uint8_t event = script_.Byte();
  passes_ = 0;
  passes_to_run_ = event >> 4 == kMany ? kPassesOfWork : event >> 4;
  (this->*kEvents[event & 0x0F])();
}

void ModeWorld::OnWait(const pollfd* fds, nfds_t count) {
  TakeFromLine();
  if (count == 1 && fds[0].fd == g_rs232_context.serial) {
    ReplyOnLine();
  } else {
    AnswerCamera();
  }
}

// --- The line ----------------------------------------------------------------------------------

void ModeWorld::SendOnLine(ByteSpan bytes) {
  if (!IsLineUp()) return;
  const size_t before = static_cast<size_t>(Pending(g_rs232_context.serial));
  if (bytes.empty() || before > kMostLinePending) return;
  FUZZ_CHECK(write(line_->FarEnd(), bytes.data(), bytes.size()) ==
             static_cast<ssize_t>(bytes.size()));
  Bytes* log = is_running_ ? &from_line_ : &early_;
  log->insert(log->end(), bytes.begin(), bytes.end());
  FUZZ_CHECK(AwaitKernel([&] {
    return static_cast<size_t>(Pending(g_rs232_context.serial)) == before + bytes.size();
  }));
}

// What comes of a read on the line that the daemon waits in.
void ModeWorld::ReplyOnLine() {
  if (is_running_) are_streams_known_ = false;
  const uint8_t how = script_.IsEmpty() ? kNothingComes : script_.Byte();
  if (how < kNothingComes) SendOnLine(script_.Bytes(how % 16 + 1));
}

// How much of from_line_ the daemon has read.
size_t ModeWorld::ReadTotal() const {
  if (!IsLineUp()) return from_line_.size();
  return from_line_.size() - static_cast<size_t>(Pending(g_rs232_context.serial));
}

void ModeWorld::TakeByte(uint8_t byte) {
  const uint8_t mark = byte & 0xF0;
  const auto sender = std::find_if(senders_.begin(), senders_.end(),
                                   [mark](const Sender& s) { return s.mark == mark; });
  if (sender == senders_.end()) Fail("a byte %02X that nobody sent", byte);
  sender->NoteArrived(byte);
}

void ModeWorld::TakeFromLine() {
  if (!line_.has_value()) return;
  const termios settings = line_->Settings();
  uint8_t piece[4096];
  for (ssize_t count = 0; (count = read(line_->FarEnd(), piece, sizeof(piece))) > 0;)
    to_line_.insert(to_line_.end(), piece, piece + count);
  if (cfgetospeed(&settings) == B115200) to_line_.clear();  // a firmware update
  size_t at = 0;
  while (at < to_line_.size()) {
    if (to_line_[at] != kind_.sync) {
      TakeByte(to_line_[at++]);
      continue;
    }
    if (to_line_.size() - at < kind_.frame_size) break;
    if (!kind_.is_frame(ByteSpan(to_line_).subspan(at, kind_.frame_size))) {
      Fail("a frame that is none: %s",
           sim::Hex(ByteSpan(to_line_).subspan(at, kind_.frame_size)).c_str());
    }
    at += kind_.frame_size;
  }
  to_line_.erase(to_line_.begin(), to_line_.begin() + static_cast<std::ptrdiff_t>(at));
}

void ModeWorld::LineSpeaks() {
  SendOnLine(script_.Bytes(script_.Byte() % 80));
}

void ModeWorld::LineBursts() {
  const Bytes bytes(static_cast<size_t>(script_.Byte()) * 8,
                    static_cast<uint8_t>(from_line_.size()));
  SendOnLine(bytes);
}

void ModeWorld::LineHangsUpOrReturns() {
  if (!line_.has_value()) {
    if (g_rs232_context.serial < 0) line_.emplace();
    return;
  }
  if (!IsLineUp()) return;
  TakeFromLine();
  from_line_.resize(ReadTotal());
  line_.reset();
  to_line_.clear();
  for (Sender& sender : senders_)
    sender.Forgive();
}

// --- Clients -----------------------------------------------------------------------------------

Client* ModeWorld::PickClient() {
  const uint8_t which = script_.Byte();
  return clients_.empty() ? nullptr : clients_[which % clients_.size()].get();
}

void ModeWorld::Connect() {
  // More than the listener's backlog would not get through.
  const auto waiting = std::count_if(clients_.begin(), clients_.end(),
                                     [](const auto& client) { return !client->is_admitted; });
  if (clients_.size() == kMostClients || waiting >= ZSK_BACKLOG) return;
  auto client = std::make_unique<Client>();
  client->fd.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(g_rs232_settings.ptz_port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  // Ends without a trace at the latest with the execution.
  const linger at_once = {.l_onoff = 1, .l_linger = 0};
  setsockopt(client->fd.Get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  // Takes little at a time but sends all at once.
  for (const auto& [level, option, value] :
       std::initializer_list<std::array<int, 3>>{{SOL_SOCKET, SO_RCVBUF, 4096},
                                                 {SOL_SOCKET, SO_SNDBUF, 65536},
                                                 {IPPROTO_TCP, TCP_NODELAY, 1}})
    setsockopt(client->fd.Get(), level, option, &value, sizeof(value));
  (void)connect(client->fd.Get(), reinterpret_cast<sockaddr*>(&address), length);
  pollfd connected = {.fd = client->fd.Get(), .events = POLLOUT, .revents = 0};
  FUZZ_CHECK(RealPoll(&connected, 1, kKernelMs) == 1 && connected.revents == POLLOUT);
  getsockname(client->fd.Get(), reinterpret_cast<sockaddr*>(&address), &length);
  client->port = ntohs(address.sin_port);
  client->sender = clients_.size();
  clients_.push_back(std::move(client));
}

void ModeWorld::ClientSends() {
  const size_t count = static_cast<size_t>(script_.Byte()) * 2 + 1;
  Client* client = PickClient();
  if (client == nullptr || client->sender >= kMarkedClients || client->has_ended) return;
  Sender* sender = &senders_[client->sender];
  const Bytes bytes = sender->Make(count);
  const ssize_t sent =
      send(client->fd.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent > 0) sender->NoteSent(static_cast<size_t>(sent));
}

// In good order, or with a reset that may lose what is under way.
void ModeWorld::ClientEnds() {
  const bool is_reset = script_.Byte() % 2 == 1;
  Client* client = PickClient();
  if (client == nullptr || client->has_ended) return;
  client->has_ended = true;
  if (is_reset) {
    if (client->sender < kMarkedClients) senders_[client->sender].may_lose = true;
    client->fd.Reset();
  } else {
    shutdown(client->fd.Get(), SHUT_WR);
  }
}

void ModeWorld::ClientStopsOrReads() {
  Client* client = PickClient();
  if (client == nullptr) return;
  client->is_reading = !client->is_reading;
  if (client->stopped_us < 0) client->stopped_us = NowUs();
}

// A client is let in by the same pass, before it looks at the line: it gets what is read from now
// on.
void ModeWorld::NoteAdmissions() {
  const CPTZSVR* server = g_rs232_context.ptz_server;
  for (const int fd : server->clients) {
    sockaddr_in peer = {};
    socklen_t length = sizeof(peer);
    if (fd < 0 || getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) continue;
    for (const auto& client : clients_) {
      if (client->is_admitted || client->port != ntohs(peer.sin_port)) continue;
      client->is_admitted = true;
      client->first = read_total_;
    }
  }
}

// The daemon closed the connection.
void ModeWorld::NoteClosed(Client* client) {
  client->fd.Reset();
  if (client->sender < kMarkedClients) senders_[client->sender].may_lose = true;
  if (client->has_ended || is_told_to_stop_) return;
  if (!client->is_admitted) {
    if (clients_.size() <= CPTZSVR_MAX_CLIENTS) Fail("a client is refused for no reason");
    return;
  }
  constexpr int64_t kLimitUs = CPTZSVR_SEND_LIMIT_S * kUsPerS;
  const bool was_slow = client->stopped_us >= 0 && NowUs() - client->stopped_us >= kLimitUs;
  if (!was_slow) Fail("a client is dropped for no reason");
}

void ModeWorld::TakeFromClient(Client* client) {
  uint8_t piece[4096];
  while (client->fd.IsOpen() && client->is_reading) {
    const ssize_t count = recv(client->fd.Get(), piece, sizeof(piece), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) {
      NoteClosed(client);
      return;
    }
    const size_t at = client->first + client->received;
    client->received += static_cast<size_t>(count);
    if (!are_streams_known_) continue;
    FUZZ_CHECK(client->is_admitted);
    FUZZ_CHECK(at + static_cast<size_t>(count) <= from_line_.size());
    FUZZ_CHECK(std::equal(piece, piece + count, &from_line_[at]));
  }
}

// --- Local processes ---------------------------------------------------------------------------

void ModeWorld::SendLocal(ByteSpan datagram, int port) {
  TheSurroundings().local.SendTo(port, datagram);
}

void ModeWorld::LocalSends() {
  Sender* sender = &senders_[kLocalSender];
  const Bytes bytes = sender->Make(static_cast<size_t>(script_.Byte()) * 3);
  SendLocal(sim::DaemonDatagram(RS232_UDP_WRITE, bytes), g_rs232_settings.udp_port);
  sender->NoteSent(bytes.size());
}

// Any bytes at the daemon's own port but those that would go to the line without a mark.
void ModeWorld::RawDatagram() {
  const auto bytes = script_.Bytes(script_.Byte() % 16);
  const int code = bytes.size() < RS232_UDP_CODE_SIZE ? -1 : LoadLe16(bytes.data());
  if (code == RS232_UDP_WRITE) return;
  if (code == RS232_UDP_STOP) is_told_to_stop_ = true;
  SendLocal(bytes, g_rs232_settings.udp_port);
}

void ModeWorld::CameraControlCommand() {
  constexpr std::array<uint16_t, 32> kCodes = {CAMERA_CODE_WHITE_BALANCE,
                                               CAMERA_CODE_BACKLIGHT,
                                               CAMERA_CODE_AUTO_IRIS,
                                               CAMERA_CODE_IRIS_STEP,
                                               CAMERA_CODE_JOYSTICK,
                                               CAMERA_CODE_SET_PRESET,
                                               CAMERA_CODE_GO_TO_PRESET,
                                               CAMERA_CODE_CLEAR_PRESET,
                                               CAMERA_CODE_SET_PATTERN,
                                               CAMERA_CODE_RUN_PATTERN,
                                               CAMERA_CODE_ZOOM_SPEED,
                                               CAMERA_CODE_FOCUS_SPEED,
                                               CAMERA_CODE_GO_TO_PRESET_33,
                                               CAMERA_CODE_GO_TO_PRESET_34,
                                               CAMERA_CODE_MODULE_SETTING,
                                               CAMERA_CODE_FOCUS_SEARCH,
                                               CAMERA_CODE_MENU,
                                               CAMERA_CODE_FOCUS,
                                               CAMERA_CODE_ZOOM,
                                               CAMERA_CODE_IRIS,
                                               CAMERA_CODE_MENU_ENTER,
                                               CAMERA_CODE_UP,
                                               CAMERA_CODE_DOWN,
                                               CAMERA_CODE_LEFT,
                                               CAMERA_CODE_RIGHT,
                                               CAMERA_CODE_SET_AUXILIARY,
                                               CAMERA_CODE_CLEAR_AUXILIARY,
                                               CAMERA_CODE_GO_TO_PRESET_99,
                                               CAMERA_CODE_GO_TO_PRESET_96,
                                               CAMERA_CODE_ASSIST,
                                               CAMERA_CODE_AF_MODE,
                                               CAMERA_CODE_REMOTE_RESET};
  const uint16_t code = kCodes[script_.Byte() % kCodes.size()];
  const int first = script_.Byte();
  const int second = script_.Byte();
  const int third = script_.Byte();
  SendLocal(sim::CameraControlPacket(sim::Control(code, first, second, third)), RS232_COMMAND_PORT);
}

// A command with any payload, or any bytes at all.
void ModeWorld::RawCommand() {
  const uint8_t command = script_.Byte();
  const auto bytes = script_.Bytes(script_.Byte() % 64);
  if (command % 8 == 0) {
    SendLocal(bytes, RS232_COMMAND_PORT);
  } else {
    SendLocal(sim::CommandPacket(command, bytes), RS232_COMMAND_PORT);
  }
}

void ModeWorld::TakeDatagrams() {
  SerialDataDatagram datagram;
  while (true) {
    const ssize_t length =
        recv(TheSurroundings().data.Fd(), &datagram, sizeof(datagram), MSG_DONTWAIT | MSG_TRUNC);
    if (length < 0) break;
    FUZZ_CHECK(kind_.sends_serial_data && is_running_);
    FUZZ_CHECK(static_cast<size_t>(length) <= sizeof(datagram));
    const auto* bytes = reinterpret_cast<const uint8_t*>(&datagram);
    const auto carried = sim::DecodeSerialData({bytes, static_cast<size_t>(length)});
    FUZZ_CHECK(carried.has_value() && datagrams_at_ + carried->size() <= from_line_.size());
    FUZZ_CHECK(std::equal(carried->begin(), carried->end(), &from_line_[datagrams_at_]));
    datagrams_at_ += carried->size();
  }
  if (kind_.sends_serial_data && is_running_) FUZZ_CHECK(datagrams_at_ == ReadTotal());
}

// The camera daemon answers a question as the script says: not, with a good packet, with a bad one.
void ModeWorld::AnswerCamera() {
  constexpr int kRecordAt = CICOMM_HEADER_SIZE;
  uint8_t question[CICOMM_HEADER_SIZE + CAMERA_QUERY_SIZE];
  sockaddr_in asker = {};
  socklen_t length = sizeof(asker);
  while (recvfrom(TheSurroundings().camera.Fd(), question, sizeof(question), MSG_DONTWAIT,
                  reinterpret_cast<sockaddr*>(&asker), &length) == sizeof(question)) {
    if (LoadLe32(question + kRecordAt) == CAMERA_QUERY_SET_EXPOSURE) continue;
    const uint8_t how = script_.Byte();
    if (how == 0) continue;
    Bytes record(CAMERA_QUERY_SIZE);
    StoreLe32(record.data(), LoadLe32(question + kRecordAt));
    const auto figures = script_.Bytes(how % 8 + 1);
    std::copy(figures.begin(), figures.end(), record.begin() + CAMERA_QUERY_LEVEL_AT);
    const ByteSpan answer = how < kNothingComes ? ByteSpan(record) : figures;
    TheSurroundings().camera.SendTo(ntohs(asker.sin_port),
                                    sim::CommandPacket(CAMERA_QUERY, answer));
  }
}

// --- Time and work -----------------------------------------------------------------------------

void ModeWorld::TimePasses() {
  constexpr std::array<int64_t, 4> kUnits = {1, kUsPerMs, 50 * kUsPerMs, kUsPerS / 4};
  const uint8_t how = script_.Byte();
  PassTime((how >> 2) * kUnits[how & 3]);
}

void ModeWorld::WorkerSteps() {
  StepWorker();
}

// --- From the start to the end -----------------------------------------------------------------

// The device's files. The modes write none of them but the positions, and that only in part.
void ModeWorld::Install(int how) const {
  static int installed = -1;
  if (how != installed) {
    sim::DeviceConfig config;
    config.model = kind_.model;
    config.baud_rate = 57600;
    sim::InstallDevice(config);
    sim::InstallLens({.zoom = 0,
                      .focus = 0,
                      .sensor = (how & 2) != 0 ? "IMX123" : "AR0230",
                      .antiflicker = (how & 4) != 0 ? "true" : "false"});
    installed = how;
  }
  PutFile(MFZ_CONF_PATH, sim::PositionsText((how & 1) != 0 ? 100 : 0, 200));
}

void ModeWorld::PrepareGlobals() {
  g_rs232_stop = 0;
  g_rs232_context = {};
  new (&g_mfz) MfzState{};
  Commands().clear();
  const uint8_t how = script_.Byte();
  g_rs232_context.trace_level = how & 1;
  Install(how >> 1);
  FUZZ_CHECK(ReadSettings(&g_rs232_settings) == 0);
}

// The mode has come to its first pass. In the lens mode the one thing that an earlier execution
// leaves behind is who drives the lens.
void ModeWorld::BeginStreams() {
  is_running_ = true;
  const auto left = static_cast<std::ptrdiff_t>(Pending(g_rs232_context.serial));
  from_line_.assign(early_.end() - left, early_.end());
  pass_began_us_ = NowUs();
  constexpr int kDaemonDrives = 3;
  SendLocal(sim::CameraControlPacket(sim::Control(CAMERA_CODE_AF_MODE, kDaemonDrives)),
            RS232_COMMAND_PORT);
  passes_to_run_ = 1;
}

void ModeWorld::Observe() {
  TakeFromLine();
  read_total_ = ReadTotal();
  NoteAdmissions();
  for (const auto& client : clients_)
    TakeFromClient(client.get());
  TakeDatagrams();
}

// Everything that was under way has arrived.
void ModeWorld::CheckEnd() {
  FUZZ_CHECK(g_rs232_stop != 0);
  if (is_told_to_stop_) return;
  FUZZ_CHECK(AwaitKernel([this] {
    TakeFromLine();
    return std::all_of(senders_.begin(), senders_.end(), [](const Sender& sender) {
      return sender.may_lose || sender.arrived == sender.sent;
    });
  }));
  FUZZ_CHECK(!are_streams_known_ || AwaitKernel([this] {
    Observe();
    return std::all_of(clients_.begin(), clients_.end(), [this](const auto& client) {
      const bool is_served = client->fd.IsOpen() && client->is_admitted && !client->has_ended;
      return !is_served || client->first + client->received == read_total_;
    });
  }));
}

// Returns false when the mode ended in the device's reboot. Keeps nothing across the jump.
[[gnu::noinline]] bool RunToItsEnd() {
  static std::jmp_buf after_reboot;
  g_after_reboot = &after_reboot;
  const bool is_rebooted = setjmp(after_reboot) != 0;
  if (!is_rebooted) RunMode(&g_rs232_context);
  g_after_reboot = nullptr;
  return !is_rebooted;
}

// What the last pass of the execution before sent to other processes.
void ForgetDatagrams() {
  uint8_t byte;
  for (const int fd : {TheSurroundings().data.Fd(), TheSurroundings().camera.Fd()}) {
    while (recv(fd, &byte, 1, MSG_DONTWAIT) >= 0) {
    }
  }
}

void ModeWorld::Run() {
  BeginExecution();
  ForgetDatagrams();
  const size_t open_before = sim::DescriptorCount(getpid());
  PrepareGlobals();
  line_.emplace();
  TheWaits().on_pass = [this](pollfd* fds, nfds_t count, int64_t limit_us) {
    return OnPass(fds, count, limit_us);
  };
  TheWaits().on_wait = [this](const pollfd* fds, nfds_t count) { OnWait(fds, count); };
  FUZZ_CHECK(OpenResources(&g_rs232_settings, &g_rs232_context) == OpenResult::kReady);
  if (RunToItsEnd()) CheckEnd();
  TheWaits() = {};
  ReleaseResources(&g_rs232_context);
  clients_.clear();
  line_.reset();
  FUZZ_CHECK(sim::DescriptorCount(getpid()) == open_before);
}

}  // namespace

void RunModeByScript(const ModeKind& kind, const uint8_t* data, size_t size) {
  ModeWorld world(kind, Input(data, size));
  world.Run();
}

}  // namespace fuzz
