// Runs the real daemon through long random lives in each mode. Numbered bytes pass in both
// directions with commands between them, while clients come and go, malformed packets arrive, the
// line is lost, the wall clock jumps, and the daemon is stopped, killed and restarted. All output
// is compared with the input, and the resources of the daemon with those at its start.
//
// A seed determines the events. The ordinary tests run three lives; ./soak.sh runs more, controlled
// by the variables RS232_LIFE_SEED and RS232_LIFE_SECONDS (real time).
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "cmmap/param_block.h"
#include "sim/leftovers.h"
#include "sim/lens_micom.h"
#include "sim/virtual_time.h"
#include "tests/support.h"
#include "tests/system/device_fixture.h"
#include "util/conf_file.h"

namespace {

using sim::Bytes;
using sim::Clock;
using sim::milliseconds;

constexpr size_t kClients = 4;           // connected between events
constexpr size_t kDatagrams = kClients;  // index of the datagram source, after the clients
constexpr size_t kMostClients = 10;
// Each source has its own alphabet, without bytes that begin a frame of any mode.
constexpr size_t kAlphabetSize = 32;
constexpr size_t kPeriod = 31;
// Maximum bytes in transit per source; together they fit into the kernel's buffers.
constexpr size_t kWindow = 1024;
constexpr size_t kSomeFrames = 120;  // hexadecimal characters
constexpr double kMostGrowthKib = 12;
// The daemon has about 300. More means a sanitizer, which keeps freed memory for a while.
constexpr double kMostKib = 1024;
constexpr int kReceiveBuffer = 32'000;  // fixed: automatic sizing would grow it

struct Command {
  std::string mode;
  uint16_t code;
  std::array<int, 3> parameters;
  const char* frames;  // literal, independent of the daemon's tables
};

const Command kCommands[] = {
    {"relay", 0x1021, {5, 0, 0}, "FF 01 00 00 00 00 01 FF 01 00 07 00 05 0D "},
    {"relay", 0x2001, {0, 0, 0}, "FF 01 00 00 00 00 01 FF 01 00 00 00 00 01 "},
    {"sd", 0x2000, {0, 0, 0}, "FF 01 00 03 00 5F 63 FF 01 00 00 00 00 01 "},
    {"hd", 0x2002, {0, 0, 9}, "FF 41 02 00 00 00 01 00 00 43 "},
    {"hd", 0x2008, {0, 0, 0}, "FF 4B 02 00 00 00 02 00 00 4E "},
    // No expected frames for a lens: the tests check its position instead.
    {"lens", 0x2001, {20, 0, 0}, ""},
    {"lens", 0x2001, {0, 0, 0}, ""},
    {"lens", 0x2002, {0, 0, -60}, ""},
    {"lens", 0x2002, {0, 0, 0}, ""},
    {"lens", 0x1202, {0, 0, 0}, ""},
    {"lens", 0x100A, {-1, 0, 0}, ""},
};

struct Mode {
  const char* name;
  const char* model;
  uint64_t idle_waits;  // a second; the lens mode regulates all the time
};

constexpr Mode kModes[] = {
    {"relay", "QB-620", 10}, {"sd", "QB-210", 10}, {"hd", "QB-310", 10}, {"lens", "QB-420", 300}};

// A source of bytes for the line.
struct Source {
  std::optional<sim::PtzClient> client = {};  // none: sends datagrams
  bool is_leaving = false;
  size_t sent = 0;
  size_t arrived = 0;
  size_t next = 0;  // index of the client's next byte from the line
};

double Variable(const char* name, double otherwise) {
  const char* text = getenv(name);
  return text != nullptr ? strtod(text, nullptr) : otherwise;
}

// Files and processes that a daemon could leave behind.
std::set<std::string> Present() {
  std::set<std::string> names;
  for (const char* directory : {"/etc", "/var/nvt", "/proc"}) {
    for (const auto& entry : std::filesystem::directory_iterator(directory))
      names.insert(entry.path());
  }
  return names;
}

class LongLife : public DeviceTest, public testing::WithParamInterface<Mode> {
 protected:
  void SetUp() override {
    if (!sim::IsTimeVirtual()) GTEST_SKIP() << "takes too long in real time";
    config.model = mode_.model;
    config.baud_rate = 115200;
    DeviceRig::Install();
    sim::WriteTextFile("/var/nvt/camera.info", "");
    AttachModel();
    tick_every = milliseconds(20);
    const auto answer = far_end->on_answer;
    // The answers of a head would mix with the numbered bytes.
    far_end->on_answer = [this, answer](auto bytes) {
      if (is_lens_ || !is_serving_) answer(bytes);
    };
    far_end->on_frame = [this](auto frame) { TakeFrame(sim::Hex(frame) + " "); };
    far_end->on_noise = [this](auto bytes) { TakeUp(bytes); };
    Watch(data_.Fd(), [this] { TakeData(); });
    Watch(syslog.Fd(), [this] { syslog.WaitFor("", milliseconds(0)); });
    present_ = Present();
  }

