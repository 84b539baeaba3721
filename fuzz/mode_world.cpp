// Input: a script of events around the daemon, in the mode named by the program (kModes): a byte
// with the initial state, then events (kEvents).
//
// The mode runs as on a device, with real sockets and a real pty, but in one thread with the world:
// whenever a pass waits, the world runs the next event of the script, or more passes for the last
// event. Time is virtual.
// Checked after every pass and at the end:
//   - all bytes from clients and local processes reach the far end of the line in order, with only
//     valid frames of the mode between them, while the line is up;
//   - every client receives all bytes that the line delivers after it has connected, and the data
//     datagrams contain all bytes; the daemon drops only clients that accept no bytes for
//     CPTZSVR_SEND_TIMEOUT_S;
//   - the packets of a firmware update are sent in order, as the far end accepts them;
//   - the camera information file is complete;
//   - the start and each pass take no longer than the sum of the mode's waits, and the daemon does
//     not spin;
//   - the mode ends when told to stop, and leaks no descriptor.
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <new>
#include <optional>
#include <vector>

#include "daemon/dispatch.h"
#include "daemon/resources.h"
#include "daemon/settings.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/stand_ins.h"
#include "fuzz/target.h"
#include "ipc/cicomm.h"
#include "lens/camera_query.h"
#include "lens/control.h"
#include "lens/i2m.h"
#include "lens/mfz_state.h"
#include "module/firmware_update.h"
#include "module/hd_frame.h"
#include "module/hd_mode.h"
#include "module/micom_firmware.h"
#include "net/tcp_socket.h"
#include "relay/cptzsvr.h"
#include "relay/daemon_datagram.h"
#include "relay/mode_pass.h"
#include "relay/pelco_d.h"
#include "sim/device.h"
#include "sim/leftovers.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace fuzz {
namespace {

using sim::Bytes;
using ByteSpan = std::span<const uint8_t>;

constexpr int64_t kLongestStartUs = 15 * kUsPerS;
// Limits until the reboot: the wait for the loader's signature with the notice, and each packet
// exchange.
constexpr int64_t kLongestRebootUs = (13 + HD_REBOOT_NOTICE_S) * kUsPerS;
constexpr int64_t kLongestExchangeUs = 4'200'000;
// Timeout for bytes in transit in the kernel, in real time.
constexpr sim::milliseconds kKernelTime{5000};
// More passes than this without an event count as spinning.
constexpr int kMostPasses = 3000;
constexpr int kPassesOfWork = 60;
constexpr int kMostLinePending = 2000;
constexpr size_t kMostClients = 16;
// Number of clients with a distinct mark; further clients send nothing.
constexpr size_t kMarkedClients = 10;
constexpr uint8_t kLocalMark = 0xB0;
// Script bytes from this value on mean that no answer arrives.
constexpr uint8_t kNothingComes = 0xC0;

// --- The modes ---------------------------------------------------------------------------------

template <typename Frame, uint8_t (*checksum)(const Frame& frame)>
bool IsFrame(ByteSpan bytes) {
  Frame frame;
  std::ranges::copy(bytes, frame.begin());
  return frame.back() == checksum(frame);
}

bool IsPelcoFrame(ByteSpan bytes) {
  return bytes[PELCO_ADDRESS_AT] == PELCO_ADDRESS && IsFrame<PelcoFrame, PelcoChecksum>(bytes);
}

struct ModeRow {
  std::string_view name;
  const char* model;
  // The frames that the mode itself sends on the line.
  size_t frame_size;
  bool (*is_frame)(ByteSpan frame);
  uint8_t sync;
  bool sends_serial_data;
  size_t info_lines;  // in the camera information file
  int64_t longest_pass_us;
};

constexpr int64_t kPassUs = kUsPerS / 2;

constexpr ModeRow kModes[] = {
    {"relay_mode", "QB-620", PELCO_FRAME_SIZE, IsPelcoFrame, PELCO_SYNC, true, 0, kPassUs},
    {"sd_mode", "QB-210", PELCO_FRAME_SIZE, IsPelcoFrame, PELCO_SYNC, true, 3, kPassUs},
    {"hd_mode", "QB-310", HD_FRAME_SIZE, IsFrame<HdFrame, HdChecksum>, HD_SYNC, true, 3, kPassUs},
    {"lens_mode", "QB-420", I2M_FRAME_SIZE, IsFrame<I2mFrame, I2mChecksum>, I2M_SYNC, false, 1,
     120 * kUsPerS},
};

// --- Helpers -----------------------------------------------------------------------------------

int Pending(int fd) {
  int count = 0;
  return ioctl(fd, FIONREAD, &count) == 0 ? count : 0;
}

// Polls `is_done` until it is true or kKernelTime has passed. Returns its last value.
template <typename Condition>
bool AwaitKernel(Condition is_done) {
  const auto end = sim::Clock::now() + kKernelTime;
  while (!is_done()) {
    if (sim::Clock::now() > end) return is_done();  // this process may have been suspended
    sched_yield();
  }
  return true;
}

bool StandsAt(const Bytes& all, size_t at, ByteSpan part) {
  return at + part.size() <= all.size() &&
         std::ranges::equal(ByteSpan(&all[at], part.size()), part);
}

// A process that sends marked bytes to the line: the mark in the high nibble, a counter in the low
// nibble.
struct Sender {
  uint8_t mark = kLocalMark;
  size_t sent = 0;
  size_t arrived = 0;
  int expected = 0;  // counter of the next byte to arrive; -1: unknown after a loss
  bool may_lose = false;

