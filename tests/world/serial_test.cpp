#include <sys/eventfd.h>
#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <thread>

#include "context/rs232_context.h"
#include "relay/cfdevent.h"
#include "relay/line_source.h"
#include "serial/serial_io.h"
#include "serial/serial_port.h"
#include "sim/pty_line.h"
#include "sim/virtual_time.h"
#include "tests/support.h"
#include "tests/world/failing_call.h"
#include "util/cthread.h"

namespace {

// The last requested terminal settings. A pty does not keep character size and parity, so its own
// answer is not enough.
termios g_asked;

// Simulates a UART driver, which a pty lacks: its answers while bytes leave the line.
struct SlowDriver {
  int status_error;    // errno of a query of the transmitter; 0: supported
  int busy;            // number of queries of either kind until the line is idle; -1: never
  int queued;          // bytes in the queue while busy
  bool hangs = false;  // only a signal ends a drain or close
  int fifo = 0;        // value of `busy` after a flush
  bool changes_speed_of_bytes = false;
  int status_queries = 0;
  int drains = 0;
  int flushes = 0;  // of the output
};
SlowDriver* g_driver = nullptr;

// Returns the result of the ioctl.
int AnswerQuery(unsigned long request, void* out) {
  const bool is_busy = g_driver->busy != 0;
  const bool is_status = request == TIOCSERGETLSR;
  if (is_status) ++g_driver->status_queries;
  if (is_status && g_driver->status_error != 0) {
    errno = g_driver->status_error;
    return -1;
  }
  *static_cast<int*>(out) = is_status ? (is_busy ? 0 : TIOCSER_TEMT) : is_busy * g_driver->queued;
  if (g_driver->busy > 0) --g_driver->busy;
  return 0;
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const out = va_arg(arguments, void*);
  va_end(arguments);
  const bool is_query = request == TIOCSERGETLSR || request == TIOCOUTQ;
  return g_driver != nullptr && is_query ? AnswerQuery(request, out)
                                         : CallNext<int>("ioctl", fd, request, out);
}

// Writes to this descriptor take long enough to overlap with others.
int g_watched = -1;
std::atomic<int> g_under_way = 0;
std::atomic<int> g_meetings = 0;

extern "C" ssize_t write(int fd, const void* bytes, size_t size) {
  if (fd != g_watched) return CallNext<ssize_t>("write", fd, bytes, size);
  if (++g_under_way > 1) ++g_meetings;
  for (int i = 0; i < 200; ++i)
    std::this_thread::yield();
  const auto written = CallNext<ssize_t>("write", fd, bytes, size);
  --g_under_way;
  return written;
}

extern "C" int tcdrain(int fd) {
  if (g_driver != nullptr) ++g_driver->drains;
  if (g_driver != nullptr && g_driver->hangs) return pause();
  return CallNext<int>("tcdrain", fd);
}

extern "C" int tcflush(int fd, int queue) noexcept {
  if (g_driver != nullptr && queue == TCOFLUSH) {
    ++g_driver->flushes;
    g_driver->busy = g_driver->fifo;
  }
  return CallNext<int>("tcflush", fd, queue);
}

extern "C" int close(int fd) {
  if (g_driver != nullptr && g_driver->hangs && fd == g_watched) pause();
  return CallNext<int>("close", fd);
}

// Simulates a driver that rejects settings.
bool g_refuses = false;

extern "C" int tcsetattr(int fd, int when, const termios* settings) noexcept {
  g_asked = *settings;
  if (g_driver != nullptr) g_driver->changes_speed_of_bytes |= g_driver->busy != 0;
  if (g_refuses) return 0;
  return CallNext<int>("tcsetattr", fd, when, settings);
}

namespace {

using WallClock = std::chrono::system_clock;
using sim::Bytes;
using sim::PtyLine;
using sim::WaitUntil;
using std::string;
using support::ExpectTakes;
using support::OnStdout;

constexpr char kPath[] = "/dev/ttyS1";
constexpr SerialLine kLine = {.baud_rate = 9600, .data_bits = 8, .parity = 0, .stop_bits = 1};

// Number of readable bytes.
int Waiting(int fd) {
  int count = -1;
  ioctl(fd, FIONREAD, &count);
  return count;
}

// Shifts the wall clock.
void SetWallClock(int64_t offset_ns) {
  if (sim::IsTimeVirtual()) sim::VirtualTime()->set_wall_offset(offset_ns);
}

uint64_t Waits() {
  return sim::VirtualTime() != nullptr ? sim::VirtualTime()->waits(getpid()) : 0;
}

class Serial : public testing::Test {
 protected:
  ~Serial() override {
    g_rs232_context.trace_level = 0;
    CloseRS232(&g_rs232_context);
    if (port_.Close != nullptr) port_.Close(&port_);
  }
  // Opens the daemon's port on the line.
  void OpenDaemonPort() {
    sim::WriteTextFile(SERIAL_CAPABILITIES_PATH, string(SERIAL_DEVICE_KEY) + "=" + kPath + "\n");
    ASSERT_GE(OpenRS232(&g_rs232_context, kLine), 0);
  }
  // Sends to the daemon and waits for the arrival, which takes the kernel real time, whatever the
  // virtual clock.
  void SendIn(const Bytes& bytes) {
    line_.Send(bytes);
    const int count = static_cast<int>(bytes.size());
    ASSERT_TRUE(WaitUntil([&] { return Waiting(g_rs232_context.serial) == count; },
                          sim::milliseconds(60000)));
  }

