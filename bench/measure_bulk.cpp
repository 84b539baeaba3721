// Bulk: the maximum rate of a stream each way, with every byte checked, and the processor time per
// megabyte.
//
// A pty holds about 8 KiB and refuses the rest, while a real line would block the writer. So at
// most kWindow bytes are in transit at any time, and no contender outruns the pty. Only the last
// case has no such limit. The bench feeds and drains in one thread on its own processor.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "bench/measure.h"
#include "bench/stream.h"

namespace bench {
namespace {

using sim::Clock;

constexpr char kSection[] = "Bulk, every byte checked";
constexpr char kMemorySection[] = "Memory";
constexpr size_t kWindow = 8192;
constexpr double kMegabyte = 1e6;
// Number of pieces fed before the receivers are polled again.
constexpr int kBurst = 16;
constexpr std::chrono::seconds kStall{2};
// Maximum number of bytes that a UART driver delivers at once, and the size of the daemon's reads.
constexpr size_t kLinePiece = 64;

struct Route {
  int from;
  std::vector<int> to;
};

// The total size, the size per call, and the maximum in transit.
struct Load {
  size_t total;
  size_t piece;
  size_t window;
};

// Transfers a stream from one descriptor to one or more others.
class Transfer {
 public:
  Transfer(const Route& route, const Load& load)
      : from_(route.from), load_(load), receivers_(route.to) {}

  // Returns when every receiver has the whole stream. Throws Unmeasured.
  void Run() {
    while (receivers_.Least() < load_.total) {
      Feed();
      const bool may_feed = MayFeed();
      const bool is_ready =
          receivers_.Read(may_feed ? std::chrono::seconds(0) : kStall, is_blocked_ ? from_ : -1);
      if (!is_ready && !may_feed) {
        throw Unmeasured(std::to_string(fed_ - receivers_.Least()) + " of " + std::to_string(fed_) +
                         " bytes lost");
      }
      is_blocked_ = is_blocked_ && !receivers_.IsWritable();
    }
  }

 private:
  size_t Piece() const { return std::min(load_.piece, load_.total - fed_); }
  bool MayFeed() const {
    return fed_ < load_.total && fed_ + Piece() <= receivers_.Least() + load_.window &&
           !is_blocked_;
  }

  void Feed() {
    for (int i = 0; i < kBurst && MayFeed(); ++i) {
      const auto bytes = StreamBytes(fed_, Piece());
      const ssize_t written = write(from_, bytes.data(), bytes.size());
      if (written > 0) fed_ += static_cast<size_t>(written);
      if (written < 0 && errno != EAGAIN) throw Unmeasured("connection lost");
      is_blocked_ = written < 0;
    }
  }

  int from_;
  Load load_;
  Receivers receivers_;
  size_t fed_ = 0;
  bool is_blocked_ = false;
};

// Adds the rate in MB/s and the processor time in ms/MB.
void Record(const std::string& id, const std::string& label, int clients, const Load& load,
            const std::function<Route(const Running&)>& route, Session* session) {
  const std::vector<Figure> figures = {{id + ".rate", kSection, label, "MB/s", true},
                                       {id + ".cpu", kSection, label + ", processor", "ms/MB"}};
  session->Record(clients, figures, [&](Running& running) -> std::vector<double> {
    running.Connect(clients);
    Transfer transfer(route(running), load);
    const double cpu_before = running.Cpu();
    const auto begin = Clock::now();
    transfer.Run();
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const double megabytes = static_cast<double>(load.total) / kMegabyte;
    return {megabytes / seconds, (running.Cpu() - cpu_before) / megabytes * 1000};
  });
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

void RecordMemory(const std::string& id, const std::string& when, Session* session) {
  session->Record(1,
                  {{id + ".rss", kMemorySection, "resident, " + when, "KiB"},
                   {id + ".anonymous", kMemorySection, "anonymous, " + when, "KiB"}},
                  [](const Running& running) -> std::vector<double> {
                    const sim::Memory memory = sim::MemoryOf(running.Pid());
                    return {memory.resident_kib, memory.anonymous_kib};
                  });
}

}  // namespace

void MeasureBulk(const Plan& plan, Session* session) {
  RecordMemory("memory.start", "at start", session);
  for (const ToLineCase& row : kToLine) {
    Record(
        row.id, row.label, 1, {Share(row.total, plan.bulk_share), row.piece, row.window},
        [](const Running& running) {
          return Route{running.Clients()[0], {running.Line()}};
        },
        session);
  }
  for (const ToClientsCase& row : kToClients) {
    Record(
        row.id, row.label, row.clients, {Share(row.total, plan.bulk_share), kLinePiece, kWindow},
        [](const Running& running) {
          return Route{running.Line(), running.Clients()};
        },
        session);
  }
  RecordMemory("memory.bulk", "after the bulk run", session);
}

}  // namespace bench
