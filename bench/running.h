// A contender at work: started on a seat of its own, with clients, until it is destroyed.
//
// Where the machine has more than one processor, the bench stays on the first and every contender
// on the second, so that neither takes the other's time.
#pragma once

#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/contender.h"
#include "sim/daemon_process.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace bench {

// Why a contender has no value of a figure.
struct Unmeasured : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Bytes of a probe: a Pelco-D frame's worth.
constexpr size_t kProbeSize = 7;
// A piece of the stream, so that none is taken for another.
std::span<const uint8_t> NumberedProbe(uint64_t number);

// Puts the bench on its processor. Returns in words who runs where.
std::string TakeProcessor();

class Running {
 public:
  // Starts the program and waits until it listens. Throws Unmeasured when it does not.
  Running(const Contender& contender, const Seat& seat);
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  // Closes the clients, then ends the program.
  ~Running();

  int Port() const { return port_; }
  pid_t Pid() const { return process_->Pid(); }
  // Seconds from its start until it listened.
  double StartSeconds() const { return start_seconds_; }

  // Sees to it that exactly `count` clients are connected and served, of which the first has
  // about `first_buffer` bytes to receive into when that is not 0. Throws Unmeasured.
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
