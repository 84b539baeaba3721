// Other processes of the device: signal them by name, run a command, reboot.
//
// A process is identified by its command line: a name matches every process whose program path, as
// started, begins with it (/bin/abc matches /bin/abcd too). Low process numbers belong to the
// system and are never signalled. Keeps no state between calls; any thread may call.
#pragma once

// Lists of processes to stop before a reboot. One name per line, at most CUTIL_LIST_LINE_MAX
// characters with the line end; longer and blank lines are skipped.
constexpr char CUTIL_KILL_LIST_PATH[] = "/etc/killList";  // sent SIGKILL
constexpr char CUTIL_TERM_LIST_PATH[] = "/etc/termList";  // sent SIGTERM
constexpr int CUTIL_LIST_LINE_MAX = 31;
// Names read from a list; any further ones are ignored.
constexpr int CUTIL_LIST_MAX_NAMES = 16;
// Bytes of a command line that are compared.
constexpr int CUTIL_COMMAND_LINE_MAX = 255;
// Lowest process ids that may be signalled, and that CUTIL_IsProc examines.
constexpr int CUTIL_FIRST_KILLED_PID = 20;
constexpr int CUTIL_FIRST_FOUND_PID = 21;

// Longest formatted command, NUL included; longer ones are truncated.
constexpr int CUTIL_COMMAND_SIZE = 256;

// Formats a command as printf does, runs it in the shell and waits until it ends. Ignores its
// result.
[[gnu::format(printf, 1, 2)]] void CUTIL_RunCommand(const char* format, ...);

// Resets the camera's microcontroller, stops the processes of both lists, unmounts removable
// storage and reboots the device. Pauses for 3 seconds in total and does not return. If the
// kill list names this daemon, it ends before the reboot; if only the term list names it, the
// reboot continues. Restores the default action of SIGTERM just before the reboot command; SIGTERM
// then ends the process.
[[noreturn]] void CUTIL_Reboot();

// Sends `signal` to every process that matches a name in the list file `list_path`, once for each
// matching name, and logs to syslog. Returns 0, also if the process table cannot be read, or -1 if
// the list cannot be opened, is not a regular file or exceeds CUTIL_SETTINGS_MAX.
int CUTIL_KillProcAll(const char* list_path, int signal);

// --- Interface functions that the daemon does not call ------------------------------------------

// Sends `signal` to every process that `name` matches. Always returns 0.
int CUTIL_KillProcByName(const char* name, int signal);

// Returns 1 if a process that `name` matches is running, 0 if not, -1 if the process table cannot
// be read. Prints a line on standard output for each command line that cannot be opened; with a
// non-zero `verbose` it prints everything it examines.
int CUTIL_IsProc(const char* name, int verbose);
