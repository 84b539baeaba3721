#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "tools/commands.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/format.h"
#include "tools/frame_output.h"
#include "tools/frame_texts.h"
#include "tools/frame_words.h"
#include "tools/hex.h"
#include "tools/json.h"
#include "tools/output.h"
#include "tools/parse.h"
#include "tools/processes.h"
#include "tools/unique_fd.h"
#include "tools/usage.h"

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::span<const uint8_t>;

// After this much silence on the line, an incomplete frame is considered cut off.
constexpr std::chrono::milliseconds kQuietAfter{1000};

struct Request {
  std::string protocol = ProtocolName(Protocol::kAuto);
  bool is_raw = false;
  bool is_json = false;
  long count = 0;        // number of datagrams; 0: no limit
  std::string duration;  // validated; "": no limit
};

// --- Output ------------------------------------------------------------------------------------

// Formats a time like the daemon's trace.
std::string TraceTime(const timeval& time) {
  tm local;
  localtime_r(&time.tv_sec, &local);
  return Format("%02d/%02d %02d:%02d:%02d.%6d", local.tm_mon + 1, local.tm_mday, local.tm_hour,
                local.tm_min, local.tm_sec, static_cast<int>(time.tv_usec));
}

// Prints rows of 16 bytes, numbered from `offset`.
void PrintDump(Bytes bytes, size_t offset) {
  constexpr size_t kRow = 16;
  constexpr int kRowWidth = 3 * kRow - 1;
  while (!bytes.empty()) {
    const Bytes row = bytes.first(std::min(bytes.size(), kRow));
    Print(stdout, "  %08zx  %-*s  |%s|\n", offset, kRowWidth, Hex(row).c_str(),
          PlainText(row).c_str());
    offset += row.size();
    bytes = bytes.subspan(row.size());
  }
}

// Prints datagrams, and the frames that their bytes form.
class MonitorView {
 public:
  explicit MonitorView(const Request& request)
      : is_raw_(request.is_raw),
        is_json_(request.is_json),
        decoder_(*ProtocolByName(request.protocol), Direction::kFromDevice) {}

  void Take(Bytes datagram) {
    gettimeofday(&time_, nullptr);
    std::string problem;
    const auto bytes = SerialDataOf(datagram, &problem);
    if (!bytes.has_value()) {
      ShowOther(datagram, problem);
      return;
    }
    ShowData(*bytes);
    offset_ += bytes->size();
    if (!is_raw_) ShowFrames(decoder_.Feed(*bytes));
  }

  // Call this when the line is silent or the input ends.
  void EndFrame() {
    gettimeofday(&time_, nullptr);
    if (!is_raw_) ShowFrames(decoder_.Flush());
  }

 private:
  void ShowData(Bytes bytes) const {
    if (is_json_) {
      const Json object = NewObject("data");
      json_object_object_add(object.get(), "offset", json_object_new_uint64(offset_));
      AddBytes(bytes, object.get());
      PrintJsonLine(object);
      return;
    }
    Print(stdout, "%s  %s\n", TraceTime(time_).c_str(), Count(bytes.size(), "byte").c_str());
    PrintDump(bytes, offset_);
  }

  void ShowOther(Bytes datagram, const std::string& problem) const {
    if (is_json_) {
      const Json object = NewObject("other");
      AddBytes(datagram, object.get());
      json_object_object_add(object.get(), "problem", NewJsonText(problem));
      PrintJsonLine(object);
      return;
    }
    Print(stdout, "%s  invalid serial data datagram: %s\n", TraceTime(time_).c_str(),
          problem.c_str());
    PrintDump(datagram, 0);
  }

  void ShowFrames(const std::vector<ExplainedFrame>& frames) const {
    for (const ExplainedFrame& frame : frames) {
      if (is_json_) {
        const Json object = NewObject("frame");
        AddFrame(frame, object.get());
        PrintJsonLine(object);
      } else {
        Print(stdout, "  %08zx  %s\n", frame.offset, FrameText(frame).c_str());
      }
    }
  }

  // Returns an object with its type and its time of arrival, in seconds since 1970.
  Json NewObject(const char* type) const {
    const std::string digits =
        Format("%lld.%06d", static_cast<long long>(time_.tv_sec), static_cast<int>(time_.tv_usec));
    return OwnJson(
        NewJsonObject({{"type", NewJsonText(type)},
                       {"time", json_object_new_double_s(atof(digits.c_str()), digits.c_str())}}));
  }

  bool is_raw_;
  bool is_json_;
  FrameDecoder decoder_;
  size_t offset_ = 0;  // bytes from the line so far
  timeval time_ = {};
};

// --- Input -------------------------------------------------------------------------------------

