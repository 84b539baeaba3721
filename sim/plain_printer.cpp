#include "sim/plain_printer.h"

#include <unistd.h>

namespace sim {
namespace {

// How often the far end is described while it moves.
constexpr milliseconds kReportEvery{500};
// Words that are said again after this long are printed again.
constexpr milliseconds kSaidAgainWithin{200};
// Most of a line of the daemon's that is printed on a terminal.
constexpr size_t kLineShown = 120;

std::string Shortened(const std::string& line) {
  return line.size() <= kLineShown ? line : line.substr(0, kLineShown) + "...";
}

}  // namespace

PlainPrinter::PlainPrinter(FILE* out) : out_(out), is_terminal_(isatty(fileno(out)) != 0) {}

PlainPrinter::~PlainPrinter() {
  FlushWords();
  fflush(out_);
}

void PlainPrinter::Take(DeviceEvent event) {
  switch (event.kind) {
    case EventKind::kNote:
      Print(event.who, event.text);
      break;
    case EventKind::kDaemon:
      FlushWords();
      Print(event.who, is_terminal_ ? Shortened(event.text) : event.text);
      break;
    case EventKind::kWords:
      TakeWords(event.who, event.text);
      break;
  }
}

void PlainPrinter::Observe(const FarEnd& far_end) {
  const auto now = Clock::now();
  if (now - pending_since_ >= kSaidAgainWithin) FlushWords();
  Describe(far_end, now);
  fflush(out_);
}

void PlainPrinter::Describe(const FarEnd& far_end, Clock::time_point now) {
  const bool is_moving = far_end.IsMoving();
  if (!was_observed_) last_description_ = far_end.Describe();
  was_observed_ = true;
  if (!was_moving_ && is_moving) last_report_ = now;
  was_moving_ = is_moving;
  if (is_moving && now - last_report_ < kReportEvery) return;
  const std::string description = far_end.Describe();
  if (description == last_description_) return;
  FlushWords();
  Print(far_end.Name(), description);
  last_description_ = description;
  last_report_ = now;
}

void PlainPrinter::Print(const char* who, const std::string& text) {
  fprintf(out_, "%-6s | %s\n", who, text.c_str());
}

void PlainPrinter::TakeWords(const char* who, const std::string& words) {
  if (words != pending_words_) FlushWords();
  if (pending_count_++ == 0) pending_since_ = Clock::now();
  pending_who_ = who;
  pending_words_ = words;
}

void PlainPrinter::FlushWords() {
  if (pending_count_ == 0) return;
  const std::string times =
      pending_count_ > 1 ? " (" + std::to_string(pending_count_) + " times)" : "";
  Print(pending_who_, pending_words_ + times);
  pending_count_ = 0;
}

}  // namespace sim
