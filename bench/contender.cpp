#include "bench/contender.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "relay/daemon_datagram.h"
#include "sim/device.h"
#include "sim/world.h"

namespace bench {
namespace {

// Read size of the minimal relay.
constexpr int kMinimalRead = 4096;

constexpr char kOneClient[] = "forks a process per client, and these compete for the line";
constexpr char kNoRule[] = "does not handle a client that stops reading";

std::vector<std::string> PrepareDaemon(const Seat& seat) {
  sim::InstallDevice(
      {.serial_path = seat.serial_path, .baud_rate = kBaudRate, .ptz_port = seat.port});
  return {};
}

std::vector<std::string> PrepareSer2net(const Seat& seat, const char* chardelay) {
  const std::string path =
      std::string(sim::kWorldDirectory) + "/ser2net." + std::to_string(seat.port) + ".yaml";
  sim::WriteTextFile(
      path, "connection: &bench\n  accepter: tcp(nodelay=true),127.0.0.1," +
                std::to_string(seat.port) + "\n  connector: serialdev," + seat.serial_path + "," +
                std::to_string(kBaudRate) + "n81,local\n  options:\n    max-connections: " +
                std::to_string(kManyClients) + "\n    chardelay: " + chardelay + "\n");
  return {"-n", "-u", "-c", path};
}

std::vector<std::string> PrepareSer2netDelayed(const Seat& seat) {
  return PrepareSer2net(seat, "true");
}

std::vector<std::string> PrepareSer2netPrompt(const Seat& seat) {
  return PrepareSer2net(seat, "false");
}

std::vector<std::string> PrepareSocat(const Seat& seat) {
  return {"TCP-LISTEN:" + std::to_string(seat.port) + ",bind=127.0.0.1,reuseaddr,nodelay,fork",
          "OPEN:" + seat.serial_path + ",noctty,rawer,b" + std::to_string(kBaudRate)};
}

std::vector<std::string> PrepareMinimal(const Seat& seat) {
  return {std::to_string(seat.port), seat.serial_path, std::to_string(kMinimalRead)};
}

std::vector<std::string> PrepareMinimal64(const Seat& seat) {
  return {std::to_string(seat.port), seat.serial_path, std::to_string(SERIAL_DATA_MAX),
          std::to_string(SERIAL_DATA_PORT)};
}

constexpr std::array<Contender, 6> kContenders = {{
    {"rs232d", "the daemon in relay mode: reads of 64 bytes, each also sent to UDP port 1860",
     Role::kSubject, RS232D_PATH, nullptr, kManyClients, nullptr, nullptr, PrepareDaemon},
    {"ser2net", "ser2net by default: waits for more bytes before it sends (chardelay)", Role::kPeer,
     "/usr/sbin/ser2net", "-v", kManyClients, nullptr, nullptr, PrepareSer2netDelayed},
    {"ser2net-nd", "ser2net with chardelay off", Role::kPeer, "/usr/sbin/ser2net", "-v",
     kManyClients, nullptr, nullptr, PrepareSer2netPrompt},
    {"socat", "socat TCP-LISTEN,nodelay,fork: one client", Role::kPeer, "/usr/bin/socat", "-V", 1,
     kOneClient, kOneClient, PrepareSocat},
    {"minimal", "a minimal relay: a poll loop, reads of 4096 bytes", Role::kLimit,
     MINIMAL_RELAY_PATH, nullptr, kManyClients, nullptr, kNoRule, PrepareMinimal},
    {"minimal64", "minimal with reads of 64 bytes, each also sent to UDP port 1860", Role::kLimit,
     MINIMAL_RELAY_PATH, nullptr, kManyClients, nullptr, kNoRule, PrepareMinimal64},
}};

}  // namespace

std::span<const Contender> Contenders() {
  return kContenders;
}

bool IsInstalled(const Contender& contender) {
  return access(contender.program, X_OK) == 0;
}

std::string VersionOf(const Contender& contender) {
  if (contender.version_option == nullptr) return "this build";
  const std::string command =
      std::string(contender.program) + " " + contender.version_option + " 2>&1";
  FILE* output = popen(command.c_str(), "r");
  if (output == nullptr) return "";
  // The first number after "version".
  constexpr char kDigits[] = "0123456789";
  std::string text(4096, '\0');
  text.resize(fread(text.data(), 1, text.size(), output));
  pclose(output);
  const size_t begin = text.find_first_of(kDigits, text.find("version"));
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_first_not_of("0123456789.", begin) - begin);
}

double StrippedKib(const Contender& contender) {
  constexpr double kBytesPerKib = 1024;
  const std::string copy = std::string(sim::kWorldDirectory) + "/stripped";
  const std::string command = "strip -o " + copy + " '" + contender.program + "'";
  if (system(command.c_str()) != 0) throw std::runtime_error("cannot be stripped");
  return static_cast<double>(std::filesystem::file_size(copy)) / kBytesPerKib;
}

}  // namespace bench