  size_t Roll(size_t low, size_t high) {
    return std::uniform_int_distribution<size_t>(low, high)(random_);
  }

  void Expect(bool is_so, const std::string& what) {
    if (is_so) return;
    ADD_FAILURE() << mode_.name << ", seed " << seed_ << ", life " << counts_["lives"] << ", after "
                  << (Clock::now() - start_) / milliseconds(1) << " ms: " << what;
  }
  template <typename Condition>
  void Await(Condition condition, const std::string& what) {
    // The lens mode serves nothing else during a reset.
    constexpr milliseconds kLimit{60'000};
    Expect(HasFailure() || sim::WaitUntil(condition, kLimit), what);
  }

  // --- Output ---

  void TakeFrame(const std::string& frame) {
    if (!is_serving_ || is_lens_) return;
    Expect(awaited_.starts_with(frame), "frame " + frame + "instead of " + awaited_);
    awaited_.erase(0, frame.size());
    ++counts_["frames"];
  }

  static Bytes NextBytes(size_t source, size_t* place, size_t size) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes)
      byte = static_cast<uint8_t>(source * kAlphabetSize + (*place)++ % kPeriod);
    return bytes;
  }

  void Take(std::span<const uint8_t> bytes, size_t source, size_t* place, size_t sent) {
    const bool are_next = std::ranges::equal(bytes, NextBytes(source, place, bytes.size()));
    counts_["bytes"] += std::ssize(bytes);
    if (are_next && *place <= sent) return;
    Expect(false,
           "unexpected bytes before byte " + std::to_string(*place) + ": " + sim::Hex(bytes));
  }

  void TakeUp(std::span<const uint8_t> bytes) {
    for (const uint8_t byte : bytes) {
      const size_t source = std::min(byte / kAlphabetSize, kDatagrams);
      Take({&byte, 1}, source, &sources_[source].arrived, sources_[source].sent);
    }
  }

  void TakeData() {
    const auto bytes = sim::DecodeSerialData(data_.Receive(milliseconds(0)).value_or(Bytes()));
    Expect(bytes.has_value(), "not a serial data datagram");
    if (is_serving_ && bytes.has_value()) Take(*bytes, 0, &down_arrived_, down_sent_);
  }

