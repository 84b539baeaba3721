#include "sim/plain_printer.h"

#include <unistd.h>

#include <utility>

#include "sim/terminal.h"

namespace sim {
namespace {

// Interval of the reports on a moving far end.
constexpr milliseconds kReportEvery{500};
// Repetitions within this time are counted instead of printed.
constexpr milliseconds kSaidAgainWithin{200};
// Maximum length of a line of the daemon on a terminal.
constexpr size_t kLineShown = 120;

}  // namespace

PlainPrinter::PlainPrinter(FILE* out) : out_(out), is_terminal_(isatty(fileno(out)) != 0) {}

PlainPrinter::~PlainPrinter() {
  FlushWords();
  fflush(out_);
}

void PlainPrinter::Take(DeviceEvent event) {
  if (event.kind == EventKind::kWords) {
    if (event.text != pending_.text) FlushWords();
    if (pending_count_++ == 0) pending_since_ = Clock::now();
    pending_ = std::move(event);
    return;
  }
  if (event.kind == EventKind::kDaemon) {
    FlushWords();
    if (is_terminal_ && event.text.size() > kLineShown) {
      event.text.replace(kLineShown, std::string::npos, "...");
    }
  }
  const bool is_dim = is_terminal_ && AllowsColors() && IsPortProbe(event.text);
  Print(event.who, is_dim ? "\x1B[2m" + event.text + "\x1B[0m" : event.text);
}

void PlainPrinter::Observe(const FarEnd& far_end) {
  const auto now = Clock::now();
  if (now - pending_since_ >= kSaidAgainWithin) FlushWords();
  const std::string description = far_end.Describe();
  const bool is_moving = far_end.IsMoving();
  if (last_description_.empty()) last_description_ = description;
  if (is_moving && !std::exchange(was_moving_, is_moving)) last_report_ = now;
  was_moving_ = is_moving;
  const bool is_due = !is_moving || now - last_report_ >= kReportEvery;
  if (is_due && description != last_description_) {
    FlushWords();
    Print(far_end.Name(), description);
    last_description_ = description;
    last_report_ = now;
  }
  fflush(out_);
}

void PlainPrinter::Print(const char* who, const std::string& text) {
  fprintf(out_, "%-6s | %s\n", who, text.c_str());
}

void PlainPrinter::FlushWords() {
  if (pending_count_ == 0) return;
  const std::string times =
      pending_count_ > 1 ? " (" + std::to_string(pending_count_) + " times)" : "";
  Print(pending_.who, pending_.text + times);
  pending_count_ = 0;
}

}  // namespace sim
