// A device with a camera module behind its line.
#pragma once

#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/far_end.h"
#include "sim/line_server.h"
#include "tests/system/device_fixture.h"

class ModuleTest : public DeviceTest {
 protected:
  static constexpr char kInfoPath[] = "/var/nvt/camera.info";

  void SetUp() override { unlink(kInfoPath); }

  // Puts a far end behind the line and starts the daemon for a model.
  void StartWith(const char* model, std::unique_ptr<sim::FarEnd> end,
                 std::vector<std::string> arguments = {}) {
    PutBehindLine(std::move(end));
    config.model = model;
    Start(std::move(arguments));
  }

  void PutBehindLine(std::unique_ptr<sim::FarEnd> end) {
    DropLineBytes();
    far_end = std::move(end);
    words.clear();
    far_end->on_words = [this](const std::string& word) { words += word + "\n"; };
    server = std::make_unique<sim::LineServer>(&line, far_end.get());
  }

  // Serves the line until the far end has understood this.
  bool ServeUntilWords(const std::string& text, sim::milliseconds limit = sim::kPatience) {
    return server->ServeUntil([&] { return words.find(text) != std::string::npos; }, limit);
  }

  // What a daemon that was ended has left on the line.
  void DropLineBytes() {
    constexpr size_t kMost = 1 << 16;
    line.Receive(kMost, sim::milliseconds(0));
  }

  std::string Info() { return sim::ReadTextFile(kInfoPath); }

  std::string words;
  std::unique_ptr<sim::FarEnd> far_end;
  std::unique_ptr<sim::LineServer> server;
};
