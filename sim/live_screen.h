// Shows a virtual device on a terminal and drives it by keys, all through the daemon's own ports.
#pragma once

#include <string>

#include "sim/event_sink.h"
#include "sim/live_keys.h"
#include "sim/live_view.h"
#include "sim/terminal.h"
#include "sim/virtual_device.h"

namespace sim {

class LiveScreen : public EventSink {
 public:
  // Takes the terminal. `terminal` must outlive the screen.
  LiveScreen(Terminal* terminal, const DeviceConfig& config);

  void Take(DeviceEvent event) override;
  void Observe(const FarEnd& far_end) override;

  // Acts on the keys that were pressed. Returns false once the user wants an end.
  bool ServeKeys(VirtualDevice* device);

  // The last lines of the log, to be left behind when the screen is gone.
  std::vector<LogLine> LastLines() const;

  // Draws the device as it is.
  void Draw(const VirtualDevice& device);

 private:
  bool TakeKey(int key, VirtualDevice* device);
  bool TakePromptKey(int key, VirtualDevice* device);
  bool RunPrompt(VirtualDevice* device);
  void Scroll(int pages);
  void Act(const std::vector<KeyAction>& actions, VirtualDevice* device);
  void AddFrame(const DeviceEvent& event);

  Terminal* terminal_;
  ScreenState state_;
  KeyDriver keys_;
  Clock::time_point start_;
};

}  // namespace sim
