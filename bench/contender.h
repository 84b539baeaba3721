// Table of the compared programs: how to start each and what it cannot do.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace bench {

// Maximum number of clients of any measurement.
constexpr int kManyClients = 10;
// Baud rate of the line, and its capacity in bytes a second (10 bits a byte).
constexpr int kBaudRate = 115200;
constexpr int kLineBytesPerSecond = kBaudRate / 10;

// The line and TCP port of a contender.
struct Seat {
  std::string serial_path;
  int port;
};

enum class Role { kSubject, kPeer, kLimit };

struct Contender {
  const char* id;
  const char* what;
  Role role;
  const char* program;
  const char* version_option;  // prints the version; null: part of this build
  int most_clients;
  // Why it is not measured with more clients, or with a client that stops reading; null: it is.
  const char* no_more_clients;
  const char* no_stopped_client;
  // Writes the files that the program reads, and returns its arguments.
  std::vector<std::string> (*prepare)(const Seat& seat);
};

// In the order of measurement, the subject first.
std::span<const Contender> Contenders();

bool IsInstalled(const Contender& contender);

// Runs the program to get its version.
std::string VersionOf(const Contender& contender);

// Size in KiB of the program without symbols and shared libraries. Throws std::runtime_error if it
// cannot be stripped.
double StrippedKib(const Contender& contender);

}  // namespace bench