  void TakeClient(Source* source) {
    std::array<uint8_t, 4096> bytes;
    const ssize_t count = recv(source->client->Fd(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) {
      Expect(source->is_leaving, "a client was dropped");
      Drop(source);
    } else if (!is_lens_) {
      Take(std::span(bytes).first(static_cast<size_t>(count)), 0, &source->next, down_sent_);
    }
  }

  // --- Input ---

  void SendUp(size_t index, size_t size) {
    Source& source = sources_[index];
    if (source.sent - source.arrived > kWindow || source.is_leaving) return;
    const Bytes bytes = NextBytes(index, &source.sent, size);
    if (source.client.has_value()) {
      source.client->Send(bytes);
    } else {
      SendUdp(sim::DaemonDatagram(RS232_UDP_WRITE, bytes));
    }
  }

  void SendDown(size_t size) {
    if (is_lens_ || down_sent_ - down_arrived_ > 2 * kWindow) return;
    line.Send(NextBytes(0, &down_sent_, size));
  }

  // True if all datagrams were served: more must not exceed the receive buffers, even while a lens
  // is busy.
  bool IsServed() const { return sources_[kDatagrams].sent == sources_[kDatagrams].arrived; }

  void SendCommand(size_t roll) {
    if (!IsServed() || awaited_.size() > kSomeFrames) return;
    const Command& command = commands_[roll % commands_.size()];
    awaited_ += command.frames;
    const auto [first, second, third] = command.parameters;
    Control(command.code, first, second, third);
    ++counts_["commands"];
  }

  // Sends a command for another target or with an unknown number, or garbage.
  void SendHostile(size_t roll) {
    if (!IsServed()) return;
    constexpr size_t kLarge = 60'000;
    constexpr size_t kCommandAt = 8;
    const auto [first, second, third] = commands_[0].parameters;
    CameraControl control = sim::Control(commands_[0].code, first, second, third);
    if (roll % 2 == 0) ++control.target;
    Bytes packet = sim::CameraControlPacket(control);
    if (roll % 2 == 1) ++packet[kCommandAt];
    DeviceRig::SendCommand(packet);
    Bytes nonsense(roll % 4 == 0 ? kLarge : roll, 0x6F);
    SendUdp(nonsense);
    DeviceRig::SendCommand(nonsense);
    SendUp(kDatagrams, 1);
    ++counts_["hostile packets"];
  }

  void PassQuietly(size_t ms) { Serve(Clock::now() + milliseconds(ms)); }

  // Lets time pass, with traffic.
  void Pass(size_t steps) {
    constexpr int64_t kMinuteNs = 60'000'000'000;
    for (size_t i = 0; i < steps && !HasFailure(); ++i) {
      const size_t what = Roll(0, 99);
      const size_t roll = Roll(1, 300);
      if (what < 40) SendDown(roll);
      if (what >= 40 && what < 80) SendUp(what % sources_.size(), roll);
      if (what >= 80 && what < 95) SendCommand(roll);
      if (what >= 95 && what < 98) SendHostile(roll);
      if (what >= 98)
        sim::VirtualTime()->set_wall_offset(kMinuteNs * (static_cast<int64_t>(roll) * 5 - 750));
      PassQuietly(roll / (is_lens_ ? 2 : 10));
    }
  }

  bool IsSettled() const {
    const auto has_all = [this](const Source& source) {
      const bool has_line = !source.client.has_value() || source.next == down_sent_;
      return source.arrived == source.sent && has_line;
    };
    return awaited_.empty() && down_arrived_ == down_sent_ &&
           std::ranges::all_of(sources_, has_all);
  }
  // Waits until all input has come out.
  void Settle() {
    Await([this] { return IsSettled(); }, "some bytes did not come out");
  }

  // Gives up all bytes in transit.
  void Forget() {
    down_arrived_ = down_sent_;
    for (Source& source : sources_) {
      source.arrived = source.sent;
      source.next = down_sent_;
    }
    awaited_.clear();
  }

  // --- Clients ---

  void Resume(Source* source) {
    source->is_leaving = false;
    Watch(source->client->Fd(), [this, source] { TakeClient(source); });
  }

  // Connects a client, which must receive all later bytes.
  void Connect(size_t index) {
    Settle();
    if (HasFailure()) return;
    Source* source = &sources_[index];
    source->client.emplace(config.ptz_port, kReceiveBuffer);
    // A close resets the connection, unless the daemon has closed it.
    const linger at_once = {.l_onoff = 1, .l_linger = 0};
    setsockopt(source->client->Fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    source->next = down_sent_;
    Resume(source);
    SendUp(index, 1);
    Settle();
    ++counts_["clients"];
  }
  void ConnectAll() {
    for (size_t i = 0; i < kClients; ++i)
      Connect(i);
  }

  void Drop(Source* source) {
    Unwatch(source->client->Fd());
    source->client.reset();
    source->is_leaving = true;
  }
  void AwaitClients(size_t count) {
    Await([&] { return sim::DescriptorCount(daemon->Pid()) == descriptors_ + count; },
          "the number of clients is not " + std::to_string(count));
    PassQuietly(1);
  }

  // Leaves with a reset, or after a shutdown that lets all bytes arrive.
  void LeaveAndReturn() {
    const size_t index = Roll(0, kClients - 1);
    if (Roll(0, 1) == 0) {
      Settle();
      Drop(&sources_[index]);
    } else {
      sources_[index].is_leaving = true;
      shutdown(sources_[index].client->Fd(), SHUT_WR);
    }
    AwaitClients(kClients - 1);
    Connect(index);
  }

  // Connects more clients than the server accepts: exactly the maximum must stay.
  void Crowd() {
    std::vector<sim::PtzClient> crowd;
    for (size_t i = Roll(0, 2); i <= kMostClients + 2 - kClients; ++i)
      crowd.emplace_back(config.ptz_port);
    Pass(20);
    AwaitClients(kMostClients);
    crowd.clear();
    AwaitClients(kClients);
  }

  // A client that stops reading receives everything when it reads again, unless it is dropped, 10 s
  // after it last accepted bytes. The kernel may accept some bytes for it meanwhile.
  void StopReading() {
    if (is_lens_) return;
    constexpr size_t kMoreThanFits = 1000;
    constexpr size_t kEightSeconds = 530;  // number of steps
    const size_t index = Roll(0, kClients - 1);
    Source* source = &sources_[index];
    const bool returns = Roll(0, 1) == 0;
    Unwatch(source->client->Fd());
    source->is_leaving = true;
    for (size_t i = 0; i < kMoreThanFits; ++i) {
      SendDown(200);
      PassQuietly(2);
    }
    Pass(returns ? Roll(1, kEightSeconds) : kEightSeconds);
    AwaitClients(kClients);
    if (returns) {
      Resume(source);
      sim::WaitUntil([&] { return source->next == down_sent_; }, milliseconds(1000));
      // The kernel reopens a full window with a real-time timer, while the virtual clock stands
      // still.
      for (const double end = support::RealSeconds() + 10;
           source->next < down_sent_ && support::RealSeconds() < end;)
        TakeClient(source);
    } else {
      AwaitClients(kClients - 1);
      Drop(source);
      Connect(index);
    }
    Settle();
    ++counts_["stopped clients"];
  }

  // --- Line and lens ---

  void LoseLine() {
    if (is_lens_) RestLens();
    if (is_lens_ || Roll(0, 1) == 0) Settle();
    line.HangUp();
    ExpectQuiet(Roll(2000, 4000), "without a line");
    line = sim::PtyLine(config.serial_path);
    Await([&] { return line.Settings().c_lflag == 0; }, "no new line");
    PassQuietly(100);
    Forget();
    ++counts_["lost lines"];
  }

  const sim::LensMicom& Lens() const { return static_cast<const sim::LensMicom&>(*far_end); }
  long LostSteps() const { return Lens().Zoom().Lost() + Lens().Focus().Lost(); }
  size_t CountInOutput(const char* text) const { return sim::CountOf(text, daemon->Output()); }

  // Stops all motion, waits for the save, and compares the positions with the lens.
  void RestLens() {
    Settle();
    constexpr char kOpened[] = "+PIRIS_STEP_SINGLE (open)";
    const size_t opened = CountInOutput(kOpened);
    // A focus move ends a search; the iris step is executed after everything else.
    Control(CAMERA_CODE_ZOOM);
    Control(CAMERA_CODE_FOCUS, 1);
    Control(CAMERA_CODE_FOCUS);
    Control(CAMERA_CODE_IRIS_STEP, 1);
    Await([&] { return CountInOutput(kOpened) > opened && !far_end->IsMoving(); }, "no rest");
    const auto [zoom, focus, iris] = Lens().Pose();
    Expect(sim::ReadWholePositions() == std::pair(zoom, focus),
           "the saved positions differ from the lens: " + far_end->Describe());
    Expect(LostSteps() == lost_steps_, "steps lost");
    ++counts_["rests of the lens"];
  }

  // A killed daemon did not save the positions, so the lens needs a reset.
  void FindLens() {
    Control(CAMERA_CODE_ASSIST);
    Await([&] { return CountInOutput("TRACE\t") > 0; }, "the search did not end");
    lost_steps_ = LostSteps();
  }

  // --- Lives ---

  void ExpectQuiet(size_t ms, const std::string& when) {
    PassQuietly(500);
    const uint64_t before = sim::VirtualTime()->waits(daemon->Pid());
    PassQuietly(ms);
    const uint64_t waits = sim::VirtualTime()->waits(daemon->Pid()) - before;
    Expect(waits <= (ms / 1000 + 1) * mode_.idle_waits,
           std::to_string(waits) + " waits " + when + " in " + std::to_string(ms) + " ms");
  }

  double MemoryKib() const { return sim::MemoryOf(daemon->Pid()).anonymous_kib; }

  // Without clients and traffic, the daemon must hold the same resources as before.
  void StandStill() {
    if (is_lens_) RestLens();
    Settle();
    for (size_t i = 0; i < kClients; ++i)
      Drop(&sources_[i]);
    AwaitClients(0);
    ExpectQuiet(2000, "while idle");
    Expect(!sim::IsParamFileLocked() && semget(PARAM_BLOCK_KEY, 1, 0) < 0, "a lock is held");
    const bool is_known = memory_kib_ > 0 && memory_kib_ < kMostKib;
    Expect(!is_known || MemoryKib() <= memory_kib_ + kMostGrowthKib,
           "memory grew to " + std::to_string(MemoryKib()) + " KiB");
    ConnectAll();
  }

  void StartLife() {
    line.SetSettings(own_settings_);
    Launch();
    Expect(WaitServing(), "does not serve: " + daemon->Errors());
    if (HasFailure()) return;
    SendUp(kDatagrams, 1);
    Await([&] { return IsServed(); }, "no loop");
    // Meanwhile a module answers the start-up queries. Queries of the lens mode to the camera
    // daemon use a descriptor now and then.
    descriptors_ = SIZE_MAX;
    for (int i = 0; i < 100; ++i) {
      PassQuietly(10);
      descriptors_ = std::min(descriptors_, sim::DescriptorCount(daemon->Pid()));
    }
    Forget();
    is_serving_ = true;
    memory_kib_ = 0;
    ConnectAll();
  }

  void EndLife(int how) {
    const bool is_kill = how == SIGKILL;
    if (is_lens_ && !is_kill) RestLens();
    if (Roll(0, 1) == 0) Settle();
    for (Source& source : sources_)
      source.is_leaving = true;
    if (how == 0) {
      SendUdp(sim::DaemonDatagram(RS232_UDP_STOP));
    } else {
      daemon->Signal(how);
    }
    const int status = daemon->WaitEnd().value_or(-1);
    Expect(status == (is_kill ? -SIGKILL : 0), "exit status " + std::to_string(status));
    PassQuietly(100);
    Forget();
    is_serving_ = false;
    sources_[kDatagrams].is_leaving = false;
    for (const Source& source : sources_)
      Expect(!source.client.has_value(), "a client was not disconnected");
    if (is_kill) std::filesystem::remove(CUTIL_TEMP_CONF_PATH);
    Await([&] { return Present() == present_; }, "a file or a process was left behind");
    const termios settings = line.Settings();
    Expect(is_kill || memcmp(&settings, &own_settings_, sizeof(settings)) == 0,
           "the line settings were not restored");
  }

  void Live(size_t events) {
    constexpr auto kEvents = std::to_array<void (LongLife::*)()>(
        {&LongLife::LeaveAndReturn, &LongLife::LeaveAndReturn, &LongLife::Crowd,
         &LongLife::StopReading, &LongLife::LoseLine, &LongLife::StandStill});
    constexpr size_t kWarm = 12;  // all buffers have been used
    for (size_t i = 0; i < events && !HasFailure(); ++i) {
      if (i == kWarm) StandStill();
      if (i == kWarm) memory_kib_ = MemoryKib();
      Pass(Roll(1, 100));
      (this->*kEvents[Roll(0, kEvents.size() - 1)])();
    }
    if (!HasFailure()) StandStill();
  }

  const Mode& mode_ = GetParam();
  const bool is_lens_ = std::string(mode_.name) == "lens";
  const uint32_t seed_ = static_cast<uint32_t>(Variable("RS232_LIFE_SEED", 1));
  std::mt19937 random_{seed_};
  std::vector<Command> commands_;
  const termios own_settings_ = line.Settings();
  std::set<std::string> present_;
  sim::UdpPeer data_{SERIAL_DATA_PORT};
  std::array<Source, kClients + 1> sources_;
  size_t down_sent_ = 0;
  size_t down_arrived_ = 0;  // received in datagrams
  std::string awaited_;      // expected frames, in hexadecimal
  bool is_serving_ = false;
  const Clock::time_point start_ = Clock::now();
  size_t descriptors_ = 0;  // without clients
  double memory_kib_ = 0;   // after kWarm events
  long lost_steps_ = 0;
  std::map<std::string, long> counts_;
};

TEST_P(LongLife, LosesNothing) {
  std::ranges::copy_if(kCommands, std::back_inserter(commands_),
                       [this](const Command& command) { return command.mode == mode_.name; });
  const double seconds = Variable("RS232_LIFE_SECONDS", 0);
  const double end = support::RealSeconds() + seconds;
  // One of three lives is long enough to detect memory growth.
  const size_t long_life = seconds == 0 ? 40 : 400;
  do {
    for (const int how : {SIGTERM, SIGKILL, 0}) {
      ++counts_["lives"];
      StartLife();
      if (is_lens_ && how == 0) FindLens();  // after a kill
      if (!HasFailure()) Live(how == SIGKILL ? long_life : 8);
      if (HasFailure()) break;
      EndLife(how);
    }
  } while (support::RealSeconds() < end && !HasFailure());
  printf("%s: seed %u", mode_.name, seed_);
  for (const auto& [what, count] : counts_)
    printf(", %ld %s", count, what.c_str());
  printf(", %ld s\n", static_cast<long>((Clock::now() - start_) / std::chrono::seconds(1)));
}

INSTANTIATE_TEST_SUITE_P(Modes, LongLife, testing::ValuesIn(kModes),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
