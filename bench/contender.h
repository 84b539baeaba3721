// The programs that are compared, as data: how each is started, and what it cannot do.
#pragma once

#include <span>
#include <string>
#include <vector>

namespace bench {

// Most clients of any measurement.
constexpr int kManyClients = 10;
// Baud rate of the line, and the most bytes a second that it carries so (10 bits a byte).
constexpr int kBaudRate = 115200;
constexpr int kLineBytesPerSecond = kBaudRate / 10;

// Where a contender works: its line and its TCP port.
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
  const char* version_option;  // prints the version; null where the build's own is meant
  int most_clients;
  // Why it does not take part with more clients / with a client that stops reading; null: it does.
  const char* no_more_clients;
  const char* no_stopped_client;
  // Lays out what the program reads, and returns its arguments.
  std::vector<std::string> (*prepare)(const Seat& seat);
};

// In the order in which they are measured; the subject is the first.
std::span<const Contender> Contenders();

bool IsInstalled(const Contender& contender);

// Runs the program for its version.
std::string VersionOf(const Contender& contender);

// Size of the program without its symbols, in KiB, shared libraries not counted. Throws
// std::runtime_error where it cannot be stripped.
double StrippedKib(const Contender& contender);

}  // namespace bench
