// Bulk: a stream each way as fast as it goes, every byte checked, and the processor time that each
// megabyte costs.
//
// A pty holds about 8 KiB and refuses the rest, where a line would hold the writer back: at most
// kWindow bytes are on their way at any time, so that no contender outruns it. Only the last case
// has no such limit. The bench feeds and drains in one thread on its own processor.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <thread>

#include "bench/measure.h"
#include "bench/stream.h"

namespace bench {
namespace {

using sim::Clock;

constexpr char kSection[] = "Bulk, every byte checked";
constexpr char kMemorySection[] = "Memory";
constexpr size_t kWindow = 8192;
constexpr double kMegabyte = 1e6;
// Pieces that are fed before the receivers are looked at again.
constexpr int kBurst = 16;
constexpr int kStallMs = 2000;
constexpr size_t kReadSize = 65536;
// Bytes that an UART's driver hands over at once, at most, and those of the daemon's reads.
constexpr size_t kLinePiece = 64;

using Write = ssize_t (*)(int fd, const void* bytes, size_t size);
using Read = ssize_t (*)(int fd, void* bytes, size_t size);

ssize_t WriteLine(int fd, const void* bytes, size_t size) {
  return write(fd, bytes, size);
}
ssize_t WriteClient(int fd, const void* bytes, size_t size) {
  return send(fd, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
}
ssize_t ReadLine(int fd, void* bytes, size_t size) {
  return read(fd, bytes, size);
}
ssize_t ReadClient(int fd, void* bytes, size_t size) {
  return recv(fd, bytes, size, MSG_DONTWAIT);
}

struct Route {
  int from;
  std::vector<int> to;
  Write write;
  Read read;
};

// A stream on its way from one descriptor to one or more others.
class Transfer {
 public:
  Transfer(const Route& route, size_t total, size_t piece, size_t window)
      : route_(route), total_(total), piece_(piece), window_(window) {
    for (const int fd : route.to)
      polls_.push_back({.fd = fd, .events = POLLIN, .revents = 0});
    polls_.push_back({.fd = -1, .events = POLLOUT, .revents = 0});
    received_.resize(route.to.size());
  }

  // Returns when all have everything. Throws Unmeasured.
  void Run() {
    while (Slowest() < total_) {
      Feed();
      const bool may_feed = fed_ < total_ && HasRoom() && !is_blocked_;
      polls_.back().fd = is_blocked_ ? route_.from : -1;
      if (poll(polls_.data(), polls_.size(), may_feed ? 0 : kStallMs) == 0 && !may_feed) {
        throw Unmeasured(std::to_string(fed_ - Slowest()) + " of " + std::to_string(fed_) +
                         " bytes lost");
      }
      is_blocked_ = is_blocked_ && polls_.back().revents == 0;
      Drain();
    }
  }

 private:
  size_t Slowest() const { return *std::min_element(received_.begin(), received_.end()); }
  size_t Piece() const { return std::min(piece_, total_ - fed_); }
  bool HasRoom() const { return fed_ + Piece() <= Slowest() + window_; }

  void Feed() {
    for (int i = 0; i < kBurst && fed_ < total_ && HasRoom() && !is_blocked_; ++i) {
      const auto bytes = StreamBytes(fed_, Piece());
      const ssize_t written = route_.write(route_.from, bytes.data(), bytes.size());
      if (written > 0) fed_ += static_cast<size_t>(written);
      if (written < 0 && errno != EAGAIN) throw Unmeasured("the connection ends");
      is_blocked_ = written < 0;
    }
  }

  void Drain() {
    for (size_t i = 0; i < received_.size(); ++i) {
      if (polls_[i].revents == 0) continue;
      const ssize_t count = route_.read(polls_[i].fd, buffer_.data(), buffer_.size());
      if (count <= 0) throw Unmeasured("the connection ends");
      CheckStream(received_[i], {buffer_.data(), static_cast<size_t>(count)});
      received_[i] += static_cast<size_t>(count);
    }
  }

  const Route& route_;
  size_t total_;
  size_t piece_;
  size_t window_;
  size_t fed_ = 0;
  bool is_blocked_ = false;
  std::vector<size_t> received_;
  std::vector<pollfd> polls_;
  std::array<uint8_t, kReadSize> buffer_;
};

// Megabytes a second, and processor seconds a megabyte.
std::vector<double> Run(const Route& route, size_t total, size_t piece, size_t window,
                        const Running& running) {
  const double cpu_before = running.Cpu();
  const auto begin = Clock::now();
  Transfer(route, total, piece, window).Run();
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  const double megabytes = static_cast<double>(total) / kMegabyte;
  return {megabytes / seconds, (running.Cpu() - cpu_before) / megabytes * 1000};
}

std::vector<Figure> Pair(const std::string& id, const std::string& label) {
  return {{id + ".rate", kSection, label, "MB/s", Better::kMore},
          {id + ".cpu", kSection, label + ", processor", "ms/MB", Better::kLess}};
}

// --- Cases -------------------------------------------------------------------------------------

struct ToLineCase {
  const char* id;
  const char* label;
  size_t piece;
  size_t total;
  size_t window;
};

constexpr std::array<ToLineCase, 5> kToLine = {{
    {"bulk.to_line.1b", "client to line, 1 byte a send", 1, 1 << 16, kWindow},
    {"bulk.to_line.7b", "client to line, 7 bytes a send", 7, 1 << 18, kWindow},
    {"bulk.to_line.256b", "client to line, 256 bytes a send", 256, 1 << 21, kWindow},
    {"bulk.to_line.4096b", "client to line, 4096 bytes a send", 4096, 1 << 22, kWindow},
    {"bulk.to_line.all", "client to line, 1 MiB in one piece", 1 << 20, 1 << 20, 1 << 20},
}};

struct ToClientsCase {
  const char* id;
  const char* label;
  int clients;
  size_t total;
};

constexpr std::array<ToClientsCase, 2> kToClients = {{
    {"bulk.to_client.1", "line to client, 1 client", 1, 1 << 21},
    {"bulk.to_client.10", "line to each of 10 clients", kManyClients, 1 << 19},
}};

size_t Share(size_t total, double share) {
  return static_cast<size_t>(static_cast<double>(total) * share);
}

void RecordMemory(const char* id, const char* label, Session* session) {
  session->Record({{std::string(id) + ".rss", kMemorySection, std::string("resident, ") + label,
                    "KiB", Better::kLess},
                   {std::string(id) + ".anonymous", kMemorySection,
                    std::string("anonymous, ") + label, "KiB", Better::kLess}},
                  [](Running& running) -> std::vector<double> {
                    const Memory memory = MemoryOf(running.Pid());
                    return {memory.rss_kib, memory.anonymous_kib};
                  });
}

}  // namespace

void MeasureBulk(const Plan& plan, Session* session) {
  RecordMemory("memory.start", "at start", session);
  for (const ToLineCase& row : kToLine) {
    session->Record(Pair(row.id, row.label), [&](Running& running) {
      running.Connect(1);
      const Route route = {
          running.Clients()[0]->Fd(), {running.Line().FarEnd()}, WriteClient, ReadLine};
      const size_t total = Share(row.total, plan.bulk_share);
      return Run(route, total, row.piece, row.window, running);
    });
  }
  for (const ToClientsCase& row : kToClients) {
    session->Record(row.clients, Pair(row.id, row.label), [&](Running& running) {
      running.Connect(row.clients);
      Route route = {running.Line().FarEnd(), {}, WriteLine, ReadClient};
      for (const auto& client : running.Clients())
        route.to.push_back(client->Fd());
      return Run(route, Share(row.total, plan.bulk_share), kLinePiece, kWindow, running);
    });
  }
  RecordMemory("memory.bulk", "after the bulk run", session);
}

}  // namespace bench