  Bytes Make(size_t count) const {
    Bytes bytes(count);
    for (size_t i = 0; i < count; ++i)
      bytes[i] = static_cast<uint8_t>(mark | ((sent + i) & 0x0F));
    return bytes;
  }
  void NoteArrived(uint8_t byte) {
    const int count = byte & 0x0F;
    if (expected >= 0 && expected != count)
      Fail("bytes out of order of sender " + sim::Hex({&mark, 1}));
    expected = (count + 1) & 0x0F;
    ++arrived;
  }
};

struct Client {
  sim::PtzClient socket;
  in_port_t port;
  Sender* sender;  // null: sends nothing
  bool is_admitted = false;
  bool is_reading = true;
  bool has_ended = false;   // the client closed
  int64_t stopped_us = -1;  // first time that it stopped reading
  size_t next = 0;          // index of the next byte from the line

  bool IsOpen() const { return socket.Fd() >= 0; }
};

// All packets of an update, in order.
std::vector<MicomPacket> UpdatePackets(ByteSpan payload) {
  std::vector packets = {MicomHeaderPacket(static_cast<uint32_t>(payload.size()))};
  for (size_t at = 0; at < payload.size(); at += MICOM_DATA_MAX)
    packets.push_back(MicomDataPacket(payload.subspan(at)));
  packets.push_back(MicomTailPacket(payload));
  return packets;
}

// Returns false if the mode ended with a reboot of the device. Uses no local variable across the
// jump.
[[gnu::noinline]] bool RunToItsEnd() {
  static std::jmp_buf after_reboot;
  g_after_reboot = &after_reboot;
  const bool is_rebooted = setjmp(after_reboot) != 0;
  if (!is_rebooted) RunMode(&g_rs232_context);
  g_after_reboot = nullptr;
  return !is_rebooted;
}

// --- The world ---------------------------------------------------------------------------------

class ModeWorld {
 public:
  ModeWorld(const ModeRow& mode, Input script) : mode_(mode), script_(script) {
    for (size_t i = 0; i < kMarkedClients; ++i)
      senders_[i].mark = static_cast<uint8_t>(i << 4);
  }

