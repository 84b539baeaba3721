#include <unistd.h>

#include <CLI/CLI.hpp>
#include <climits>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "ipc/cicomm.h"
#include "module/firmware_update.h"
#include "module/micom_firmware.h"
#include "tools/commands.h"
#include "tools/daemon_ports.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/output.h"

namespace tools {

namespace {

using Bytes = std::vector<uint8_t>;

// The daemon takes any image that it can load and that is no shorter than its header.
Bytes ReadImage(const std::string& path) {
  Bytes image = ReadFile(path);
  const size_t header = MICOM_IMAGE_HEADER_SIZE;
  if (image.size() < header || image.size() > INT_MAX) {
    throw Failure(EXIT_STATUS_FAILED, path + " is no firmware image: it has " +
                                          std::to_string(image.size()) + " bytes, its header " +
                                          std::to_string(header));
  }
  return image;
}

// What the order does to this device.
std::string Consequence(size_t payload) {
  const std::string model = DeviceModel();
  const std::string bytes = std::to_string(payload) + " bytes of firmware";
  if (model.empty()) return "write " + bytes + " into the camera module and reboot the device";
  switch (ModeOfModel(model)) {
    case MODE_HD:
      return "write " + bytes + " into the camera module of this " + model +
             " and reboot the device";
    case MODE_LENS:
      return "lay out " + bytes + " and reboot this " + model;
    default:
      throw Failure(EXIT_STATUS_FAILED, "this device, " + model + ", takes no firmware");
  }
}

void Ask(const std::string& consequence) {
  if (isatty(STDIN_FILENO) == 0) {
    throw Failure(EXIT_STATUS_DECLINED,
                  "there is no terminal to ask at whether to " + consequence + "; --yes says so");
  }
  Print(stderr, "This will %s. Go on? [y/N] ", consequence.c_str());
  char answer[16] = "";
  const bool is_answered = fgets(answer, sizeof(answer), stdin) != nullptr;
  const std::string text = answer;
  if (is_answered && (text == "y\n" || text == "Y\n" || text == "yes\n")) return;
  throw Failure(EXIT_STATUS_DECLINED, "declined; nothing was done");
}

void RunUpdate(const std::string& path, bool is_sure) {
  const Bytes image = ReadImage(path);
  const std::string consequence = Consequence(image.size() - MICOM_IMAGE_HEADER_SIZE);
  if (!is_sure) Ask(consequence);
  PlaceFile(MICOM_FIRMWARE_PATH, image);
  try {
    SendCommand(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE);
  } catch (const Failure&) {
    unlink(MICOM_FIRMWARE_PATH);  // for a later order of somebody else it would be a surprise
    throw;
  }
  Print(stdout, "ordered to %s\n", consequence.c_str());
}

}  // namespace

void AddFirmwareUpdateCommand(CLI::App* app) {
  CLI::App* update = app->add_subcommand("firmware-update",
                                         "Give the camera module new firmware, reboot the device");
  const auto path = std::make_shared<std::string>();
  const auto is_sure = std::make_shared<bool>();
  update->add_option("IMAGE", *path, "the image: a header of 64 bytes, then the firmware")
      ->type_name("")
      ->required();
  update->add_flag("--yes", *is_sure, "do not ask");
  update->footer(
      "The daemon serves nothing else while it writes, then reboots the device, also after a\n"
      "failure. A device with a motorized lens only reboots.\n"
      "Example: rs232ctl firmware-update micom-2.1.img");
  update->final_callback([path, is_sure] { RunUpdate(*path, *is_sure); });
}

}  // namespace tools