  PtyLine line_{kPath};
  SerialPort port_ = {};
};

TEST_F(Serial, ConfiguresTheLine) {
  const std::tuple<SerialLine, speed_t, tcflag_t> rows[] = {
      {{1200, 5, 0, 1}, B1200, CS5},
      {{2400, 6, 1, 2}, B2400, CS6 | PARENB | CSTOPB},
      {{4800, 7, 2, 1}, B4800, CS7 | PARENB | PARODD},
      {{9600, 8, 0, 2}, B9600, CS8 | CSTOPB},
      {{19200, 8, 1, 1}, B19200, CS8 | PARENB},
      {{38400, 8, 2, 2}, B38400, CS8 | PARENB | PARODD | CSTOPB},
      {{57600, 7, 1, 1}, B57600, CS7 | PARENB},
      {{115200, 8, 0, 1}, B115200, CS8},
      // Invalid settings.
      {{-115200, 4, 4, -2}, B9600, CS8},
      {{230400, 80, 0x101, 0x102}, B9600, CS8},
  };
  for (const auto& [line, speed, bits] : rows) {
    ASSERT_EQ(SerialPortOpen(&port_, kPath, line), 0);
    const tcflag_t no_parity = (bits & PARENB) == 0 ? IGNPAR : 0;
    const tcflag_t asked[] = {g_asked.c_iflag,      g_asked.c_oflag,     g_asked.c_lflag,
                              g_asked.c_cc[VMIN],   g_asked.c_cc[VTIME], cfgetispeed(&g_asked),
                              cfgetospeed(&g_asked)};
    EXPECT_TRUE(std::ranges::equal(asked, std::array{no_parity, 0U, 0U, 1U, 0U, speed, speed}));
    EXPECT_EQ(g_asked.c_cflag & ~static_cast<tcflag_t>(CBAUD | CIBAUD), bits | CLOCAL | CREAD);
    port_.Close(&port_);
  }
}

TEST_F(Serial, DiscardsInputFromBeforeTheOpen) {
  OpenDaemonPort();
  SendIn({1, 2, 3});
  ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
  EXPECT_EQ(Waiting(port_.fd), 0);
}

TEST_F(Serial, ReadsOnce) {
  uint8_t buffer[8];
  EXPECT_EQ(OnStdout([&] { return SerialPortOpen(&port_, "/dev/none", kLine); }), "-1 ");
  EXPECT_EQ(port_.Read(&port_, buffer, 8, 60000), -2);
  EXPECT_EQ(port_.Write(&port_, "x", 1), -1);
  OpenDaemonPort();
  const auto read = [](void* into, int ms) {
    SerialPort* const port = g_serial_port.load();
    return port->Read(port, into, 8, ms);
  };
  EXPECT_EQ(read(nullptr, 60000), -3);
  for (const int ms : {0, 120, 1050})
    ExpectTakes(ms, [&] { EXPECT_EQ(read(buffer, ms), -5); });
  SendIn({0x00, 0x11, 0x13, 0x0D, 0x0A, 0x03, 0x04, 0xFF, 0x7F, 0x1A});  // no byte is translated
  EXPECT_EQ(read(buffer, 60000), 8);
  EXPECT_EQ(sim::Hex(buffer), "00 11 13 0D 0A 03 04 FF");
  EXPECT_EQ(read(buffer, 60000), 2);
  line_.HangUp();
  EXPECT_EQ(read(buffer, 60000), 0);
  // Readable, but not in reads of this size.
  port_.fd = eventfd(1, EFD_CLOEXEC);
  EXPECT_EQ(port_.Read(&port_, buffer, 4, 60000), -1);
}

TEST_F(Serial, WritesInOneCall) {
  ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
  const Bytes bytes = {0x00, 0x0A, 0x0D, 0x11, 0x13, 0xFF};
  EXPECT_EQ(port_.Write(&port_, bytes.data(), 6), 6);
  EXPECT_EQ(line_.Receive(6), bytes);
  // Far more than the line accepts: the write is short and does not block.
  const Bytes flood(1 << 20, 0x55);
  const int written = port_.Write(&port_, flood.data(), 1 << 20);
  EXPECT_TRUE(written > 0 && written < 1 << 20) << written;
  EXPECT_EQ(line_.Receive(static_cast<size_t>(written)).size(), static_cast<size_t>(written));
}

// The wait after a write, depending on the answers of the driver.
TEST_F(Serial, WaitsUntilTheLineIsIdle) {
  constexpr int kForever = -1;
  constexpr int kMarginMs = 200;
  const struct {
    SlowDriver driver;
    int least_ms;
    int status_queries;  // for two writes, the second to an idle line; -1: any number
    int drains;          // for both writes
  } rows[] = {
      {{0, 0, 0}, 0, 2, 0},
      {{0, 50, 0}, 0, -1, 0},
      // A margin after the 4 ms on the line, or the 500 ms of the queue.
      {{0, kForever, 0}, kMarginMs + 3, -1, 0},
      {{0, kForever, 400}, kMarginMs + 500, -1, 0},
      {{EINTR, 0, 0}, kMarginMs + 3, -1, 0},
      // The daemon does not repeat an unsupported query.
      {{ENOTTY, 0, 0}, 0, 1, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
    SlowDriver driver = row.driver;
    g_driver = &driver;
    ExpectTakes(row.least_ms, [this] { EXPECT_EQ(port_.Write(&port_, "abc", 3), 3); });
    driver.busy = std::max(driver.busy, 0);
    EXPECT_EQ(port_.Write(&port_, "abc", 3), 3);
    EXPECT_EQ(driver.busy, 0);
    EXPECT_TRUE(row.status_queries < 0 || driver.status_queries == row.status_queries);
    EXPECT_EQ(driver.drains, row.drains);
    line_.Receive(6);
    port_.Close(&port_);
    EXPECT_EQ(driver.flushes, driver.status_error == EINTR);  // timeout: the rest is flushed
    g_driver = nullptr;
  }
}

// A stop with several frames pending. No byte may leave at the restored speed.
TEST_F(Serial, StopOnABusyLineTakesAtMostTwoSeconds) {
  constexpr int kForever = -1;
  for (const auto& [fifo, ms] : {std::pair(0, 1000), {50, 1000}, {kForever, 1700}}) {
    ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
    SlowDriver driver = {.status_error = 0, .busy = kForever, .queued = 4000, .fifo = fifo};
    g_driver = &driver;
    g_rs232_stop = 1;
    const auto stop = [this] {
      for (int i = 0; i < 3; ++i)
        port_.Write(&port_, "abc", 3);
      port_.Close(&port_);
    };
    ExpectTakes(ms, stop, 200);
    EXPECT_EQ(driver.flushes, 1);
    EXPECT_EQ(driver.changes_speed_of_bytes, fifo == kForever);
    g_rs232_stop = 0;
    g_driver = nullptr;
  }
}

// A device may open without being a working terminal.
TEST_F(Serial, LineIsBackWhenItAcceptsSettingsAndReads) {
  static CFDEVENT events;
  CFDEVENT_Init(&events);
  g_rs232_context.events = &events;
  g_rs232_context.settings = &g_rs232_settings;
  g_rs232_context.serial = -1;
  g_rs232_settings.parity = 1;  // a pty does not keep it
  const std::tuple<const char*, const char*, bool, string> rows[] = {
      {"/dev/none", "", false, ""},
      {"/dev/null", "", false, ""},
      {kPath, "read", false, ""},
      {kPath, "", true, ""},
      {kPath, "", false, "[LineSource] serial line is back\n"},
  };
  for (const auto& [path, failing, refuses, said] : rows) {
    sim::WriteTextFile(SERIAL_CAPABILITIES_PATH, string(SERIAL_DEVICE_KEY) + "=" + path + "\n");
    LineSource source;
    LineSourceInit(&source, &g_rs232_context);
    g_refuses = refuses;
    const auto serve = [&, call = failing] {
      const FailingCall failing_call(call, EIO);
      LineSourceServe(&source);
    };
    EXPECT_EQ(support::OnStderr(serve), said);
    EXPECT_EQ(g_serial_port != nullptr && g_rs232_context.serial >= 0, !said.empty());
    EXPECT_GT(LineSourceWaitLimitUs(source), 0);
  }
}

// Real time, because a real timer interrupts the driver; in a worker, because it blocks other
// signals.
using RealTimeSerial = Serial;
TEST_F(RealTimeSerial, GivesUpADrainThatHangs) {
  SlowDriver driver = {.status_error = ENOTTY, .busy = -1, .queued = 400, .hangs = true};
  g_driver = &driver;
  ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
  g_watched = port_.fd;
  CTHREAD worker;
  CTHREAD_Init(
      &worker, &port_, nullptr,
      [](void* port) {
        auto* const self = static_cast<SerialPort*>(port);
        EXPECT_EQ(self->Write(self, "abc", 3), 3);
        return -1;
      },
      nullptr);
  const auto begin = sim::Clock::now();
  EXPECT_EQ(worker.Start(&worker), 0);
  EXPECT_TRUE(WaitUntil([&] { return worker.state == CTHREAD_STOPPED; }));
  EXPECT_GE(sim::Clock::now() - begin,
            sim::milliseconds(700));  // 500 ms of the queue, and a margin
  port_.Close(&port_);
  g_watched = -1;
  EXPECT_EQ(driver.flushes, 1);
  g_driver = nullptr;
}

// --- Send, receive, trace ------------------------------------------------------------------------

TEST_F(Serial, PrintsTraceLines) {
  if (!sim::IsTimeVirtual()) GTEST_SKIP() << "needs a clock that stands still";
  string hex;
  for (int i = 0; i < 5120; ++i)
    hex += "A5 ";
  const Bytes bytes(5120, 0xA5);
  // After a wait, reading the clock takes no time.
  std::this_thread::sleep_for(sim::milliseconds(1));
  constexpr int64_t kShownNs = 1234567890'004567000;
  SetWallClock(kShownNs - std::chrono::nanoseconds(WallClock::now().time_since_epoch()).count());
  constexpr time_t kSecond = 1234567890;
  char second[32];
  strftime(second, sizeof(second), "%m/%d %H:%M:%S.", localtime(&kSecond));
  const string head = second + string("  4567   RECV");
  for (const auto& [count, text] : {std::pair(3, string("    3: A5 A5 A5 \n")),
                                    {-5, "   -5: \n"},
                                    {5120, " 5120: " + hex + '\n'}})
    EXPECT_EQ(OnStdout([&, size = count] { SerialTrace("RECV", bytes.data(), size); }),
              head + text);
}

// Before the first open and after a close.
TEST_F(Serial, FailsWhileClosed) {
  g_rs232_context.trace_level = 1;
  char byte = 'x';
  const auto fails = [](void* buffer) {
    const auto call = [buffer] { return SerialSend(1, buffer, 1) + SerialRecv(0, buffer, 1, 60); };
    return OnStdout(call) == "-2 ";
  };
  EXPECT_TRUE(fails(&byte));
  OpenDaemonPort();
  EXPECT_TRUE(fails(nullptr));
  EXPECT_EQ(CloseRS232(&g_rs232_context), 0);
  EXPECT_EQ(g_rs232_context.serial, -1);
  EXPECT_TRUE(fails(&byte));
}

TEST_F(Serial, ReceivesInPieces) {
  OpenDaemonPort();
  SendIn({1, 2, 3, 4});
  std::thread sender([this] {
    EXPECT_TRUE(WaitUntil([] { return Waiting(g_rs232_context.serial) == 0; }));
    line_.Send(Bytes{5, 6, 7});
  });
  g_rs232_context.trace_level = 1;
  uint8_t buffer[7] = {0, 0, 0, 0, 0, 0, 0xEE};
  const string said = OnStdout([&] { EXPECT_EQ(SerialRecv(-1, buffer, 6, 5), 6); });
  sender.join();
  EXPECT_EQ(sim::Hex(buffer), "01 02 03 04 05 06 EE");
  const size_t first = said.find("   RECV    4: 01 02 03 04 \n");
  ASSERT_NE(first, string::npos) << said;
  EXPECT_NE(said.find("   RECV    2: 05 06 \n", first), string::npos) << said;
}

// The terminal rejects a non-blocking write during another write.
TEST_F(Serial, SerializesWriters) {
  OpenDaemonPort();
  constexpr int kFrames = 50;
  g_watched = g_rs232_context.serial;
  const auto send_frames = [] {
    for (int i = 0; i < kFrames; ++i)
      SerialSend(-1, "123456", 6);
  };
  std::thread other(send_frames);
  send_frames();
  other.join();
  g_watched = -1;
  EXPECT_EQ(g_meetings, 0);
  EXPECT_EQ(line_.Receive(12 * kFrames).size(), 12U * kFrames);
}

// The deadline holds even if the clock is set back, as at boot.
TEST_F(Serial, ReceivesUntilItsDeadline) {
  OpenDaemonPort();
  g_rs232_context.trace_level = 1;
  for (const auto& [limit_s, is_set_back] : {std::pair(0, false), {1, false}, {1, true}}) {
    SendIn({9, 8});
    std::thread clock([set_back = is_set_back] {
      std::this_thread::sleep_for(sim::milliseconds(200));
      if (set_back) SetWallClock(int64_t{-3600} * 1'000'000'000);
    });
    uint8_t buffer[6];
    string said;
    const auto receive = [&, limit = limit_s] { EXPECT_EQ(SerialRecv(-1, buffer, 6, limit), 2); };
    ExpectTakes(
        limit_s * 1000, [&] { said = OnStdout(receive); }, 1400);
    clock.join();
    SetWallClock(0);
    EXPECT_EQ(sim::Hex({buffer, 2}), "09 08");
    // One line for the bytes, then one per 100 ms without any.
    const auto lines = std::count(said.begin(), said.end(), '\n');
    EXPECT_TRUE(lines >= limit_s * 9 + 2 && lines <= limit_s * 10 + 12) << said;
    EXPECT_NE(said.find(" RECV   -5: \n"), string::npos) << said;
  }
  // A lost line must cause neither an exit nor a busy loop.
  line_.HangUp();
  uint8_t byte = 0;
  const uint64_t waits = Waits();
  const auto receive = [&] { return SerialRecv(-1, &byte, 1, 1); };
  ExpectTakes(
      1000, [&] { EXPECT_EQ(OnStdout(receive), "0 "); }, 1400);
  EXPECT_LT(Waits() - waits, 1000U);
}

}  // namespace
