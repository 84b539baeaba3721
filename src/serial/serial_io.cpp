#include "serial/serial_io.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>

#include "context/rs232_context.h"
#include "serial/serial_port.h"
#include "util/notify.h"
#include "util/sleep.h"
#include "util/time_mark.h"

namespace {

// Timeout of one read within a receive, milliseconds.
constexpr int kReadSliceMs = 100;
// Pause after a read error, microseconds; keeps a dead line from being polled in a tight loop.
constexpr int kFailedReadPauseUs = 10'000;
constexpr int64_t kUsPerS = 1'000'000;

// A trace line is built here and written in one piece, because two threads may trace at once. Any
// read or frame fits; only the largest datagrams need several pieces.
constexpr int kLineSize = 2048;
constexpr int kBytesWidth = 3;  // "XX "

struct Line {
  char text[kLineSize];
  int used;
};

void Flush(Line* line) {
  fwrite(line->text, 1, static_cast<size_t>(line->used), stdout);
  line->used = 0;
}

void AppendHex(Line* line, uint8_t byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  if (line->used + kBytesWidth >= kLineSize) Flush(line);
  line->text[line->used++] = kDigits[byte >> 4];
  line->text[line->used++] = kDigits[byte & 0x0F];
  line->text[line->used++] = ' ';
}

void AppendHead(Line* line, const char* tag, int length) {
  timeval now;
  gettimeofday(&now, nullptr);
  tm local;
  tzset();
  localtime_r(&now.tv_sec, &local);
  line->used = snprintf(line->text, sizeof(line->text),
                        "%02d/%02d %02d:%02d:%02d.%6d %6s %4d: ", local.tm_mon + 1, local.tm_mday,
                        local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(now.tv_usec),
                        tag, length);
}

}  // namespace

void SerialTrace(const char* tag, const uint8_t* buffer, int length) {
  Line line;
  AppendHead(&line, tag, length);
  for (int i = 0; i < length; ++i)
    AppendHex(&line, buffer[i]);
  line.text[line.used++] = '\n';
  Flush(&line);
}

void SerialTraceIfEnabled(const char* tag, const uint8_t* buffer, int length) {
  if (g_rs232_context.trace_level != 0 && length != 0) SerialTrace(tag, buffer, length);
}

int SerialSend(int /*fd*/, const void* buffer, int length) {
  SerialPort* port = g_serial_port;
  if (port == nullptr || buffer == nullptr) return -1;
  const int written = port->Write(port, buffer, length);
  SerialTraceIfEnabled(SERIAL_TRACE_SEND, static_cast<const uint8_t*>(buffer), written);
  return written;
}

int SerialRecv(int /*fd*/, void* buffer, int length, int timeout_s) {
  SerialPort* port = g_serial_port;
  if (port == nullptr || buffer == nullptr) return -1;
  uint8_t* bytes = static_cast<uint8_t*>(buffer);
  const time_t deadline = time(nullptr) + timeout_s;
  // The monotonic limit still holds if the wall clock is set back, as it is when the device boots.
  const int64_t latest_us = CUTIL_MonotonicUs() + (timeout_s + 1) * kUsPerS;
  int received = 0;
  while (true) {
    CUTIL_NotifyServe();
    const int count = port->Read(port, bytes + received, length - received, kReadSliceMs);
    SerialTraceIfEnabled(SERIAL_TRACE_RECV, bytes + received, count);
    if (count > 0) received += count;
    if (received >= length || time(nullptr) > deadline) return received;
    if (CUTIL_MonotonicUs() >= latest_us) return received;
    if (count <= 0 && count != SERIAL_READ_TIMEOUT) CUTIL_SleepUs(kFailedReadPauseUs);
  }
}
