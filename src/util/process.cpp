#include "util/process.h"

#include <dirent.h>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/regular_file.h"
#include "util/sleep.h"

namespace {

constexpr char kProcPath[] = "/proc";
constexpr int kNotAProcess = -1;

constexpr int kUsPerS = 1'000'000;
constexpr int kMicomResetUs = 2 * kUsPerS;
constexpr int kProcessEndUs = 1 * kUsPerS;
constexpr int kUnmountUs = 100;

// --- Names -------------------------------------------------------------------------------------

struct NameList {
  std::array<std::array<char, CUTIL_LIST_LINE_MAX + 1>, CUTIL_LIST_MAX_NAMES> names;
  size_t count;
};

// One line of a list, truncated to CUTIL_LIST_LINE_MAX characters with its line end.
struct ListLine {
  char text[CUTIL_LIST_LINE_MAX + 1];
  size_t length;  // of the whole line, before truncation
};

// Returns false at the end of the file.
bool ReadLine(FILE* file, ListLine* line) {
  line->length = 0;
  int c = EOF;
  while (c != '\n' && (c = getc(file)) != EOF) {
    if (line->length < CUTIL_LIST_LINE_MAX) line->text[line->length] = static_cast<char>(c);
    ++line->length;
  }
  line->text[std::min<size_t>(line->length, CUTIL_LIST_LINE_MAX)] = '\0';
  return line->length > 0;
}

// Adds the name of one line. Skips lines that are too long or blank.
void AddName(NameList* list, const ListLine& line) {
  const size_t length = strcspn(line.text, "\r\n");
  if (length == 0 || line.length > CUTIL_LIST_LINE_MAX) return;
  if (list->count == list->names.size()) return;
  std::array<char, CUTIL_LIST_LINE_MAX + 1>& name = list->names[list->count++];
  memcpy(name.data(), line.text, length);
  name[length] = '\0';
}

void ReadNames(FILE* file, NameList* list) {
  ListLine line;
  list->count = 0;
  while (ReadLine(file, &line))
    AddName(list, line);
}

bool Matches(const char* command_line, const char* name) {
  return strncmp(command_line, name, strlen(name)) == 0;
}

// --- The process table -------------------------------------------------------------------------

struct Process {
  int pid;
  char command_line[CUTIL_COMMAND_LINE_MAX + 1];  // arguments are separated by NULs
};

int ProcessNumber(const char* entry_name) {
  const bool is_number = entry_name[strspn(entry_name, "0123456789")] == '\0';
  return is_number ? atoi(entry_name) : kNotAProcess;
}

struct CommandLinePath {
  char text[32];
};

CommandLinePath PathOf(int pid) {
  CommandLinePath path;
  snprintf(path.text, sizeof(path.text), "/proc/%d/cmdline", pid);
  return path;
}

// Reads the first line of a process's command line. Returns false if there is none.
bool ReadCommandLine(Process* process) {
  FILE* file = fopen(PathOf(process->pid).text, "re");
  if (file == nullptr) return false;
  const bool is_read = fgets(process->command_line, sizeof(process->command_line), file) != nullptr;
  fclose(file);
  return is_read;
}

// Advances to the next process that may be signalled. Returns false at the end of the table.
bool NextProcess(DIR* table, Process* process) {
  while (const dirent* entry = readdir(table)) {
    process->pid = ProcessNumber(entry->d_name);
    if (process->pid >= CUTIL_FIRST_KILLED_PID && ReadCommandLine(process)) return true;
  }
  return false;
}

void SignalIfListed(const Process& process, const NameList& list, int signal) {
  for (size_t i = 0; i < list.count; ++i) {
    if (!Matches(process.command_line, list.names[i].data())) continue;
    syslog(LOG_INFO, "[CUTIL_KillProcAll] - kill[%s], %d\n", process.command_line, process.pid);
    kill(process.pid, signal);
  }
}

// --- Looking a process up ----------------------------------------------------------------------

// Reads a whole command line, truncated to the buffer. Returns false if it cannot be opened.
bool ReadWholeCommandLine(const char* path, char (&text)[CUTIL_COMMAND_LINE_MAX + 1]) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  size_t used = 0;
  while (used < CUTIL_COMMAND_LINE_MAX) {
    const ssize_t count = read(fd, text + used, CUTIL_COMMAND_LINE_MAX - used);
    if (count <= 0) break;
    used += static_cast<size_t>(count);
  }
  text[used] = '\0';
  close(fd);
  return true;
}