  void Run() {
    BeginExecution();
    const size_t open_before = sim::DescriptorCount(getpid());
    Prepare();
    line_.emplace();
    pass_began_us_ = NowUs();
    g_waits.on_pass = [this](pollfd* fds, nfds_t count, int64_t limit_us) {
      return OnPass(fds, count, limit_us);
    };
    g_waits.on_wait = [this](const pollfd* fds, nfds_t count) { OnWait(fds, count); };
    FUZZ_CHECK(OpenResources(&g_rs232_settings, &g_rs232_context) == OpenResult::kReady);
    if (RunToItsEnd()) {
      CheckEnd();
    } else {
      TakeFromLine();
      CheckPassTime(kLongestRebootUs + packets_sent_ * kLongestExchangeUs);
    }
    CheckCameraInformation();
    g_waits = {};
    ReleaseResources(&g_rs232_context);
    clients_.clear();
    line_.reset();
    FUZZ_CHECK(sim::DescriptorCount(getpid()) == open_before);
  }

  // --- Events: each reads its arguments from the script ----------------------------------------

  void Connect() {
    // A connection beyond the listener's backlog would not complete.
    const auto waiting = std::ranges::count(clients_, false, &Client::is_admitted);
    if (clients_.size() == kMostClients || waiting >= ZSK_BACKLOG) return;
    // A small receive buffer, a large send buffer, and no TIME_WAIT state after close.
    sim::PtzClient socket(g_rs232_settings.ptz_port, 4096);
    const int send_buffer = 65536;
    const linger at_once = {.l_onoff = 1, .l_linger = 0};
    setsockopt(socket.Fd(), SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof(send_buffer));
    setsockopt(socket.Fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    getsockname(socket.Fd(), reinterpret_cast<sockaddr*>(&address), &length);
    const bool is_marked = clients_.size() < kMarkedClients;
    clients_.push_back({.socket = std::move(socket),
                        .port = address.sin_port,
                        .sender = is_marked ? &senders_[clients_.size()] : nullptr});
  }

  void ClientSends() {
    const size_t count = static_cast<size_t>(script_.Byte()) * 2 + 1;
    const Client* client = PickClient();
    if (client == nullptr || client->sender == nullptr || client->has_ended) return;
    const Bytes bytes = client->sender->Make(count);
    const ssize_t sent =
        send(client->socket.Fd(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0) client->sender->sent += static_cast<size_t>(sent);
  }

  // Ends with a shutdown, or with a reset that may lose bytes in transit.
  void ClientEnds() {
    const bool is_reset = script_.Byte() % 2 == 1;
    Client* client = PickClient();
    if (client == nullptr || client->has_ended) return;
    client->has_ended = true;
    if (is_reset) return Close(client);
    shutdown(client->socket.Fd(), SHUT_WR);
  }

  void ClientStopsOrReads() {
    Client* client = PickClient();
    if (client == nullptr) return;
    client->is_reading = !client->is_reading;
    if (client->stopped_us < 0) client->stopped_us = NowUs();
  }

  void LocalSends() {
    const Bytes bytes = local_->Make(static_cast<size_t>(script_.Byte()) * 3);
    SendDatagram(sim::DaemonDatagram(RS232_UDP_WRITE, bytes));
    local_->sent += bytes.size();
  }

  // Sends any bytes to the daemon's own port, except unmarked bytes for the line.
  void RawDatagram() {
    const auto bytes = script_.Bytes(script_.Byte() % 16);
    const int code = bytes.size() < RS232_UDP_CODE_SIZE ? -1 : LoadLe16(bytes.data());
    if (code == RS232_UDP_WRITE) return;
    if (code == RS232_UDP_STOP) is_told_to_stop_ = true;
    SendDatagram(bytes);
  }

  void CameraControlCommand() {
    const uint16_t code = script_.Word();
    const int first = script_.Byte();
    const int second = script_.Byte();
    const int third = script_.Byte();
    SendCommand(sim::CameraControlPacket(sim::Control(code, first, second, third)));
  }

  // Sends a command with any payload, or any bytes at all.
  void RawCommand() {
    const uint8_t command = script_.Byte();
    const auto bytes = script_.Bytes(script_.Byte() % 64);
    const bool is_packet = command % 8 != 0;
    SendCommand(is_packet ? sim::CommandPacket(command, bytes) : Bytes(bytes.begin(), bytes.end()));
  }

  void LineSpeaks() { SendOnLine(script_.Bytes(script_.Byte() % 80)); }

  void LineBursts() {
    SendOnLine(Bytes(size_t{8} * script_.Byte(), static_cast<uint8_t>(from_line_.size())));
  }

  void LineHangsUpOrReturns() {
    if (!line_.has_value() && g_rs232_context.serial < 0) {
      line_.emplace();
    } else if (IsLineUp()) {
      TakeFromLine();
      from_line_.resize(ReadTotal());
      line_.reset();
      to_line_.clear();
      for (Sender& sender : senders_) {
        sender.may_lose = true;
        sender.expected = -1;
      }
    }
  }

  void TimePasses() {
    constexpr std::array<int64_t, 4> kUnits = {1, kUsPerMs, 50 * kUsPerMs, kUsPerS / 4};
    const uint8_t how = script_.Byte();
    PassTime((how >> 2) * kUnits[how & 3]);
  }

  void WorkerSteps() { StepWorker(); }

 private:
  // --- Waits of the daemon ---------------------------------------------------------------------

  void Act();

  int OnPass(pollfd* fds, nfds_t count, int64_t limit_us) {
    CheckPassTime(is_running_ ? mode_.longest_pass_us : kLongestStartUs);
    if (!is_running_) BeginStreams();
    if (++passes_ > kMostPasses) Fail("the daemon spins");
    CheckSlowClients();
    Observe();
    const int ready = NextWakeUp(fds, count, limit_us);
    pass_began_us_ = NowUs();
    return ready;
  }

  void OnWait(const pollfd* fds, nfds_t count) {
    TakeFromLine();
    const bool is_on_line = count == 1 && fds[0].fd == g_rs232_context.serial;
    is_on_line ? ReplyOnLine() : AnswerCamera();
  }

  // Runs as many passes as the last event specifies, then the next events.
  int NextWakeUp(pollfd* fds, nfds_t count, int64_t limit_us) {
    const bool has_work = limit_us >= 0 && limit_us <= MODE_PASS_PACE_US;
    const int64_t end_us = limit_us < 0 ? INT64_MAX : NowUs() + limit_us;
    if (passes_to_run_ > 0) {
      --passes_to_run_;
      if (const int ready = RealPoll(fds, count, 0); ready != 0) return ready;
      if (!has_work) passes_to_run_ = 0;
      if (passes_to_run_ > 0) return PassTime(limit_us), 0;
    }
    while (!script_.IsEmpty()) {
      Act();
      const int ready = RealPoll(fds, count, 0);
      if (ready != 0 || NowUs() >= end_us) return ready;
    }
    if (const int ready = TakeTheRest(fds, count); ready != 0) return ready;
    if (has_work && passes_ < 2 * kPassesOfWork) return PassTime(limit_us), 0;
    g_rs232_stop = 1;
    errno = EINTR;
    return -1;
  }

  // At the end of the script: receives everything that is left. Returns as poll does.
  int TakeTheRest(pollfd* fds, nfds_t count) {
    for (Client& client : clients_)
      client.is_reading = true;
    int ready = 0;
    AwaitKernel([&] {
      Observe();
      ready = RealPoll(fds, count, 0);
      return ready != 0 || !IsUnderWay();
    });
    return ready;
  }

  // True if bytes between a client and the daemon still wait for buffer space.
  bool IsUnderWay() const {
    const auto has_unsent = [](const Client& client) {
      int unsent = 0;
      return client.is_admitted && client.IsOpen() &&
             ioctl(client.socket.Fd(), SIOCOUTQ, &unsent) == 0 && unsent > 0;
    };
    return std::ranges::any_of(g_rs232_context.ptz_server->queues,
                               [](const SendQueue& queue) { return queue.count > 0; }) ||
           std::ranges::any_of(clients_, has_unsent);
  }

  void CheckPassTime(int64_t longest_us) const {
    FUZZ_CHECK(NowUs() - pass_began_us_ <= longest_us);
  }

  // A pass must drop the clients whose send timeout had expired when it began.
  void CheckSlowClients() const {
    const CPTZSVR* server = g_rs232_context.ptz_server;
    for (int slot = 0; slot < CPTZSVR_MAX_CLIENTS; ++slot) {
      const int64_t dropped_us = server->last_progress_us[slot] + CPTZSVR_SEND_TIMEOUT_S * kUsPerS;
      FUZZ_CHECK(server->queues[slot].count == 0 || dropped_us >= pass_began_us_);
    }
  }

  // --- The line --------------------------------------------------------------------------------

  bool IsLineUp() const { return line_.has_value() && g_rs232_context.serial >= 0; }

  void SendOnLine(ByteSpan bytes) {
    if (!IsLineUp()) return;
    const int before = Pending(g_rs232_context.serial);
    const int count = static_cast<int>(bytes.size());
    if (count == 0 || before > kMostLinePending) return;
    FUZZ_CHECK(write(line_->FarEnd(), bytes.data(), bytes.size()) == count);
    from_line_.insert(from_line_.end(), bytes.begin(), bytes.end());
    FUZZ_CHECK(AwaitKernel([&] { return Pending(g_rs232_context.serial) == before + count; }));
  }

  // Runs when the daemon waits for a reply on the line.
  void ReplyOnLine() {
    if (is_running_) are_streams_known_ = false;
    const uint8_t how = script_.IsEmpty() ? kNothingComes : script_.Byte();
    if (how >= kNothingComes) return;
    const ByteSpan reply = script_.Bytes(how % 16 + 1);
    acceptances_ += std::ranges::count(reply, MICOM_ACCEPTED);
    SendOnLine(reply);
  }

  // Number of bytes of from_line_ that the daemon has read.
  size_t ReadTotal() const {
    if (!IsLineUp()) return from_line_.size();
    return from_line_.size() - static_cast<size_t>(Pending(g_rs232_context.serial));
  }

  void TakeFromLine() {
    if (!line_.has_value()) return;
    uint8_t piece[4096];
    for (ssize_t count = 0; (count = read(line_->FarEnd(), piece, sizeof(piece))) > 0;)
      to_line_.insert(to_line_.end(), piece, piece + count);
    size_t at = 0;
    while (at < to_line_.size()) {
      const size_t size = TakePart(ByteSpan(to_line_).subspan(at));
      if (size == 0) break;
      at += size;
    }
    to_line_.erase(to_line_.begin(), to_line_.begin() + static_cast<std::ptrdiff_t>(at));
  }

  // Consumes a frame, an update packet or a relayed byte. Returns its size; 0 if it is incomplete.
  size_t TakePart(ByteSpan bytes) {
    if (bytes[0] == MICOM_START) return TakePacket(bytes);
    if (bytes[0] != mode_.sync) {
      const auto sender = std::ranges::find(senders_, bytes[0] & 0xF0, &Sender::mark);
      if (sender == senders_.end())
        Fail("unexpected byte on the line: " + sim::Hex(bytes.first(1)));
      sender->NoteArrived(bytes[0]);
      return 1;
    }
    if (bytes.size() < mode_.frame_size) return 0;
    const ByteSpan frame = bytes.first(mode_.frame_size);
    if (!mode_.is_frame(frame)) Fail("invalid frame: " + sim::Hex(frame));
    return frame.size();
  }

  // Accepts the next packet of the update after the acceptance of the last one, or a repetition of
  // the last one.
  size_t TakePacket(ByteSpan bytes) {
    for (const size_t number : {packets_taken_ + 1, packets_taken_}) {
      if (number < 1 || number > update_.size()) continue;
      const MicomPacket& wanted = update_[number - 1];
      const ByteSpan packet(wanted.bytes.data(), static_cast<size_t>(wanted.size));
      const size_t count = std::min(bytes.size(), packet.size());
      if (!std::ranges::equal(bytes.first(count), packet.first(count))) continue;
      if (count < packet.size()) return 0;
      ++packets_sent_;
      sends_of_packet_ = number == packets_taken_ ? sends_of_packet_ + 1 : 1;
      packets_taken_ = number;
      const bool is_data = number > 1 && number < update_.size();
      FUZZ_CHECK(static_cast<ptrdiff_t>(number) <= acceptances_ + 1);
      FUZZ_CHECK(sends_of_packet_ <= (is_data ? MICOM_TRIES_PER_ROUND * MICOM_ROUNDS : 1));
      return count;
    }
    Fail("not a packet of the update: " + sim::Hex(bytes));
  }

  // --- Clients ---------------------------------------------------------------------------------

  Client* PickClient() {
    const uint8_t which = script_.Byte();
    return clients_.empty() ? nullptr : &clients_[which % clients_.size()];
  }

  static void Close(Client* client) {
    client->socket.Close();
    if (client->sender != nullptr) client->sender->may_lose = true;
  }

  // The pass that admits a client does so before it reads the line: the client receives all bytes
  // read from now on.
  void NoteAdmissions() {
    for (const int fd : g_rs232_context.ptz_server->clients) {
      sockaddr_in peer = {};
      socklen_t length = sizeof(peer);
      if (fd < 0 || getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) continue;
      for (Client& client : clients_) {
        if (client.is_admitted || client.port != peer.sin_port) continue;
        client.is_admitted = true;
        client.next = read_total_;
      }
    }
  }

  // The daemon closed the connection.
  void NoteClosed(Client* client) {
    Close(client);
    if (client->has_ended || is_told_to_stop_) return;
    const int64_t slow_us = client->stopped_us < 0 ? 0 : NowUs() - client->stopped_us;
    FUZZ_CHECK(client->is_admitted ? slow_us >= CPTZSVR_SEND_TIMEOUT_S * kUsPerS
                                   : clients_.size() > CPTZSVR_MAX_CLIENTS);
  }

  void TakeFromClient(Client* client) {
    uint8_t piece[4096];
    while (client->IsOpen() && client->is_reading) {
      const ssize_t count = recv(client->socket.Fd(), piece, sizeof(piece), MSG_DONTWAIT);
      if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
      if (count <= 0) return NoteClosed(client);
      const ByteSpan bytes(piece, static_cast<size_t>(count));
      FUZZ_CHECK(!are_streams_known_ ||
                 (client->is_admitted && StandsAt(from_line_, client->next, bytes)));
      client->next += bytes.size();
    }
  }

  // --- Local processes -------------------------------------------------------------------------

  void SendDatagram(ByteSpan bytes) { local_peer_.SendTo(g_rs232_settings.udp_port, bytes); }
  void SendCommand(ByteSpan packet) { local_peer_.SendTo(RS232_COMMAND_PORT, packet); }

  void TakeDatagrams() {
    uint8_t datagram[sizeof(SerialDataDatagram) + 1];
    ssize_t length = 0;
    while ((length = recv(data_peer_.Fd(), datagram, sizeof(datagram), MSG_DONTWAIT)) >= 0) {
      const auto carried = sim::DecodeSerialData({datagram, static_cast<size_t>(length)});
      FUZZ_CHECK(mode_.sends_serial_data && is_running_ && carried.has_value());
      FUZZ_CHECK(StandsAt(from_line_, datagrams_at_, *carried));
      datagrams_at_ += carried->size();
    }
    if (mode_.sends_serial_data && is_running_) FUZZ_CHECK(datagrams_at_ == read_total_);
  }

  // Answers the camera daemon's queries as the script says: not at all, or with a good or a bad
  // packet.
  void AnswerCamera() {
    uint8_t question[CICOMM_HEADER_SIZE + CAMERA_QUERY_SIZE];
    sockaddr_in asker = {};
    socklen_t length = sizeof(asker);
    while (recvfrom(camera_peer_.Fd(), question, sizeof(question), MSG_DONTWAIT,
                    reinterpret_cast<sockaddr*>(&asker), &length) == sizeof(question)) {
      const uint32_t kind = LoadLe32(question + CICOMM_HEADER_SIZE);
      const uint8_t how = kind == CAMERA_QUERY_SET_EXPOSURE ? 0 : script_.Byte();
      if (how == 0) continue;
      Bytes record(CAMERA_QUERY_SIZE);
      StoreLe32(record.data(), kind);
      const auto figures = script_.Bytes(how % 8 + 1);
      std::ranges::copy(figures, record.begin() + CAMERA_QUERY_LEVEL_AT);
      const ByteSpan answer = how < kNothingComes ? ByteSpan(record) : figures;
      camera_peer_.SendTo(ntohs(asker.sin_port), sim::CommandPacket(CAMERA_QUERY, answer));
    }
  }

  // --- From the start to the end ---------------------------------------------------------------

  // Prepares the device's files and the daemon's globals, controlled by the first byte of the
  // script.
  void Prepare() {
    // libFuzzer's alarm must not interrupt a connecting client.
    struct sigaction on_alarm = {};
    sigaction(SIGALRM, nullptr, &on_alarm);
    on_alarm.sa_flags |= SA_RESTART;
    sigaction(SIGALRM, &on_alarm, nullptr);
    // Sockets of earlier executions must not accumulate, and a small send buffer fills sooner.
    sim::WriteTextFile("/proc/sys/net/ipv4/tcp_max_tw_buckets", "0");
    sim::WriteTextFile("/proc/sys/net/ipv4/tcp_wmem", "4096 4096 4096");
    const uint8_t how = script_.Byte();
    sim::InstallDevice({.model = mode_.model, .baud_rate = 57600});
    sim::InstallLens({.zoom = (how & 2) != 0 ? 100 : 0,
                      .focus = 200,
                      .sensor = (how & 4) != 0 ? "IMX123" : "AR0230",
                      .antiflicker = (how & 8) != 0 ? "true" : "false"});
    Bytes image((how & 16) != 0 ? MICOM_IMAGE_HEADER_SIZE - 1 : 600);
    for (size_t i = 0; i < image.size(); ++i)
      image[i] = static_cast<uint8_t>(i * 7 + i / 256);
    sim::WriteTextFile(MICOM_FIRMWARE_PATH, Text(image));
    if (image.size() >= MICOM_IMAGE_HEADER_SIZE)
      update_ = UpdatePackets(ByteSpan(image).subspan(MICOM_IMAGE_HEADER_SIZE));

    g_rs232_stop = 0;
    g_rs232_context = {};
    g_rs232_context.trace_level = how & 1;
    new (&g_mfz) MfzState{};
    FUZZ_CHECK(ReadSettings(&g_rs232_settings) == 0);
  }

  // Called at the first pass of the mode.
  void BeginStreams() {
    is_running_ = true;
    const auto unread = from_line_.end() - Pending(g_rs232_context.serial);
    // Each line of the camera information file requires an answer.
    FUZZ_CHECK(std::ssize(g_commands) * I2M_FRAME_SIZE <= unread - from_line_.begin());
    from_line_.erase(from_line_.begin(), unread);
    pass_began_us_ = NowUs();
  }

  void Observe() {
    TakeFromLine();
    read_total_ = ReadTotal();
    NoteAdmissions();
    for (Client& client : clients_)
      TakeFromClient(&client);
    TakeDatagrams();
  }

  // Checks that everything in transit arrives.
  void CheckEnd() {
    FUZZ_CHECK(g_rs232_stop != 0);
    if (is_told_to_stop_) return;
    FUZZ_CHECK(AwaitKernel([this] {
      Observe();
      const auto has_all = [this](const Client& client) {
        const bool is_served = client.IsOpen() && client.is_admitted && !client.has_ended;
        return !is_served || !are_streams_known_ || client.next == read_total_;
      };
      const auto is_through = [](const Sender& sender) {
        return sender.may_lose || sender.arrived == sender.sent;
      };
      return std::ranges::all_of(senders_, is_through) && std::ranges::all_of(clients_, has_all);
    }));
  }

  void CheckCameraInformation() const {
    constexpr const char* kBegins[] = {"echo 'VERSION=", "echo 'MODEL=", "echo 'RESOLUTION="};
    FUZZ_CHECK(g_commands.empty() || mode_.info_lines > 0);
    size_t line = 0;
    for (const std::string& command : g_commands) {
      FUZZ_CHECK(!command.starts_with("echo 'VERSION=15.15'"));  // from HD_NO_VALUE
      FUZZ_CHECK(command.starts_with(kBegins[line]));
      FUZZ_CHECK(
          command.ends_with(line == 0 ? " > /var/nvt/camera.info" : " >> /var/nvt/camera.info"));
      line = (line + 1) % mode_.info_lines;
    }
    FUZZ_CHECK(line == 0);
  }

  const ModeRow& mode_;
  Input script_;
  sim::UdpPeer data_peer_{SERIAL_DATA_PORT};
  sim::UdpPeer camera_peer_{CAMD_QUERY_PORT};
  sim::UdpPeer local_peer_;
  std::optional<sim::PtyLine> line_;
  std::array<Sender, kMarkedClients + 1> senders_;
  Sender* const local_ = &senders_.back();
  std::vector<Client> clients_;
  Bytes from_line_;        // sent by the far end, without bytes read at start-up or lost
  Bytes to_line_;          // received by the far end, not parsed yet
  size_t read_total_ = 0;  // bytes of from_line_ read at the last check
  size_t datagrams_at_ = 0;
  std::vector<MicomPacket> update_;  // the packets of a firmware update
  size_t packets_taken_ = 0;
  int packets_sent_ = 0;
  int sends_of_packet_ = 0;    // of the last packet
  ptrdiff_t acceptances_ = 0;  // acceptance bytes sent
  bool is_running_ = false;    // the first pass has begun
  bool is_told_to_stop_ = false;
  bool are_streams_known_ = true;
  int passes_ = 0;         // since the last event
  int passes_to_run_ = 0;  // before the next one
  int64_t pass_began_us_ = 0;
};

// Indexed by the low nibble of an event's first byte. The high nibble is the number of passes that
// follow; 15: many.
constexpr std::array kEvents = {&ModeWorld::Connect,
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
                                &ModeWorld::WorkerSteps};

void ModeWorld::Act() {
  const uint8_t event = script_.Byte();
  passes_ = 0;
  passes_to_run_ = event >> 4 == 15 ? kPassesOfWork : event >> 4;
  (this->*kEvents[(event & 0x0F) % kEvents.size()])();
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view program = program_invocation_short_name;
  const auto mode = std::ranges::find_if(
      fuzz::kModes, [program](const fuzz::ModeRow& row) { return program.ends_with(row.name); });
  FUZZ_CHECK(mode != std::end(fuzz::kModes));
  fuzz::ModeWorld(*mode, {data, size}).Run();
  return 0;
}
