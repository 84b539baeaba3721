#include "tests/fault/fault_plan.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <sstream>
#include <string_view>

namespace fault {
namespace {

// --- Errors ------------------------------------------------------------------------------------

enum Duration { kOnce, kAlsoLasting };

struct ErrorRow {
  int error;
  Duration duration = kOnce;
};

struct CallRow {
  std::string_view call;
  std::vector<ErrorRow> errors;
};

// What each call may come to, the usual first. Lasting are those that a device can be stuck in.
const std::vector<CallRow>& Errors() {
  static const std::vector<CallRow> rows = {
      {"accept4", {{EMFILE, kAlsoLasting}, {ENOBUFS}, {ECONNABORTED}, {EAGAIN}, {EINTR}}},
      {"access", {{EACCES}}},
      {"bind", {{EADDRINUSE, kAlsoLasting}, {EACCES}}},
      {"calloc", {{ENOMEM, kAlsoLasting}}},
      {"clock_nanosleep", {{EINTR}}},
      {"close", {{EIO}, {EINTR}}},
      {"connect", {{ETIMEDOUT}, {EINTR}, {EINPROGRESS}}},
      {"fchmod", {{EPERM}}},
      {"fclose", {{ENOSPC}, {EIO}}},
      {"fcntl", {{ENOLCK, kAlsoLasting}, {EINTR}, {EDEADLK}}},
      {"fdopen", {{ENOMEM}}},
      {"fflush", {{ENOSPC, kAlsoLasting}, {EIO}}},
      {"fgets", {{EIO, kAlsoLasting}, {FAULT_SHORT}}},
      {"fopen", {{ENOENT, kAlsoLasting}, {EMFILE}, {ENOMEM}, {EACCES}}},
      {"fread", {{EIO}, {FAULT_SHORT}}},
      {"fseek", {{ESPIPE}}},
      {"fstat", {{EIO}}},
      {"fsync", {{EIO, kAlsoLasting}, {ENOSPC}}},
      {"ftell", {{EBADF}}},
      {"fwrite", {{ENOSPC}}},
      {"getaddrinfo", {{EAI_MEMORY}, {EAI_SYSTEM}}},
      {"getc", {{EIO}}},
      {"ioctl", {{EIO, kAlsoLasting}, {EINTR}}},
      {"kill", {{EPERM}}},
      {"listen", {{EADDRINUSE}}},
      {"malloc", {{ENOMEM, kAlsoLasting}}},
      {"mmap", {{ENOMEM, kAlsoLasting}, {EACCES}}},
      {"munmap", {{ENOMEM}}},
      {"open", {{ENOENT, kAlsoLasting}, {EMFILE}, {EACCES}}},
      {"opendir", {{EMFILE}}},
      {"poll", {{ENOMEM, kAlsoLasting}, {EINVAL, kAlsoLasting}, {EINTR}, {FAULT_READY}}},
      {"ppoll", {{ENOMEM, kAlsoLasting}, {EINVAL, kAlsoLasting}, {EINTR}, {FAULT_READY}}},
      {"pthread_create", {{EAGAIN, kAlsoLasting}, {ENOMEM}}},
      {"read", {{EIO, kAlsoLasting}, {FAULT_SHORT, kAlsoLasting}, {EAGAIN, kAlsoLasting}, {EINTR}}},
      {"readdir", {{EBADF}}},
      {"recv", {{ECONNRESET, kAlsoLasting}, {FAULT_SHORT}, {EAGAIN}, {EINTR}, {ENOMEM}}},
      {"recvfrom", {{ENOMEM, kAlsoLasting}, {FAULT_SHORT}, {EAGAIN, kAlsoLasting}, {EINTR}}},
      {"rename", {{ENOSPC, kAlsoLasting}, {EROFS}}},
      {"select", {{EBADF, kAlsoLasting}, {ENOMEM, kAlsoLasting}, {EINTR}, {FAULT_READY}}},
      {"semctl", {{EPERM}, {EINVAL}}},
      {"semget", {{ENOSPC, kAlsoLasting}, {EACCES}, {EEXIST}}},
      {"semop", {{EIDRM, kAlsoLasting}, {EINTR}, {ENOSPC}}},
      {"send", {{EPIPE}, {EAGAIN, kAlsoLasting}, {FAULT_SHORT}, {ECONNRESET}, {EINTR}}},
      {"sendto", {{ENOBUFS, kAlsoLasting}, {EPERM}, {EAGAIN}, {EINTR}}},
      {"setsockopt", {{ENOPROTOOPT}}},
      {"setvbuf", {{ENOMEM}}},
      {"socket", {{EMFILE, kAlsoLasting}, {ENOBUFS}}},
      {"system", {{EAGAIN, kAlsoLasting}, {ENOMEM}}},
      {"tcdrain", {{EIO, kAlsoLasting}, {EINTR}}},
      {"tcflush", {{EIO}}},
      {"tcgetattr", {{EIO}}},
      {"tcsetattr", {{EIO}}},
      {"unlink", {{EROFS}}},
      {"write", {{EIO, kAlsoLasting}, {EAGAIN, kAlsoLasting}, {FAULT_SHORT}, {EINTR}}},
  };
  return rows;
}

const CallRow* RowOf(const std::string& call) {
  const auto row = std::ranges::find(Errors(), call, &CallRow::call);
  return row != Errors().end() ? &*row : nullptr;
}

std::string ErrorName(int error) {
  switch (error) {
    case FAULT_SHORT:
      return "SHORT";
    case FAULT_READY:
      return "READY";
    case FAULT_KILL:
      return "KILL";
    default:
      break;
  }
  const char* name = error > 0 ? strerrorname_np(error) : nullptr;
  return name != nullptr ? name : std::to_string(error);
}

// --- Reactions ---------------------------------------------------------------------------------

struct ReactionRow {
  std::string_view call;
  std::string_view subject;  // what the call's subject contains
  long number;               // of the call; 0 for any
  std::string_view text;     // with "%s" for the error's own text
  Course course = Course::kServes;
  int status = 0;
};

constexpr char kCapabilities[] = "/etc/capabilities.conf";
constexpr char kParameters[] = "/var/nvt/param.dat";
constexpr char kTemporary[] = "/etc/temp.conf";

// In the order of a start; the first that fits counts. Interrupted calls are none of them.
const ReactionRow kReactions[] = {
    {"open", kParameters, 0, "[CMMAP_Init] error open, reason(%s)", Course::kEnds},
    {"fstat", kParameters, 0, "[CMMAP_Init] error open, reason(file shorter", Course::kEnds},
    {"semget", "", 0, "[CMMAP_InitLock] error, reason("},
    {"semctl", "", 1, "[CMMAP_InitLock] error, reason(%s,"},
    {"mmap", kParameters, 0, "[CMMAP_Init] error mmap, reason(%s)", Course::kEnds},
    {"fcntl", kParameters, 1, "[CMMAP_FileLock] error fcntl, reason(%s)"},
    {"semop", "", 1, "[CMMAP_SemLock] error semop, reason(%s, "},
    {"semop", "", 2, "[CMMAP_SemUnlock] error semop, reason(%s, "},
    {"fcntl", kParameters, 2, "[CMMAP_FileUnlock] error fcntl, reason(%s)"},
    {"semctl", "", 2, "[CMMAP_DeinitLock] error semctl, reason(%s)"},
    {"open", kCapabilities, 4, "", Course::kEnds},
    {"fstat", kCapabilities, 3, "", Course::kEnds},
    {"fdopen", kCapabilities, 2, "", Course::kEnds},
    {"malloc", "", 0, "", Course::kMayEnd},
    {"calloc", "", 0, "", Course::kMayEnd},
    {"setvbuf", "", 0, "", Course::kLimps},
    {"fgets", kCapabilities, 2, "", Course::kEnds},
    {"open", "/dev/ttyS1", 5, "", Course::kEnds},
    {"tcsetattr", "", 1, "", Course::kLimps},
    {"socket", "udp", 1, "[RS232] error while open socket", Course::kEnds, 1},
    {"bind", "to:10020", 0, "[RS232] error while bind socket", Course::kEnds, 1},
    {"socket", "udp", 2, "[CICOMM_Init] error, reason(ZSK_OpenLocalUDPSSocket)", Course::kEnds},
    {"setsockopt", "udp", 0, "[CICOMM_Init] error, reason(ZSK_OpenLocalUDPSSocket)", Course::kEnds},
    {"bind", "to:10017", 0, "[ZSK_OpenLocalUDPSSocket] local bind error. exit, ", Course::kEnds},
    {"socket", "tcp", 3, "new [ZSK_ConnectTCPSocket/socket] Error Number : "},
    {"getaddrinfo", "", 0, "new [ZSK_ConnectTCPSocket/getaddrinfo] Error Number : "},
    {"connect", "", 0, "new [ZSK_ConnectTCPSocket/connect] Error Number : "},
    {"socket", "tcp", 4, "[ZSK_BindTCPSocketEx] error while get socket"},
    {"bind", "to:4001", 0, "[ZSK_BindTCPSocketEx] error while bind tcp socket : %s"},
    {"listen", "", 0, "[ZSK_BindTCPSocketEx] error while listen"},
    {"accept4", "", 0, "[CPTZSVR_Accept] error, reason(accept, %s)"},
    {"recv", "tcp", 0, "DISCONNECT : "},
    {"send", "tcp", 0, "[ZSK_SendTCPStream/send] Error Number : "},
    {"recvfrom", "udp:10017", 0, "[CICOMM_Recv] error, reason(recvfrom)"},
    {"sendto", "to:1860", 0, "[ZSK_SendLocalUDPData] : error while send message : %s"},
    {"sendto", "to:10005", 0, "[CICOMM_Send] error, reason(SendTo -1 vs 100)"},
    {"sendto", "to:4100", 0, "[CSYSMGR_SendPacket] : error while send message : %s"},
    {"pthread_create", "", 0, "[CTHREAD_Start] error, reason(pthread_create failed, ",
     Course::kLimps},
    {"fopen", kTemporary, 0, "[CUTIL_SetConfValue] we can't open the file : /etc/temp.conf"},
    {"fwrite", kTemporary, 0, "[CUTIL_SetConfValue] error, reason(rewrite /etc/mfz.conf, %s)"},
    {"fflush", kTemporary, 0, "[CUTIL_SetConfValue] error, reason(rewrite /etc/mfz.conf, %s)"},
    {"fsync", kTemporary, 0, "[CUTIL_SetConfValue] error, reason(rewrite /etc/mfz.conf, %s)"},
    {"fclose", kTemporary, 0, "[CUTIL_SetConfValue] error, reason(rewrite /etc/mfz.conf, %s)"},
    {"rename", "", 0, "fail in saving "},
};

// Whether the error is one that the call's user gives up at.
bool IsHard(const Point& point) {
  const int error = point.error;
  if (point.call.name == "accept4") return error == EMFILE || error == ENOBUFS;
  if (point.call.name == "semget") return error != EEXIST;
  if (point.call.name == "pthread_create") return true;
  if (error == FAULT_SHORT) return point.call.name == "fgets";
  return error != EINTR && error != EAGAIN && error != FAULT_READY;
}

bool Fits(const ReactionRow& row, const Point& point) {
  return row.call == point.call.name && (row.number == 0 || row.number == point.call.number) &&
         point.call.subject.find(row.subject) != std::string::npos;
}

Point PointOf(const Call& call, int error, long times = 1) {
  return {.call = call, .error = error, .times = times};
}

}  // namespace

std::vector<Call> ParseLog(const std::string& text) {
  std::vector<Call> calls;
  std::istringstream lines(text);
  Call call;
  while (lines >> call.name >> call.number >> call.path >> call.subject) {
    call.failed = call.name[0] == '!';
    if (call.failed) call.name.erase(0, 1);
    calls.push_back(call);
  }
  return calls;
}

std::string Point::Name() const {
  return call.name + " " + std::to_string(call.number) + " (" + call.subject + ") " +
         ErrorName(error) + (IsLasting() ? " for good" : "");
}

std::string Point::Text() const {
  return call.name + " " + std::to_string(call.number) + " " + std::to_string(error) + " " +
         std::to_string(times);
}

std::vector<Point> PlanMatrix(const std::vector<Call>& calls) {
  struct Way {
    Call first;
    Call last;
  };
  std::vector<Way> ways;
  std::map<std::string, size_t> places;
  for (const Call& call : calls) {
    const auto [place, is_new] = places.try_emplace(call.name + call.path, ways.size());
    if (is_new) ways.push_back({.first = call, .last = call});
    ways[place->second].last = call;
  }
  std::vector<Point> points;
  for (const Way& way : ways) {
    const CallRow* row = RowOf(way.first.name);
    if (row == nullptr) continue;
    for (const ErrorRow& error : row->errors) {
      points.push_back(PointOf(way.first, error.error));
      if (error.duration == kAlsoLasting) {
        points.push_back(PointOf(way.first, error.error, FAULT_LASTING));
      }
    }
    if (way.last.number == way.first.number) continue;
    points.push_back(PointOf(way.last, row->errors.front().error));
    // Whoever is held by a source that has nothing is held to the end only if no more comes.
    if (std::ranges::find(row->errors, FAULT_READY, &ErrorRow::error) != row->errors.end()) {
      points.push_back(PointOf(way.last, FAULT_READY));
    }
  }
  return points;
}

std::optional<Reaction> ReactionTo(const Point& point) {
  if (!IsHard(point)) return std::nullopt;
  for (const ReactionRow& row : kReactions) {
    if (!Fits(row, point)) continue;
    std::string text(row.text);
    const size_t place = text.find("%s");
    if (place != std::string::npos) text.replace(place, 2, strerror(point.error));
    return Reaction{.text = text, .course = row.course, .status = row.status};
  }
  return std::nullopt;
}

bool MayEndLater(const Point& point, int status) {
  return point.IsLasting() && std::ranges::any_of(kReactions, [&](const ReactionRow& row) {
           return row.course == Course::kEnds && row.call == point.call.name &&
                  row.status == status;
         });
}

}  // namespace fault