void PrintComparison(const char* name, const char* command_line) {
  printf("_name         : [%s]\n", name);
  printf("buf           : [%s]\n", command_line);
  printf("strlen(_name) : %d\n", static_cast<int>(strlen(name)));
  printf("strlen(buf)   : %d\n", static_cast<int>(strlen(command_line)));
  printf("\n");
}

bool IsProcess(int pid, const char* name, int verbose) {
  const CommandLinePath path = PathOf(pid);
  if (verbose != 0) printf("CUTIL_IsProc 4 : %d : %s\n", pid, path.text);
  char command_line[CUTIL_COMMAND_LINE_MAX + 1];
  if (!ReadWholeCommandLine(path.text, command_line)) {
    printf("CUTIL_IsProc error while open %s\n", path.text);
    return false;
  }
  if (verbose != 0) PrintComparison(name, command_line);
  return Matches(command_line, name);
}

}  // namespace

void CUTIL_RunCommand(const char* format, ...) {
  char command[CUTIL_COMMAND_SIZE] = {};
  va_list values;
  va_start(values, format);
  vsnprintf(command, sizeof(command), format, values);
  va_end(values);
  [[maybe_unused]] const int ignored = system(command);
}

void CUTIL_Reboot() {
  CUTIL_RunCommand("/bin/micom_reset");
  CUTIL_SleepUs(kMicomResetUs);
  CUTIL_KillProcAll(CUTIL_KILL_LIST_PATH, SIGKILL);
  CUTIL_KillProcAll(CUTIL_TERM_LIST_PATH, SIGTERM);
  CUTIL_SleepUs(kProcessEndUs);
  CUTIL_RunCommand("umount /mnt/sd/");
  CUTIL_SleepUs(kUnmountUs);
  CUTIL_RunCommand("umount /mnt/usb/");
  CUTIL_SleepUs(kUnmountUs);
  CUTIL_SleepUs(kUnmountUs);
  // The system now shuts down and sends SIGTERM; with a handler installed it would have to wait.
  signal(SIGTERM, SIG_DFL);
  CUTIL_RunCommand("/sbin/reboot");
  // No watchdog message from here on: if the reboot fails, the service manager restarts the daemon.
  while (true)
    pause();
}

int CUTIL_KillProcAll(const char* list_path, int signal) {
  syslog(LOG_INFO, "[CUTIL_KillProcAll]\n");
  FILE* file = CUTIL_OpenRegular(list_path, 0, CUTIL_SETTINGS_MAX);
  if (file == nullptr) {
    syslog(LOG_INFO, "[CUTIL_KillProcAll] - list open err[%s]\n", list_path);
    return -1;
  }
  NameList list;
  ReadNames(file, &list);
  fclose(file);

  DIR* table = opendir(kProcPath);
  if (table == nullptr) {
    syslog(LOG_INFO, "[CUTIL_KillProcAll] - opendir err[%s]\n", kProcPath);
    return 0;
  }
  Process process;
  while (NextProcess(table, &process))
    SignalIfListed(process, list, signal);
  closedir(table);
  return 0;
}

int CUTIL_KillProcByName(const char* name, int signal) {
  DIR* table = opendir(kProcPath);
  if (table == nullptr) return 0;
  Process process;
  while (NextProcess(table, &process)) {
    if (Matches(process.command_line, name)) kill(process.pid, signal);
  }
  closedir(table);
  return 0;
}

int CUTIL_IsProc(const char* name, int verbose) {
  DIR* table = opendir(kProcPath);
  if (table == nullptr) {
    if (verbose != 0) printf("CUTIL_IsProc error while open /proc\n");
    return -1;
  }
  bool found = false;
  while (!found) {
    const dirent* entry = readdir(table);
    if (entry == nullptr) break;
    if (verbose != 0) printf("CUTIL_IsProc dirp->d_name : %s\n", entry->d_name);
    const int pid = ProcessNumber(entry->d_name);
    found = pid >= CUTIL_FIRST_FOUND_PID && IsProcess(pid, name, verbose);
  }
  closedir(table);
  return found ? 1 : 0;
}
