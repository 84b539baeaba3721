// A running contender with its line and clients.
//
// If the machine has more than one processor, the bench runs on the first and every contender on
// the second, so they do not compete.
#pragma once

#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/contender.h"
#include "sim/daemon_process.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace bench {

// Thrown with the reason why a contender has no value of a figure.
struct Unmeasured : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Size of a probe, that of a Pelco-D frame.
constexpr size_t kProbeSize = 7;
// Probe `number`: a piece of the stream, different from its neighbours.
std::span<const uint8_t> NumberedProbe(uint64_t number);

// Moves the bench to its processor. Returns a description of the assignment.
std::string TakeProcessor();

class Running {
 public:
  // Starts the program and waits until it listens. Throws Unmeasured if it does not.
  Running(const Contender& contender, const Seat& seat);
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  // Closes the clients, then stops the program.
  ~Running();

  int Port() const { return port_; }
  pid_t Pid() const { return process_->Pid(); }
  // Seconds from the start of the program until it listened.
  double StartSeconds() const { return start_seconds_; }

  // Connects or closes clients until exactly `count` are connected, and checks that all are served.
  // `first_buffer` is the approximate receive buffer of the first client; 0: the default. Throws
  // Unmeasured.
  void Connect(int count, int first_buffer = 0);

  // The descriptors of the line's far end and of the clients, all non-blocking.
  int Line() const { return line_.FarEnd(); }
  std::vector<int> Clients() const;

  double Cpu() const { return sim::CpuSeconds(Pid()); }

 private:
  void AddClient(int receive_buffer);

  int port_;
  sim::PtyLine line_;
  std::unique_ptr<sim::DaemonProcess> process_;
  std::vector<std::unique_ptr<sim::PtzClient>> clients_;
  double start_seconds_ = 0;
};

}  // namespace bench
