// The interface of the preloaded library: its plan and its log.
#pragma once

// Environment variable "CALL PATH NTH ERROR LASTING": the NTH call of CALL with the call path PATH
// fails with ERROR; if LASTING is 1, so does every later call of CALL. "* 0 0 0 0" only logs all
// calls.
constexpr char FAULT_POINT[] = "RS232_FAULT";

// One line for the first failed call, or for every call: "CALL NUMBER PATH SUBJECT". NUMBER counts
// the calls of CALL; PATH identifies the call path; SUBJECT is a file, "udp", "tcp", a port or a
// word.
constexpr char FAULT_LOG[] = "/dev/.world/calls.log";

// Errors other than errno values.
enum FaultError : int {
  FAULT_SHORT = 1000,  // a transfer of nothing or of half the size
  FAULT_READY,         // a wait that reports every source as ready
  FAULT_KILL,          // SIGKILL in place of the call
};

// Marks an error in the table of calls that is also injected permanently.
constexpr int FAULT_LASTS = 0x1000;
