// Where the virtual device tells what happens in it: a printer of plain lines, a live screen.
#pragma once

#include <string>
#include <utility>

#include "sim/far_end.h"
#include "sim/pty_line.h"

namespace sim {

enum class EventKind {
  kNote,    // one line, as it happens
  kDaemon,  // one line that the daemon printed
  kWords,   // what a far end or the camera daemon understood
};

struct DeviceEvent {
  EventKind kind;
  const char* who;   // "vdev", "daemon", "head", "client", ...: 6 characters at most
  std::string text;  // without a line feed
  Bytes bytes;       // kWords: the frame that was understood, empty where there is none
};

class EventSink {
 public:
  EventSink() = default;
  EventSink(const EventSink&) = delete;
  EventSink& operator=(const EventSink&) = delete;
  virtual ~EventSink() = default;

  virtual void Take(DeviceEvent event) = 0;

  // Looks at the far end as it is now. Called every few milliseconds.
  virtual void Observe(const FarEnd& far_end) = 0;

  // A line of the virtual device itself.
  void Note(std::string text) {
    Take({.kind = EventKind::kNote, .who = "vdev", .text = std::move(text), .bytes = {}});
  }
};

}  // namespace sim
