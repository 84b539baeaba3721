#include "relay/line_source.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "relay/cfdevent.h"
#include "serial/serial_port.h"
#include "util/sleep.h"
#include "util/time_mark.h"

namespace {

constexpr int64_t kUsPerS = 1'000'000;
constexpr int64_t kRetryUs = LINE_SOURCE_RETRY_S * kUsPerS;
// Pause after a read without data on a line that poll reported as ready.
constexpr int64_t kEmptyReadPauseUs = 1'000;

void HandleHangup(LineSource* self, const char* reason) {
  fprintf(stderr, "[%s] serial line lost, reason(%s)\n", "LineSource", reason);
  CFDEVENT* events = self->context->events;
  events->Del(events, self->context->serial);
  CloseRS232(self->context);
  self->retry_us = CUTIL_MonotonicUs() + kRetryUs;
}

}  // namespace

void LineSourceInit(LineSource* self, Rs232Context* context) {
  *self = {.context = context, .retry_us = 0};
}

int LineSourceRead(LineSource* self, uint8_t* buffer, int size) {
  const ssize_t count = read(self->context->serial, buffer, static_cast<size_t>(size));
  if (count > 0) return static_cast<int>(count);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
    CUTIL_SleepUs(kEmptyReadPauseUs);
  } else {
    HandleHangup(self, count == 0 ? "hung up" : strerror(errno));
  }
  return 0;
}

void LineSourceServe(LineSource* self) {
  if (LineSourceWaitLimitUs(*self) > 0) return;
  Rs232Context* context = self->context;
  const SerialLine line = SerialLineOf(*context->settings);
  if (OpenRS232(context, line) < 0 || !IsRS232Usable(*context, line)) {
    CloseRS232(context);
    self->retry_us = CUTIL_MonotonicUs() + kRetryUs;
    return;
  }
  context->events->Add(context->events, context->serial);
  fprintf(stderr, "[%s] serial line is back\n", "LineSource");
}

int64_t LineSourceWaitLimitUs(const LineSource& self) {
  if (self.context->serial >= 0) return INT64_MAX;
  return std::max<int64_t>(self.retry_us - CUTIL_MonotonicUs(), 0);
}
