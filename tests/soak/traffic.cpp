#include "tests/soak/traffic.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <numeric>

#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "sim/far_end_models.h"
#include "sim/lens_micom.h"

namespace soak {
namespace {

using sim::Clock;
using sim::milliseconds;

// Bytes that may be on their way: all ways together fit the pty's 8 KiB, and the datagrams the
// smallest receive buffer that a system has.
constexpr uint64_t kWindow = 1024;
constexpr uint64_t kFeedWindow = 2048;
constexpr int kFeedMin = 24;
constexpr int kFeedMax = 200;
constexpr int kDatagramMin = 40;
constexpr int kDatagramMax = 400;
constexpr int kClientMax = 300;
constexpr size_t kMostFrames = 6;

// Mean time between two sends, milliseconds.
constexpr int kFeedEvery = 20;
constexpr int kBurstEvery = 2;
constexpr int kClientEvery = 25;  // of any client
// A pass that moves a lens takes tenths of a second, and serves one client: the first that sent.
constexpr int kLensClientEvery = 400;
constexpr int kDatagramEvery = 80;
constexpr int kCommandEvery = 400;

constexpr int kPtyRead = 4096;

// Negative where bytes came twice.
long RecordsBetween(uint64_t before, uint64_t after) {
  return static_cast<long>(after / kRecordSize) - static_cast<long>(before / kRecordSize);
}

std::string Number(uint64_t number) {
  return std::to_string(number);
}

}  // namespace

void ResetConnection(sim::PtzClient* client) {
  const linger at_once = {.l_onoff = 1, .l_linger = 0};
  setsockopt(client->Fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  client->Close();
}

Traffic::Traffic(const Mode& mode, uint32_t seed, Report* report, const Shim* shim)
    : mode_(mode), report_(report), shim_(shim), random_(seed), data_port_(SERIAL_DATA_PORT) {
  config_.model = mode.model;
  config_.baud_rate = 115200;
  for (int i = 0; i < kWays; ++i)
    ways_.emplace_back(i);
  MakeFarEnd();
}

void Traffic::MakeFarEnd() {
  camera_.reset();
  far_end_.reset();
  // A head would answer into the numbered bytes.
  if (sim::KindOfModel(mode_.model) == sim::FarEndKind::kPtzHead) return;
  far_end_ = sim::MakeFarEnd(mode_.model, line_, Clock::now());
  far_end_->on_answer = [this](std::span<const uint8_t> bytes) { line_.Send(bytes); };
  camera_ = sim::MakeCamera(mode_.model, *far_end_);
  if (camera_ == nullptr) return;
  // Bytes on a pty go through a worker of the kernel, which may take its time.
  static_cast<sim::LensMicom*>(far_end_.get())->is_line_empty = [this] {
    return taken_ >= shim_->Written();
  };
}

// --- Sending -----------------------------------------------------------------------------------

bool Traffic::IsDue(Time* next, int every_ms) {
  const auto now = Clock::now();
  if (now < *next) return false;
  *next = now + milliseconds(Roll(0, 2 * every_ms));
  return true;
}

void Traffic::Generate() {
  if (mode_.feeds && IsDue(&next_feed_, is_burst_ ? kBurstEvery : kFeedEvery)) Feed();
  if (IsDue(&next_client_, mode_.feeds ? kClientEvery : kLensClientEvery)) {
    SendByClient(Roll(0, kClients - 1), At(Roll(1, kClientMax)));
  }
  if (IsDue(&next_datagram_, kDatagramEvery)) SendDatagram();
  if (IsDue(&next_command_, kCommandEvery)) SendCommand();
}

void Traffic::Feed() {
  if (fed_.sent - fed_.check.Place() > kFeedWindow) return;
  const auto bytes = SequenceBytes(0, fed_.sent, At(Roll(kFeedMin, kFeedMax)));
  const ssize_t taken = write(line_.FarEnd(), bytes.data(), bytes.size());
  if (taken > 0) fed_.sent += static_cast<uint64_t>(taken);
}

void Traffic::SendByClient(int client, size_t size) {
  Way& way = ways_[At(client)];
  auto& sender = clients_[At(client)];
  if (!sender.has_value() || sender->is_leaving) return;
  if (way.sent - way.check.Place() > kWindow) return;
  const auto bytes = SequenceBytes(client, way.sent, size);
  const ssize_t taken =
      send(sender->socket.Fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (taken > 0) way.sent += static_cast<uint64_t>(taken);
}

void Traffic::SendDatagram() {
  Way& way = ways_[kDatagrams];
  if (way.sent - way.check.Place() > kWindow) return;
  const auto bytes = SequenceBytes(kDatagrams, way.sent, At(Roll(kDatagramMin, kDatagramMax)));
  sender_.SendTo(config_.udp_port, sim::DaemonDatagram(RS232_UDP_WRITE, bytes));
  way.sent += bytes.size();
}

void Traffic::SendControl(const CameraControl& control) {
  sender_.SendTo(RS232_COMMAND_PORT, sim::CameraControlPacket(control));
}

void Traffic::SendCommand() {
  // A daemon that is kept busy by a lens takes datagrams as little as commands.
  if (awaited_.size() > kMostFrames || !IsWaySettled(kDatagrams)) return;
  const Command command = AnyCommand(mode_, &random_);
  auto not_before = Clock::now();
  for (const CommandFrame& frame : command.frames) {
    not_before += frame.after;
    awaited_.push_back({.bytes = frame.bytes, .not_before = not_before});
  }
  SendControl(command.control);
}

void Traffic::SendHostile(size_t size) {
  Way& way = ways_[kDatagrams];
  if (way.check.Place() < hostile_until_) return;
  sender_.SendTo(config_.udp_port, HostileDatagram(&random_, size));
  sender_.SendTo(RS232_COMMAND_PORT, HostilePacket(&random_, size));
  report_->Count().hostile += 2;
  SendDatagram();
  hostile_until_ = way.sent;
}

// --- Clients -----------------------------------------------------------------------------------

void Traffic::Connect(int client) {
  // Whatever the daemon has sent as a datagram, it has sent to its clients before.
  const uint64_t low = fed_.check.Place();
  auto& place = clients_[At(client)];
  place.emplace(config_.ptz_port);
  place->line.ExpectWithin(low, UINT64_MAX);
  ++report_->Count().connected;
}

void Traffic::Shutdown(int client) {
  if (HasLeft(client)) return;
  shutdown(clients_[At(client)]->socket.Fd(), SHUT_WR);
  clients_[At(client)]->is_leaving = true;
}

void Traffic::Reset(int client) {
  if (!HasLeft(client)) ResetConnection(&clients_[At(client)]->socket);
  Drop(client);
}

void Traffic::DropAll() {
  for (auto& client : clients_)
    client.reset();
}

int Traffic::Connected() const {
  return static_cast<int>(
      std::ranges::count_if(clients_, [](const auto& client) { return client.has_value(); }));
}

// From when on a client must get everything: the daemon has read from it.
void Traffic::NoteServed(int way) {
  if (way >= kClients) return;
  auto& client = clients_[At(way)];
  if (!client.has_value() || client->is_served) return;
  client->is_served = true;
  client->line.ExpectUpTo(fed_.sent);
}

void Traffic::TakeClient(int index) {
  auto& client = clients_[At(index)];
  if (!client.has_value()) return;
  std::array<uint8_t, kPtyRead> bytes;
  const ssize_t count = recv(client->socket.Fd(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  const std::string who = "client " + std::to_string(index);
  if (count <= 0) {
    if (!client->is_leaving) report_->Violation(who, "a connection", "its end");
    client.reset();
    return;
  }
  if (!mode_.feeds || client->is_leaving) return;
  const bool was_located = client->line.IsLocated();
  const uint64_t before = client->line.Place();
  Wrong("line to " + who, client->line.Take({bytes.data(), static_cast<size_t>(count)}));
  if (was_located) report_->Count().line_to_clients += RecordsBetween(before, client->line.Place());
}

// --- Receiving ---------------------------------------------------------------------------------

void Traffic::Wrong(const std::string& what, const std::string& deviation) {
  if (!deviation.empty()) report_->Violation(what, "the next byte", deviation);
}

void Traffic::TakeData() {
  std::array<uint8_t, kPtyRead> datagram;
  ssize_t length = 0;
  while ((length = recv(data_port_.Fd(), datagram.data(), datagram.size(), MSG_DONTWAIT)) >= 0) {
    last_data_ = Clock::now();
    const auto bytes = sim::DecodeSerialData({datagram.data(), static_cast<size_t>(length)});
    if (is_starting_) {
      start_bytes_ += bytes.has_value() ? bytes->size() : 0;
      continue;
    }
    if (!bytes.has_value()) {
      report_->Violation("datagram", "serial data",
                         Number(static_cast<uint64_t>(length)) + " bytes");
      continue;
    }
    const uint64_t before = fed_.check.Place();
    Wrong("line to datagrams", fed_.check.Take(*bytes));
    report_->Count().line_to_data += RecordsBetween(before, fed_.check.Place());
  }
}

void Traffic::TakeFrame() {
  const sim::Bytes frame = std::exchange(frame_, {});
  if (is_starting_) return;
  ++report_->Count().frames;
  if (!mode_.feeds) {
    const unsigned sum = std::accumulate(frame.begin(), frame.end() - 1, 0U);
    if ((sum & 0xFF) != frame.back()) {
      report_->Violation("frame", "its checksum " + Number(sum & 0xFF), sim::Hex(frame));
    }
    return;
  }
  if (awaited_.empty()) {
    report_->Violation("frame", "none", sim::Hex(frame));
    return;
  }
  const AwaitedFrame awaited = awaited_.front();
  awaited_.pop_front();
  const auto early = std::chrono::duration_cast<milliseconds>(awaited.not_before - Clock::now());
  if (frame != awaited.bytes) {
    report_->Violation("frame", sim::Hex(awaited.bytes), sim::Hex(frame));
  } else if (early.count() > 0) {
    report_->Violation("frame", "its wait", std::to_string(early.count()) + " ms less");
  }
}

void Traffic::TakeByte(uint8_t byte) {
  if (!frame_.empty() || byte == mode_.frame_sync) {
    frame_.push_back(byte);
    if (frame_.size() == mode_.frame_size) TakeFrame();
    return;
  }
  const int index = byte / kAlphabetSize;
  if (index < kWays) {
    Way& way = ways_[At(index)];
    const uint64_t before = way.check.Place();
    Wrong(
        index == kDatagrams ? "datagrams to line" : "client " + std::to_string(index) + " to line",
        way.check.Take({&byte, 1}));
    NoteServed(index);
    Counters& count = report_->Count();
    long& records = index == kDatagrams ? count.datagrams_to_line : count.clients_to_line;
    records += RecordsBetween(before, way.check.Place());
  } else if (byte < kNoiseFirst || byte > kNoiseLast) {
    report_->Violation("line", "a byte that was sent", sim::Hex({&byte, 1}));
  }
}

void Traffic::TakeLine() {
  std::array<uint8_t, kPtyRead> bytes;
  const ssize_t count = read(line_.FarEnd(), bytes.data(), bytes.size());
  if (count <= 0) return;
  taken_ += count;
  const std::span<const uint8_t> came(bytes.data(), static_cast<size_t>(count));
  if (far_end_ != nullptr) far_end_->Feed(came, Clock::now());
  for (const uint8_t byte : came)
    TakeByte(byte);
}

void Traffic::Pump() {
  std::array<pollfd, kClients + 3> sources;
  for (size_t i = 0; i < kClients; ++i) {
    const int fd = clients_[i].has_value() ? clients_[i]->socket.Fd() : -1;
    sources[i] = {.fd = fd, .events = POLLIN, .revents = 0};
  }
  // A line without its other end is ready for ever.
  sources[kClients] = {.fd = line_.FarEnd(), .events = POLLIN, .revents = 0};
  sources[kClients + 1] = {.fd = data_port_.Fd(), .events = POLLIN, .revents = 0};
  sources[kClients + 2] = {
      .fd = camera_ != nullptr ? camera_->Fd() : -1, .events = POLLIN, .revents = 0};
  constexpr int kTickMs = 1;
  poll(sources.data(), sources.size(), kTickMs);
  if (line_.FarEnd() >= 0) TakeLine();
  if (far_end_ != nullptr) far_end_->Tick(Clock::now());
  if (camera_ != nullptr) camera_->Serve(Clock::now());
  for (int i = 0; i < kClients; ++i)
    TakeClient(i);
  TakeData();
  // Syslog would make the daemon wait once nobody reads it.
  std::array<char, 1024> message;
  while (recv(syslog_.Fd(), message.data(), message.size(), MSG_DONTWAIT) > 0) {
  }
  if (is_flowing_) Generate();
}

// --- Whether everything is there ---------------------------------------------------------------

bool Traffic::IsWaySettled(int way) const {
  return ways_[At(way)].check.IsLocated() && ways_[At(way)].check.Place() == ways_[At(way)].sent;
}

bool Traffic::IsSettled() const {
  for (int i = 0; i < kWays; ++i) {
    if (!IsWaySettled(i)) return false;
  }
  const auto has_all = [this](const auto& client) {
    if (!client.has_value() || !client->is_served || client->is_leaving || !mode_.feeds)
      return true;
    const bool has_none =
        !client->line.IsLocated() && client->line.High() + kRecordSize * 2 >= fed_.sent;
    return has_none || (client->line.IsLocated() && client->line.Place() == fed_.sent);
  };
  return awaited_.empty() && fed_.check.IsLocated() && fed_.check.Place() == fed_.sent &&
         std::ranges::all_of(clients_, has_all);
}

void Traffic::ReportUnsettled() {
  const auto tell = [this](const std::string& what, uint64_t sent, const SequenceCheck& check) {
    if (check.IsLocated() && check.Place() == sent) return;
    report_->Violation(what, Number(sent) + " bytes",
                       check.IsLocated() ? Number(check.Place()) : "no whole record");
  };
  for (int i = 0; i < kWays; ++i)
    tell("way " + std::to_string(i) + " to line", ways_[At(i)].sent, ways_[At(i)].check);
  tell("line to datagrams", fed_.sent, fed_.check);
  for (int i = 0; i < kClients; ++i) {
    const auto& client = clients_[At(i)];
    if (!client.has_value() || !client->is_served || !mode_.feeds) continue;
    tell("line to client " + std::to_string(i), fed_.sent, client->line);
  }
  if (!awaited_.empty()) {
    report_->Violation("frames",
                       Number(awaited_.size()) + " more, first " + sim::Hex(awaited_.front().bytes),
                       "none");
  }
}

void Traffic::Forget(int client) {
  Way& way = ways_[At(client)];
  way.sent = NextRecord(way.sent);
  way.check.ExpectPlace(way.sent);
}

void Traffic::Forget() {
  for (int i = 0; i < kWays; ++i)
    Forget(i);
  fed_.sent = NextRecord(fed_.sent);
  fed_.check.ExpectPlace(fed_.sent);
  for (auto& client : clients_) {
    if (client.has_value()) client->line.ExpectPlace(fed_.sent);
  }
  awaited_.clear();
  frame_.clear();
  hostile_until_ = 0;
}

}  // namespace soak
