// How the preloaded library is told what is to fail, and what it writes down.
#pragma once

// Variable of its environment: "CALL PATH NTH ERROR LASTING". The NTH call of CALL on this way
// through the program ends with ERROR, and where LASTING is 1 so does every later call of CALL.
// "* 0 0 0 0" lets none fail, and all be written down.
constexpr char FAULT_POINT[] = "RS232_FAULT";

// A line each for the call that failed first, or for all: "CALL NUMBER PATH SUBJECT". NUMBER counts
// the calls of CALL; PATH tells ways through the program apart; SUBJECT is a file, "udp", "tcp", a
// port or a word.
constexpr char FAULT_LOG[] = "/dev/.world/calls.log";

// Errors that are no errno.
enum FaultError : int {
  FAULT_SHORT = 1000,  // a transfer of nothing, or of half of what was asked for
  FAULT_READY,         // a wait that says that everything is ready
  FAULT_KILL,          // SIGKILL in place of the call
};

// Added to an error in the table of calls: also for good.
constexpr int FAULT_LASTS = 0x1000;
