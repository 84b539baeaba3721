// Other processes of the device: signalling them by name, running a command, the reboot.
//
// A process is known by its command line: a name matches every process whose program path, as it
// was started, begins with it (/bin/abc matches /bin/abcd too). The low process numbers belong
// to the system and are never touched. Nothing is kept between calls; any thread may call.
#pragma once

// Lists of what to stop before a reboot: one name a line, CUTIL_LIST_LINE_MAX characters at most
// with the line end; longer and blank lines are passed over.
constexpr char CUTIL_KILL_LIST_PATH[] = "/etc/killList";  // stopped at once
constexpr char CUTIL_TERM_LIST_PATH[] = "/etc/termList";  // asked to end
constexpr int CUTIL_LIST_LINE_MAX = 31;
// Names taken from a list; further ones are ignored.
constexpr int CUTIL_LIST_MAX_NAMES = 16;
// Bytes of a command line that are looked at.
constexpr int CUTIL_COMMAND_LINE_MAX = 255;
// Lowest process numbers that are looked at.
constexpr int CUTIL_FIRST_KILLED_PID = 20;
constexpr int CUTIL_FIRST_FOUND_PID = 21;

// A command with its values put in, its NUL included; a longer one is cut.
constexpr int CUTIL_COMMAND_SIZE = 256;

// Runs a command, formatted as by printf, through the shell and waits for its end. Its result is
// ignored.
[[gnu::format(printf, 1, 2)]] void CUTIL_RunCommand(const char* format, ...);

// Resets the camera's microcontroller, stops the processes of both lists, unmounts removable
// storage and reboots the device; pauses for 3 seconds on the way and does not return. A list
// that names this daemon ends it before the reboot. Once the reboot is asked for SIGTERM ends the
// process, whatever handler it had.
[[noreturn]] void CUTIL_Reboot();

// Sends `signal` to every process that a name of the list file `list_path` matches, once for
// each name that does. What it does goes to syslog. Returns 0 (also when the process table cannot
// be read), or -1 when the list cannot be opened or is longer than CUTIL_SETTINGS_MAX.
int CUTIL_KillProcAll(const char* list_path, int signal);

// --- Part of the interface, but not called by the daemon ----------------------------------------

// Sends `signal` to every process that `name` matches. Returns 0, whatever happened.
int CUTIL_KillProcByName(const char* name, int signal);

// Returns 1 when a process that `name` matches runs, 0 when none does, -1 when the process table
// cannot be read. Prints a line on standard output for a command line that cannot be opened; with
// `verbose` not 0 everything that it looks at.
int CUTIL_IsProc(const char* name, int verbose);
