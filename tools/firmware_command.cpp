#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "ipc/cicomm.h"
#include "module/firmware_update.h"
#include "module/micom_firmware.h"
#include "tools/commands.h"
#include "tools/daemon_output.h"
#include "tools/daemon_ports.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/format.h"
#include "tools/output.h"
#include "util/load_file.h"

namespace tools {

namespace {

using Bytes = std::vector<uint8_t>;

// Returns an image that the daemon accepts: one that it can load, with bytes after the header.
Bytes ReadImage(const std::string& path) {
  std::error_code error;
  const uintmax_t size = std::filesystem::file_size(path, error);
  Bytes image = error || size <= CUTIL_LOAD_MAX ? ReadFile(path) : Bytes();
  if (image.size() > MICOM_IMAGE_HEADER_SIZE) return image;
  throw Failure(Format("%s is not a firmware image: it has %ju bytes, not %d to %ld", path.c_str(),
                       size, MICOM_IMAGE_HEADER_SIZE + 1, CUTIL_LOAD_MAX));
}

// Returns why the file may be the wrong one, or "". Neither the daemon nor the module checks the
// image, and the contents of the header are unknown.
std::string DoubtOf(const Bytes& image) {
  constexpr size_t kUsualMin = 1024;  // vectors and start-up code alone take more
  const std::span payload = std::span(image).subspan(MICOM_IMAGE_HEADER_SIZE);
  if (std::ranges::all_of(image, [](int c) { return isprint(c) != 0 || isspace(c) != 0; }))
    return "it is plain text";
  if (std::ranges::count(payload, payload.front()) == std::ssize(payload))
    return "all bytes of its firmware are equal";
  if (payload.size() < kUsualMin)
    return Format("it has only %zu bytes of firmware", payload.size());
  return "";
}

// Returns what the update does to this device.
std::string Consequence(size_t payload) {
  const std::string model = DeviceModel();
  const DeviceMode mode = model.empty() ? MODE_HD : ModeOfModel(model);
  if (mode == MODE_LENS) {
    return Format("reboot this %s with %zu bytes of firmware in %s", model.c_str(), payload,
                  MICOM_FIRMWARE_PATH);
  }
  if (mode == MODE_HD) {
    const std::string of_this = model.empty() ? "" : " of this " + model;
    return Format("write %zu bytes of firmware into the camera module%s and reboot the device",
                  payload, of_this.c_str());
  }
  throw Failure("this device, " + model + ", does not support firmware updates");
}

// Asks the user to confirm. `option` is the option that confirms in advance.
void Ask(const std::string& statement, const char* option) {
  if (isatty(STDIN_FILENO) == 0) {
    throw Failure(EXIT_STATUS_DECLINED,
                  statement + ": stdin is not a terminal; use " + option + " to confirm");
  }
  Print(stderr, "%s. Continue? [y/N] ", statement.c_str());
  std::string answer;
  std::getline(std::cin, answer);
  if (answer == "y" || answer == "Y" || answer == "yes") return;
  throw Failure(EXIT_STATUS_DECLINED, "declined; nothing was done");
}

// Prints the progress of the update from the daemon's output until it ends.
void Follow(DaemonOutput* output, size_t bytes) {
  using Clock = std::chrono::steady_clock;
  // Longer than all failed sends of one packet.
  constexpr std::chrono::seconds kSilenceMax{(MICOM_ROUNDS + 1) * MICOM_TRIES_PER_ROUND *
                                             MICOM_ANSWER_TIMEOUT_S};
  constexpr int kStep = 5;  // percent
  Clock::time_point heard = Clock::now();
  Clock::time_point begin = heard;
  for (int next = 0; Clock::now() - heard < kSilenceMax;) {
    for (const std::string& line : output->NewLines()) {
      heard = Clock::now();
      if (line.starts_with("Recv ACK")) begin = heard;
      if (line.find("Error line") != std::string::npos) {
        throw Failure("the update failed: " + line);
      }
      if (line == "end") {
        Print(stdout, "the module has accepted the firmware; the device reboots\n");
        return;
      }
      int percent = 0;
      if (sscanf(line.c_str(), "* write %3d%%", &percent) != 1 || percent < next) continue;
      const double seconds = std::chrono::duration<double>(heard - begin).count() + 0.001;
      const double written = static_cast<double>(bytes) * percent / 100;
      Print(stdout, "%3d %%, %.1f KB/s, %.0f s left\n", percent, written / seconds / 1000,
            seconds * (100 - percent) / std::max(percent, 1));
      fflush(stdout);
      next = percent - percent % kStep + kStep;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  throw Failure("timeout: no progress in the output of rs232d");
}

struct Request {
  std::string path;
  bool is_followed = false;
  bool is_sure = false;
  bool is_forced = false;
};

void RunUpdate(const Request& request) {
  const Bytes image = ReadImage(request.path);
  const std::string consequence = Consequence(image.size() - MICOM_IMAGE_HEADER_SIZE);
  const std::string doubt = DoubtOf(image);
  if (!doubt.empty() && !request.is_forced) {
    Ask(request.path + " does not look like a firmware image: " + doubt, "--force");
  }
  if (!request.is_sure) Ask("This will " + consequence, "--yes");
  std::optional<DaemonOutput> output;
  std::string blind;
  try {
    if (request.is_followed) output.emplace();
  } catch (const Failure& failure) {
    blind = failure.what();
  }
  PlaceFile(MICOM_FIRMWARE_PATH, image);
  try {
    SendCommand(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE);
  } catch (const Failure&) {
    unlink(MICOM_FIRMWARE_PATH);  // a later command must not install it
    throw;
  }
  Print(stdout, "sent the command to %s\n", consequence.c_str());
  if (!blind.empty()) Print(stderr, "rs232ctl: warning: %s\n", blind.c_str());
  if (output.has_value() && ModeOfModel(DeviceModel()) == MODE_HD) {
    Follow(&*output, image.size() - MICOM_IMAGE_HEADER_SIZE);
  }
}

}  // namespace

void AddFirmwareUpdateCommand(CLI::App* app) {
  CLI::App* update =
      app->add_subcommand("firmware-update", "Update the firmware of the camera module and reboot");
  const auto request = std::make_shared<Request>();
  update
      ->add_option("IMAGE", request->path,
                   "the image file: a header of 64 bytes, then the firmware")
      ->type_name("")
      ->required();
  update->add_flag("--yes", request->is_sure, "do not ask for confirmation");
  update->add_flag("--follow", request->is_followed, "print the progress until the update ends");
  update->add_flag("--force", request->is_forced, "accept a file that does not look like an image");
  update->footer(
      "During the update the daemon serves nothing else. It then reboots the device, even if the "
      "update has failed. A device with a motorized lens only reboots.\n"
      "Example: rs232ctl firmware-update micom-2.1.img");
  update->final_callback([request] { RunUpdate(*request); });
}

}  // namespace tools