int BindDataPort() {
  const std::string port = "UDP port " + std::to_string(SERIAL_DATA_PORT) + " of 127.0.0.1";
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(SERIAL_DATA_PORT);
  if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) return fd;
  const int error = errno;
  if (fd >= 0) close(fd);
  throw Failure(EXIT_STATUS_FAILED,
                error == EADDRINUSE ? port + " is in use: another process receives the serial data"
                                    : "cannot listen on " + port + ": " + strerror(error));
}

// Returns a descriptor that becomes readable when a signal asks the tool to end.
int CatchSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const int fd = signalfd(-1, &signals, SFD_CLOEXEC);
  if (fd < 0)
    throw Failure(EXIT_STATUS_FAILED, std::string("cannot create a signalfd: ") + strerror(errno));
  return fd;
}

// Returns the milliseconds from now to the earlier of two times, for poll: rounded up, -1 for
// never.
int PollTime(std::optional<Clock::time_point> one, std::optional<Clock::time_point> other) {
  if (!one.has_value() || (other.has_value() && *other < *one)) one = other;
  if (!one.has_value()) return -1;
  constexpr int64_t kMost = 1000LL * 60 * 60;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*one - Clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, kMost));
}

// Returns when the count, the time limit or a signal ends it.
void Watch(const Request& request, MonitorView* view) {
  const UniqueFd end_signal(CatchSignals());
  const UniqueFd data(BindDataPort());
  const bool has_daemon = HolderOfPort("udp", RS232_COMMAND_PORT).is_taken;
  Print(stderr, "rs232ctl: listening on UDP port %d of 127.0.0.1%s\n", SERIAL_DATA_PORT,
        has_daemon ? "" : "; rs232d is not running");
  std::optional<Clock::time_point> end;
  if (!request.duration.empty()) end = Clock::now() + *ParseDuration(request.duration);
  std::optional<Clock::time_point> quiet;
  std::vector<uint8_t> datagram(1 << 16);
  for (long taken = 0; request.count == 0 || taken < request.count;) {
    std::array<pollfd, 2> sources = {{{data.Get(), POLLIN, 0}, {end_signal.Get(), POLLIN, 0}}};
    if (poll(sources.data(), sources.size(), PollTime(end, quiet)) < 0) {
      if (errno == EINTR) continue;
      throw Failure(EXIT_STATUS_FAILED, std::string("cannot wait: ") + strerror(errno));
    }
    if (sources[1].revents != 0) return;
    const ssize_t size = recv(data.Get(), datagram.data(), datagram.size(), 0);
    if (size >= 0) {
      view->Take({datagram.data(), static_cast<size_t>(size)});
      ++taken;
      quiet = Clock::now() + kQuietAfter;
    } else if (quiet.has_value() && Clock::now() >= *quiet) {
      view->EndFrame();
      quiet.reset();
    }
    if (end.has_value() && Clock::now() >= *end) return;
  }
}

// On a lens device no datagrams ever arrive.
void WarnOfSilence() {
  const std::string model = DeviceModel();
  if (ModeOfModel(model) != MODE_LENS) return;
  Print(stderr,
        "rs232ctl: warning: this device, %s, sends no serial data; 'rs232d 1 | rs232ctl frames' "
        "shows its line\n",
        model.c_str());
}

void RunMonitor(const Request& request) {
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  WarnOfSilence();
  MonitorView view(request);
  Watch(request, &view);
  view.EndFrame();
}

}  // namespace

void AddMonitorCommand(CLI::App* app) {
  CLI::App* monitor = app->add_subcommand("monitor", "Print the bytes from the serial line");
  const auto request = std::make_shared<Request>();
  monitor
      ->add_option("--protocol", request->protocol,
                   "protocol of the line: " + Joined(ProtocolNames(false)))
      ->type_name("NAME")
      ->check(OneOf(ProtocolNames(false)))
      ->capture_default_str();
  monitor->add_flag("--raw", request->is_raw, "print bytes only");
  monitor->add_flag("--json", request->is_json, "print one JSON object per line");
  monitor->add_option("--count", request->count, "exit after this many datagrams")
      ->transform(NumberFrom(1, INT_MAX))
      ->type_name("N");
  monitor->add_option("--for", request->duration, "exit after this time, e.g. 500ms, 5s, 2m, 1h")
      ->type_name("TIME")
      ->check(CheckDuration);
  monitor->footer(
      "Listens on UDP port 1860 of 127.0.0.1, to which the daemon sends all bytes from the line. "
      "Only one process can listen. Prints each datagram with its time, 16 bytes per row, followed "
      "by the frames that it completes. Exit with Ctrl-C.\n"
      "With a motorized lens (QB-410 to QB-480) the daemon sends no datagrams: use 'rs232d 1 | "
      "rs232ctl frames', which also shows the sent bytes.\n"
      "Examples:\n"
      "  rs232ctl monitor\n"
      "  rs232ctl monitor --json --for 10s");
  monitor->final_callback([request] { RunMonitor(*request); });
}

}  // namespace tools
