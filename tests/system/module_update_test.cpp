// The firmware update of the real daemon with a loader: complete, disturbed, aborted.
#include <sys/socket.h>
#include <sys/un.h>

#include <climits>
#include <cstdio>
#include <regex>

#include "sim/leftovers.h"
#include "tests/system/module_fixture.h"

namespace {

using sim::Bytes;
using sim::LoaderFault;
using sim::LoaderSetup;
using sim::LoaderTrouble;
using sim::milliseconds;

constexpr char kAcknowledged[] = "Recv ACK [DC12]\n";
constexpr int kForEver = INT_MAX;

// The progress lines of an update without retries.
std::string Progress(size_t payload) {
  std::string lines;
  for (size_t accepted = 0; accepted < payload;) {
    accepted = std::min(payload, accepted + 256);
    char line[64];
    snprintf(line, sizeof(line), "* write %3zu%%, retry[1 / 20]\n", accepted * 100 / payload);
    lines += line;
  }
  return lines;
}

class ModuleUpdate : public UpdateTest {
 protected:
  // Runs an update and checks that the daemon has as many descriptors afterwards as before, except
  // for `closed`. Returns the duration.
  milliseconds Update(size_t closed = 0) {
    const size_t descriptors = sim::DescriptorCount(daemon->Pid()) - closed;
    const auto begin = sim::Clock::now();
    EXPECT_TRUE(OrderUpdate(milliseconds(30'000)).has_value()) << Output();
    const auto end = sim::Clock::now();
    EXPECT_TRUE(sim::WaitUntil([&] { return sim::DescriptorCount(daemon->Pid()) == descriptors; }))
        << sim::DescriptorCount(daemon->Pid()) << " instead of " << descriptors;
    return std::chrono::duration_cast<milliseconds>(end - begin);
  }

  // The output of the daemon after the order, with N in place of source line numbers.
  std::string Output() const {
    const std::string order = "CICOMM_PCMD_MICOM_FIRMWARE_UPDATE\n";
    const std::string output = daemon->Output();
    EXPECT_TRUE(output.starts_with(order)) << output;
    return std::regex_replace(output.substr(order.size()), std::regex("line\\[\\d+"), "line[N");
  }
};

TEST_F(ModuleUpdate, TransfersPayloadsOfAnySizeAtLineSpeed) {
  for (const size_t payload : {0U, 1U, 256U, 257U, 100'000U}) {
    SCOPED_TRACE(payload);
    StartMicom({});
    WriteImage(Payload(payload));
    const milliseconds took = Update();
    ExpectStored(payload);
    EXPECT_EQ(Output(), kAcknowledged + Progress(payload) + "end\n");
    // The line keeps the loader's settings.
    const termios settings = line.Settings();
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(settings.c_cflag & (CSIZE | PARENB | CSTOPB), static_cast<tcflag_t>(CS8));
    // Header, data and tail, with an answer to each packet. The pty adds no line time. The daemon
    // may use at most 15 % of the total; the loader starts within 100 ms.
    const size_t on_line = 8 + 1 + payload + (payload + 255) / 256 * (6 + 1) + 7 + 1;
    const double line_ms = static_cast<double>(on_line) * 10'000 / 115'200;
    EXPECT_LE(took.count(), line_ms / 0.85 - line_ms + 100);
  }
}

TEST_F(ModuleUpdate, SendsTheExactPackets) {
  // Literal packets, independent of the simulated loader.
  StartModel("QB-310");
  WriteImage(Bytes(257, 'P'));
  SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  EXPECT_EQ(Line(10), "FF FD 02 00 00 00 00 00 00 FE");
  ASSERT_TRUE(sim::WaitUntil([&] {
    const termios settings = line.Settings();
    return cfgetospeed(&settings) == B115200;
  }));
  line.Send(Bytes{0xDC, 0x12});
  for (const char* packet : {"A0 01 01 00 00 AF C0 CA", "A0 00 01 50", "50 AF 9F 68",
                             "A0 01 00 50 AF 75 78", "A0 02 23 79 AF CC 45"}) {
    EXPECT_EQ(Line((std::string(packet).size() + 1) / 3), packet);
    if (std::string(packet) == "A0 00 01 50") {
      EXPECT_EQ(line.Receive(254), Bytes(254, 'P'));
    } else {
      line.Send(Bytes{0x33});
    }
  }
  EXPECT_TRUE(manager.Receive().has_value());
}

std::string Failed(const std::string& reason) {
  return "[MicomFirmwareUpdate] Error line[N], reason(" + reason + ")\n";
}

TEST_F(ModuleUpdate, InvalidImagesLeaveTheMicomAlone) {
  const std::pair<std::optional<size_t>, std::string> rows[] = {
      // size of the whole file
      {std::nullopt, ""},
      {0, Failed("image shorter than its header, 0 vs 64")},
      {63, Failed("image shorter than its header, 63 vs 64")},
  };
  for (const auto& [size, output] : rows) {
    StartMicom({});
    if (size.has_value()) sim::WriteTextFile(kImagePath, std::string(*size, 'H'));
    Update();
    EXPECT_EQ(Output(), output);
    const std::string reason = "reason(CUTIL_LoadFile '/tmp/micom_firmware')\n";
    EXPECT_EQ(daemon->Errors().ends_with(reason), !size.has_value()) << daemon->Errors();
    EXPECT_EQ(micom->Loader(), nullptr);
  }
}

TEST_F(ModuleUpdate, FailsWhenTheLineCannotBeReopened) {
  StartMicom({});
  WriteImage(Payload(10));
  sim::WriteTextFile("/etc/capabilities.conf", "Serial.2.DevPath=/dev/ttyS9\n");
  Update(1);
  EXPECT_EQ(Output(), Failed("OpenRS232"));
}

// --- Loaders ----------------------------------------------------------------------------------

std::string NotAccepted(const std::string& packet, const std::string& byte) {
  return Failed(packet + " not match " + byte + " vs 33");
}

// Permanent silence during data packets is not tested here: it takes a hundred tries of three
// seconds. Rejections exercise the same loop.
TEST_F(ModuleUpdate, SurvivesTransientFaultsAndGivesUpOnPermanentOnes) {
  using enum LoaderFault;
  const auto with = [](const LoaderTrouble& trouble) { return LoaderSetup{.troubles = {trouble}}; };
  // The counts of transmissions per data packet, as printed.
  const auto sent = [](int first, int second) {
    return "* write  85%, retry[" + std::to_string(first) + " / 20]\n* write 100%, retry[" +
           std::to_string(second) + " / 20]\nend\n";
  };
  const std::string both = "* write  85%, retry[1 / 20]\n* write 100%, retry[1 / 20]\n";
  const struct {
    LoaderSetup setup;
    std::string output;  // output after the acknowledgement
    int least_ms = 0;    // duration; at most four seconds more
    std::string acknowledged = kAcknowledged;
  } rows[] = {
      // acknowledgement: noise before it, half of it, silence
      {{.before_sign = {0x55, 0x00, 0x12, 0xDC, 0x13, 0x33, 0x33, 0xFF}}, both + "end\n"},
      {{.sign_delay = milliseconds(8000)}, both + "end\n", 7990},
      {{.sign = {}}, Failed("ack not match 0000 vs DC12"), 9990, ""},
      // The second DC starts no new pair.
      {{.sign = {0xDC, 0xDC, 0x12}}, Failed("ack not match 1200 vs DC12"), 9990, ""},
      // repeated packets
      {with({1, kRefuse, 19}), sent(20, 1)},
      {with({1, kRefuse, 20}), sent(1, 1)},
      {with({2, kRefuse, 99, 0xA0}), sent(1, 20)},
      {with({1, kSilent}), sent(2, 1), 2990},
      {with({.packet = 1, .fault = kLate, .delay = milliseconds(2500)}), both + "end\n", 2500},
      // Repeated while the loader ignores input; the answer to the first counts.
      {with({.packet = 2, .fault = kLate, .delay = milliseconds(5000)}), sent(1, 2), 4990},
      // permanent failure of each packet
      {with({0, kSilent, kForEver}), NotAccepted("sync", "A0"), 2990},
      {with({0, kRefuse, kForEver}), NotAccepted("sync", "15")},
      {with({1, kRefuse, 100}), NotAccepted("send data packet", "15")},
      {with({3, kSilent, kForEver}), both + Failed("SerialRecv"), 2990},
      {with({3, kDamagedAnswer, 1}), both + NotAccepted("send tail packet", "32")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.output + std::to_string(&row - rows));
    StartMicom(row.setup);
    WriteImage(Payload(300));
    const milliseconds took = Update();
    EXPECT_EQ(Output(), row.acknowledged + row.output);
    EXPECT_GE(took, milliseconds(row.least_ms));
    EXPECT_LE(took, milliseconds(row.least_ms + 4000));
    if (row.output.ends_with("end\n")) ExpectStored(300);
  }
}

// A replacement for the service manager's socket, named in the environment of the next daemon.
class ServiceManager {
 public:
  ServiceManager() {
    const sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/tmp/notify"};
    EXPECT_EQ(bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", address.sun_path, 1);
    setenv("WATCHDOG_USEC", "60000000", 1);
  }
  // The next report; "" on timeout.
  std::string Next(milliseconds limit = milliseconds(5000)) {
    char text[512];
    if (!sim::WaitReady(fd_.Get(), POLLIN, sim::Clock::now() + limit)) return "";
    return {text, static_cast<size_t>(recv(fd_.Get(), text, sizeof(text), 0))};
  }

 private:
  tools::UniqueFd fd_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

// The reports of the daemon, idle and during an update that takes minutes.
TEST_F(ModuleUpdate, ReportsToTheServiceManager) {
  const std::string alive = "WATCHDOG=1\nEXTEND_TIMEOUT_USEC=60000000";
  ServiceManager service;
  StartMicom({});
  const std::string status = "STATUS=QB-310, HD camera module; /dev/ttyS1 open; ";
  for (const std::string& report : {alive, std::string("READY=1"), status + "PTZ clients: 0"})
    EXPECT_EQ(service.Next(), report);
  std::vector<sim::PtzClient> clients;
  for (int i = 0; i < 3; ++i)
    clients.emplace_back(config.ptz_port);
  EXPECT_EQ(service.Next(), status + "PTZ clients: 3");  // at most one line per second
  EXPECT_EQ(daemon->Stop(), 0);
  EXPECT_EQ(service.Next(), "STOPPING=1");
  StartMicom({.troubles = {{1, LoaderFault::kSilent, kForEver}}});
  for (int i = 0; i < 3; ++i)
    EXPECT_NE(service.Next(), "");
  WriteImage(Payload(300));
  SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  for (int i = 0; i < 8; ++i)
    EXPECT_EQ(service.Next(milliseconds(32'000)), alive);
}

}  // namespace
