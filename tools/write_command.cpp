#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "relay/daemon_datagram.h"
#include "tools/commands.h"
#include "tools/daemon_ports.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/param_fields.h"
#include "tools/parse.h"

namespace tools {

namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

// Bytes per datagram. The daemon writes each datagram to the line with one call, and loses what the
// driver has no room for; drivers buffer at least a page.
constexpr size_t kPiece = 2048;
static_assert(kPiece + RS232_UDP_CODE_SIZE <= RS232_UDP_MAX);

// Bytes that may be on their way to the line: a third of a second at the highest speed. A pty
// instead of a line accepts any amount, holds 8 KiB and loses the rest.
constexpr size_t kAhead = 2 * kPiece;

// --- Pace --------------------------------------------------------------------------------------

double BytesPerSecond() {
  constexpr double kStartBit = 1;
  const SerialLine line = ReadLineSettings();
  const double bits = kStartBit + line.data_bits + (line.parity == 0 ? 0 : 1) + line.stop_bits;
  return line.baud_rate / bits;
}

// Limits the bytes that the line has not sent yet.
class Pace {
 public:
  explicit Pace(double bytes_per_second) : bytes_per_second_(bytes_per_second) {}

  // Waits until `count` more bytes may be sent.
  void Await(size_t count) {
    sent_ += count;
    if (sent_ <= kAhead) return;
    const double seconds = static_cast<double>(sent_ - kAhead) / bytes_per_second_;
    std::this_thread::sleep_until(begin_ + std::chrono::duration_cast<Clock::duration>(
                                               std::chrono::duration<double>(seconds)));
  }

 private:
  double bytes_per_second_;
  size_t sent_ = 0;
  Clock::time_point begin_ = Clock::now();
};

void WriteBytes(std::span<const uint8_t> bytes) {
  Pace pace(BytesPerSecond());
  while (!bytes.empty()) {
    const size_t count = std::min(bytes.size(), kPiece);
    pace.Await(count);
    SendToDaemon(RS232_UDP_WRITE, bytes.first(count));
    bytes = bytes.subspan(count);
  }
}

// --- Input -------------------------------------------------------------------------------------

struct Request {
  bool is_hex = false;
  bool is_text = false;
  std::vector<std::string> words;
};

bool IsPiped(const Request& request) {
  return request.words == std::vector<std::string>{"-"};
}

std::string InputOf(const Request& request) {
  if (IsPiped(request)) {
    const Bytes input = ReadStream("-");
    return {input.begin(), input.end()};
  }
  std::string text;
  for (const std::string& word : request.words)
    text += (&word == request.words.data() ? "" : " ") + word;
  return text;
}

void RunWrite(const Request& request) {
  if (request.is_hex == request.is_text) {
    throw Failure(EXIT_STATUS_USAGE, "write needs --hex or --text");
  }
  const ExitStatus wrong = IsPiped(request) ? EXIT_STATUS_FAILED : EXIT_STATUS_USAGE;
  const std::string input = InputOf(request);
  Bytes bytes;
  if (request.is_text) {
    bytes.assign(input.begin(), input.end());
  } else if (const std::string problem = ReadHexBytes(input, &bytes); !problem.empty()) {
    throw Failure(wrong, problem);
  }
  if (bytes.empty()) throw Failure(wrong, "no bytes to write");
  WriteBytes(bytes);
}

}  // namespace

void AddWriteCommand(CLI::App* app) {
  CLI::App* write = app->add_subcommand("write", "Write bytes to the serial line");
  const auto request = std::make_shared<Request>();
  write->add_flag("--hex", request->is_hex,
                  "DATA is bytes in hexadecimal: FF 01, ff01 or 0xFF,0x01");
  write->add_flag("--text", request->is_text,
                  "DATA is text; several arguments are joined with blanks");
  write->add_option("DATA", request->words, "data to write; - reads standard input")
      ->type_name("")
      ->required();
  write->footer(
      "Splits long input into several datagrams, in order, and sends them no faster than the line. "
      "Adds no line end.\n"
      "Examples:\n"
      "  rs232ctl write --hex FF 01 00 08 00 1D 26\n"
      "  rs232ctl write --text 'hello head'\n"
      "  rs232ctl write --text - < settings.bin");
  write->final_callback([request] { RunWrite(*request); });
}

}  // namespace tools
