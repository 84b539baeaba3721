#include "tests/fault/fault_plan.h"

#include <netdb.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <sstream>

#include "sim/device.h"

namespace fault {
namespace {

#define FAULT(name, subject, failure, ...) {#name, {__VA_ARGS__}},
const std::map<std::string, std::vector<int>> kErrors = {
#include "tests/fault/fault_calls.h"
};

struct ReactionRow {
  std::string call;
  std::string subject;  // part of the call's subject
  long number;          // of the call; 0: any
  Reaction reaction;
};

// Failures after which the daemon need not continue to serve, in the order of a start. The first
// match applies.
const std::vector<ReactionRow> kReactions = {
    {"open", "/var/nvt/param.dat", 0, {Course::kEnds}},
    {"fstat", "/var/nvt/param.dat", 0, {Course::kEnds}},
    {"mmap", "/var/nvt/param.dat", 0, {Course::kEnds}},
    {"open", "/etc/capabilities.conf", 4, {Course::kEnds}},
    {"fstat", "/etc/capabilities.conf", 6, {Course::kEnds}},
    {"fdopen", "/etc/capabilities.conf", 2, {Course::kEnds}},
    {"malloc", "", 0, {Course::kMayEnd}},
    {"calloc", "", 0, {Course::kMayEnd}},
    {"setvbuf", "", 0, {Course::kRunsLame}},
    {"fgets", "/etc/capabilities.conf", 2, {Course::kEnds}},
    {"open", "/dev/ttyS1", 5, {Course::kEnds}},
    {"tcsetattr", "", 1, {Course::kRunsLame}},
    {"socket", "udp", 1, {Course::kEnds, 1}},
    {"bind", "to:10020", 0, {Course::kEnds, 1}},
    {"socket", "udp", 2, {Course::kEnds}},
    {"setsockopt", "udp", 1, {Course::kEnds}},
    {"bind", "to:10017", 0, {Course::kEnds}},
    {"pthread_create", "", 0, {Course::kRunsLame}},
};

}  // namespace

std::vector<Call> ReadLog() {
  std::vector<Call> calls;
  std::map<std::string, long> on_path;
  std::istringstream lines(sim::ReadTextFile(FAULT_LOG));
  Call call;
  while (lines >> call.name >> call.number >> call.path) {
    std::getline(lines.ignore(), call.subject);
    call.nth = ++on_path[call.name + call.path];
    calls.push_back(call);
  }
  return calls;
}

std::string Point::Name() const {
  const char* name = error == FAULT_SHORT   ? "SHORT"
                     : error == FAULT_READY ? "READY"
                     : error == FAULT_KILL  ? "KILL"
                                            : strerrorname_np(error);
  return call.name + " " + std::to_string(call.number) + " (" + call.subject + ") " +
         (name != nullptr ? name : std::to_string(error)) + (is_lasting ? " for good" : "");
}

std::string Point::Text() const {
  return call.name + " " + call.path + " " + std::to_string(call.nth) + " " +
         std::to_string(error) + (is_lasting ? " 1" : " 0");
}

std::vector<Point> PlanMatrix(const std::vector<Call>& calls) {
  std::map<std::string, Call> last;
  for (const Call& call : calls)
    last[call.name + call.path] = call;
  std::vector<Point> points;
  for (const Call& call : calls) {
    if (call.nth != 1) continue;
    const auto& errors = kErrors.at(call.name);
    const Call& end = last[call.name + call.path];
    for (const int marked : errors) {
      const bool lasts = marked > FAULT_LASTS;
      const int error = lasts ? marked - FAULT_LASTS : marked;
      points.push_back({call, error});
      if (lasts) points.push_back({call, error, true});
      // A false readiness blocks the daemon to the end only if no more input follows, so it is also
      // injected into the last call.
      const bool also_last = marked == errors.front() || error == FAULT_READY;
      if (also_last && end.nth != 1) points.push_back({end, error});
    }
  }
  return points;
}

Reaction ReactionTo(const Point& point) {
  // The daemon retries after these errors, with two exceptions.
  const int error = point.error;
  const bool is_soft =
      error == EINTR || error == EAGAIN || error == FAULT_SHORT || error == FAULT_READY;
  if (is_soft && point.call.name != "fgets" && point.call.name != "pthread_create") return {};
  Reaction later;
  for (const auto& [call, subject, number, reaction] : kReactions) {
    if (call != point.call.name) continue;
    const bool fits = (number == 0 || number == point.call.number) &&
                      point.call.subject.find(subject) != std::string::npos;
    if (fits) return reaction;
    if (point.is_lasting) later = {.course = Course::kMayEnd, .status = reaction.status};
  }
  return later;
}

}  // namespace fault
