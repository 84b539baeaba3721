// Start-up: settings, shared resources, and the selection of the mode.
#include <syslog.h>

#include <algorithm>
#include <cerrno>

#include "cmmap/param_block.h"
#include "daemon/model_family.h"
#include "daemon/resources.h"
#include "daemon/settings.h"
#include "module/hd_mode.h"
#include "module/sd_mode.h"
#include "net/udp_socket.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "tests/support.h"
#include "tests/world/failing_call.h"

namespace {

TEST(Settings, ModelNameMayFillItsField) {
  for (const size_t length : {0U, 6U, 126U, 127U, 128U, 300U}) {
    sim::InstallDevice({.model = std::string(length, 'Q')});
    Rs232Settings settings;
    EXPECT_EQ(ReadSettings(&settings), 0);
    EXPECT_EQ(settings.model, std::string(std::min<size_t>(length, 127), 'Q'));
  }
}

TEST(Resources, ReportsAMissingUdpSocketToSyslog) {
  const sim::PtyLine line;
  sim::InstallDevice({});
  Rs232Settings settings;
  ASSERT_EQ(ReadSettings(&settings), 0);
  sim::SyslogRecorder syslog;
  const auto descriptors = support::OpenDescriptors();
  for (const auto& [call, logged] : {std::pair("socket", "[RS232] error while open socket"),
                                     {"bind", "[RS232] error while bind socket"}}) {
    Rs232Context context = {};
    {
      const FailingCall failing(call);
      EXPECT_EQ(OpenResources(&settings, &context), OpenResult::kFailed);
    }
    // Facility user, severity alert.
    EXPECT_EQ(syslog.WaitFor(logged).substr(0, 3), "<9>") << call;
    ReleaseResources(&context);
    closelog();
    EXPECT_EQ(support::OpenDescriptors(), descriptors) << call;
  }
}

// Port sharing must fail, too, because the system would deliver each datagram to only one process.
TEST(Resources, KeepsItsPortsToItself) {
  const sim::PtyLine line;
  sim::InstallDevice({});
  Rs232Settings settings;
  ASSERT_EQ(ReadSettings(&settings), 0);
  Rs232Context context = {};
  support::OnStderr([&] { EXPECT_EQ(OpenResources(&settings, &context), OpenResult::kReady); });
  const auto take = [](int port) {
    return tools::UniqueFd(ZSK_OpenLocalUDPSSocket(port)).Get() >= 0;
  };
  for (const bool is_free : {false, true}) {
    for (const int port : {settings.udp_port, settings.command_port})
      support::OnStdout([&] { EXPECT_EQ(take(port), is_free) << port; });
    ReleaseResources(&context);
  }
}

// "-" if no family claims the model, else the letter of the family.
std::string FamiliesOf(const char* model) {
  std::string families;
  if (IsQb710Model(model) != 0) families += '7';
  if (IsSdModuleModel(model) != 0) families += 'S';
  if (IsHdModuleModel(model) != 0) families += 'H';
  if (IsMotorizedLensModel(model) != 0) families += 'L';
  return families.empty() ? "-" : families;
}

TEST(ModelFamily, MatchesOnlyWholeNames) {
  const std::pair<const char*, const char*> rows[] = {
      {"QB-710", "7"}, {"QB-210", "S"}, {"QB-220", "S"}, {"QB-310", "H"}, {"QB-350", "H"},
      {"QB-410", "L"}, {"QB-480", "L"}, {"QB-610", "-"}, {"QB-620", "-"}, {"", "-"},
      {"QB-230", "-"}, {"QB-360", "-"}, {"QB-41", "-"},  {"qb-210", "-"}, {"QB-210 ", "-"},
  };
  for (const auto& [model, families] : rows)
    EXPECT_EQ(FamiliesOf(model), families) << model;
}

TEST(ModelFamily, ModesRejectAMissingContext) {
  for (const auto& [name, mode] : {std::pair("sd", &camd_cmod_sd), {"hd", &camd_cmod_hd}}) {
    const std::string line = support::OnStdout([run = mode] { return run(nullptr); });
    EXPECT_TRUE(line.starts_with(std::string("-1 [camd_cmod_") + name + "] Error line[")) << line;
    EXPECT_TRUE(line.ends_with("], reason('p_param' is NULL)\n")) << line;
  }
}

}  // namespace
