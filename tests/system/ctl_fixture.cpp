#include "tests/system/ctl_fixture.h"

#include "tools/device_mode.h"

std::unique_ptr<sim::DaemonProcess> StartCtl(const std::string& arguments) {
  const std::string line = std::string("exec '") + RS232CTL_PATH + "' " + arguments;
  return std::make_unique<sim::DaemonProcess>("/bin/sh", std::vector<std::string>{"-c", line});
}

CtlResult AwaitCtl(sim::DaemonProcess* ctl, sim::milliseconds limit) {
  const auto status = ctl->WaitEnd(limit);
  return {.status = status, .output = ctl->Output(), .errors = ctl->Errors()};
}

CtlResult RunCtl(const std::string& arguments, sim::milliseconds limit) {
  const bool has_input = arguments.find('<') != std::string::npos;
  const auto ctl = StartCtl(arguments + (has_input ? "" : " </dev/null"));
  return AwaitCtl(ctl.get(), limit);
}

void MeetModule(const std::string& model, sim::PtyLine* line) {
  const tools::DeviceMode mode = tools::ModeOfModel(model);
  if (mode == tools::MODE_SD) {
    EXPECT_EQ(sim::Hex(line->Receive(7)), "FF 01 00 00 96 69 00");
  }
  if (mode != tools::MODE_HD) return;
  for (const uint8_t command : sim::Bytes{0xE3, 0x5C, 0xE0}) {
    EXPECT_EQ(line->Receive(10)[1], command);
    const auto checksum = static_cast<uint8_t>(0xFF + command + 1);
    line->Send(sim::Bytes{0xFF, command, 1, 0, 0, 0, 0, 0, 0, checksum});
  }
}

void ExpectCtl(const std::string& arguments, int status, const std::string& error) {
  const CtlResult result = RunCtl(arguments);
  EXPECT_EQ(result.status, status) << arguments << ": " << result;
  EXPECT_EQ(result.errors, error.empty() ? "" : "rs232ctl: " + error + "\n") << arguments;
}
