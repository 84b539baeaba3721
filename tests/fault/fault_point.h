// How the preloaded library is told what is to fail.
#pragma once

// Variables of its environment.
constexpr char FAULT_POINT[] = "RS232_FAULT";          // what fails, see the format
constexpr char FAULT_LOG[] = "RS232_FAULT_LOG";        // file of the calls, a line each
constexpr char FAULT_RECORD[] = "RS232_FAULT_RECORD";  // there: write every call down
constexpr char FAULT_SPEED[] = "RS232_FAULT_SPEED";    // how much faster time runs

// "CALL FIRST ERROR TIMES": from the FIRST call of CALL on, TIMES calls end with ERROR.
#define FAULT_POINT_FORMAT "%31s %ld %d %ld"

// A line of the log is "CALL NUMBER PATH SUBJECT", with '!' before the call that failed first.
// PATH tells ways through the program apart; SUBJECT is a file, a socket ("udp:10017") or a word.

// Errors that are no errno.
enum FaultError : int {
  FAULT_SHORT = 0,   // a transfer of nothing, or of half of what was asked for
  FAULT_READY = -1,  // a wait that says that everything is ready
  FAULT_KILL = -2,   // SIGKILL in place of the call
};

// For TIMES: from then on every one.
constexpr long FAULT_LASTING = 1'000'000'000;
