#include <dlfcn.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "context/rs232_context.h"
#include "serial/serial_io.h"
#include "serial/serial_port.h"
#include "sim/pty_line.h"
#include "tests/support.h"

namespace {

// What was last asked of a terminal. A pty forgets character size and parity, so what it says
// of itself afterwards is not enough.
termios g_asked;
int g_asked_when = -1;

// A driver as a pty has none: what it answers while bytes leave the line.
struct SlowDriver {
  int status_error = 0;  // of a query of the transmitter; 0 when it can tell
  int busy = 0;          // how many queries of either kind find bytes still under way
  int queued = 0;        // bytes in its queue while it is busy
  int status_queries = 0;
  int drains = 0;
};
SlowDriver* g_driver = nullptr;

// Returns the ioctl's result.
int AnswerQuery(unsigned long request, void* out) {
  const bool is_busy = g_driver->busy != 0;
  if (request == TIOCSERGETLSR) {
    ++g_driver->status_queries;
    if (g_driver->status_error != 0) {
      errno = g_driver->status_error;
      return -1;
    }
    *static_cast<unsigned int*>(out) = is_busy ? 0 : TIOCSER_TEMT;
  } else {
    *static_cast<int*>(out) = is_busy ? g_driver->queued : 0;
  }
  if (g_driver->busy > 0) --g_driver->busy;
  return 0;
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  static const auto next =
      reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
  va_list arguments;
  va_start(arguments, request);
  void* const out = va_arg(arguments, void*);
  va_end(arguments);
  const bool is_query = request == TIOCSERGETLSR || request == TIOCOUTQ;
  return g_driver != nullptr && is_query ? AnswerQuery(request, out) : next(fd, request, out);
}

extern "C" int tcdrain(int fd) {
  static const auto next = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "tcdrain"));
  if (g_driver != nullptr) ++g_driver->drains;
  return next(fd);
}

extern "C" int tcsetattr(int fd, int when, const termios* settings) noexcept {
  static const auto next =
      reinterpret_cast<int (*)(int, int, const termios*)>(dlsym(RTLD_NEXT, "tcsetattr"));
  g_asked = *settings;
  g_asked_when = when;
  return next(fd, when, settings);
}

namespace {

using sim::Bytes;
using sim::PtyLine;
using sim::WaitUntil;
using std::string;
using support::ExpectTakes;
using support::OnStdout;

constexpr char kPath[] = "/dev/ttyS1";
constexpr SerialLine kLine = {.baud_rate = 9600, .data_bits = 8, .parity = 0, .stop_bits = 1};

// What matters of line settings, besides the control flags.
std::vector<tcflag_t> Fields(const termios& settings) {
  return {settings.c_iflag,     settings.c_oflag,       settings.c_lflag,      settings.c_cc[VMIN],
          settings.c_cc[VTIME], cfgetispeed(&settings), cfgetospeed(&settings)};
}

// Bytes that wait to be read.
int Waiting(int fd) {
  int count = -1;
  ioctl(fd, FIONREAD, &count);
  return count;
}

class Serial : public testing::Test {
 protected:
  ~Serial() override {
    g_rs232_context.trace_level = 0;
    CloseRS232();
    if (port_.Close != nullptr) port_.Close(&port_);
  }
  // The daemon's own port on the line.
  void OpenDaemonPort() {
    sim::WriteTextFile(SERIAL_CAPABILITIES_PATH, string(SERIAL_DEVICE_KEY) + "=" + kPath + "\n");
    ASSERT_GE(OpenRS232(kLine), 0);
  }
  // Sends to the daemon and waits until the bytes are there.
  void SendIn(const Bytes& bytes) {
    line_.Send(bytes);
    ASSERT_TRUE(WaitUntil(
        [&] { return Waiting(g_rs232_context.serial) == static_cast<int>(bytes.size()); }));
  }

  PtyLine line_{kPath};
  SerialPort port_ = {};
};

TEST_F(Serial, SetsTheLine) {
  const std::tuple<SerialLine, speed_t, tcflag_t> rows[] = {
      {{1200, 5, 0, 1}, B1200, CS5},
      {{2400, 6, 1, 2}, B2400, CS6 | PARENB | CSTOPB},
      {{4800, 7, 2, 1}, B4800, CS7 | PARENB | PARODD},
      {{9600, 8, 0, 2}, B9600, CS8 | CSTOPB},
      {{19200, 8, 1, 1}, B19200, CS8 | PARENB},
      {{38400, 8, 2, 2}, B38400, CS8 | PARENB | PARODD | CSTOPB},
      {{57600, 7, 1, 1}, B57600, CS7 | PARENB},
      {{115200, 8, 0, 1}, B115200, CS8},
      // Anything else.
      {{14400, 9, 3, 0}, B9600, CS8},
      {{0, 0, -1, 3}, B9600, CS8},
      {{-115200, 4, 4, -2}, B9600, CS8},
      {{230400, 80, 0x101, 0x102}, B9600, CS8},
  };
  for (const auto& [line, speed, bits] : rows) {
    ASSERT_EQ(SerialPortOpen(&port_, kPath, line), 0);
    const tcflag_t no_parity = (bits & PARENB) == 0 ? IGNPAR : 0;
    const std::vector<tcflag_t> fields = {no_parity, 0, 0, 1, 0, speed, speed};
    EXPECT_EQ(Fields(line_.Settings()), fields) << line.baud_rate;
    EXPECT_EQ(Fields(g_asked), fields) << line.baud_rate;
    EXPECT_EQ(g_asked.c_cflag & ~static_cast<tcflag_t>(CBAUD | CIBAUD), bits | CLOCAL | CREAD);
    EXPECT_EQ(g_asked_when, TCSANOW);
    port_.Close(&port_);
  }
}

TEST_F(Serial, OpensWhatTheCapabilitiesName) {
  const std::pair<string, bool> rows[] = {
      {string("Serial.1.DevPath=/dev/none\nSerial.2.DevPath = \"") + kPath + "\"\n", true},
      {"Serial.2.DevPath=/dev/none\n", false},
  };
  for (const auto& [capabilities, opens] : rows) {
    sim::WriteTextFile(SERIAL_CAPABILITIES_PATH, capabilities);
    const int fd = OpenRS232(kLine);
    EXPECT_EQ(fd >= 0, opens) << capabilities;
    EXPECT_EQ(g_serial_port.load() != nullptr, opens);
    EXPECT_EQ(g_rs232_context.serial, fd);
    EXPECT_EQ(CloseRS232(), 0);
    EXPECT_EQ(g_serial_port.load(), nullptr);
    EXPECT_EQ(g_rs232_context.serial, -1);
  }
}

TEST_F(Serial, DropsWhatCameBeforeItWasOpen) {
  OpenDaemonPort();
  SendIn({1, 2, 3});
  ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
  EXPECT_EQ(Waiting(port_.fd), 0);
}

TEST_F(Serial, ReadsOnce) {
  uint8_t buffer[8];
  EXPECT_EQ(OnStdout([&] { return SerialPortOpen(&port_, "/dev/none", kLine); }), "-1 ");
  EXPECT_EQ(port_.Read(&port_, buffer, 8, 60000), -2);
  EXPECT_EQ(port_.Read(&port_, nullptr, 8, 60000), -2);
  EXPECT_EQ(port_.Write(&port_, "x", 1), -1);
  OpenDaemonPort();
  const auto read = [](void* into, int ms) {
    SerialPort* const port = g_serial_port.load();
    return port->Read(port, into, 8, ms);
  };
  EXPECT_EQ(read(nullptr, 60000), -3);
  for (const int ms : {0, 120, 1050})
    ExpectTakes(ms, [&] { EXPECT_EQ(read(buffer, ms), -5); });
  SendIn({0x00, 0x11, 0x13, 0x0D, 0x0A, 0x03, 0x04, 0xFF, 0x7F, 0x1A});  // all as they come
  EXPECT_EQ(read(buffer, 60000), 8);
  EXPECT_EQ(sim::Hex(buffer), "00 11 13 0D 0A 03 04 FF");
  EXPECT_EQ(read(buffer, 60000), 2);
  line_.HangUp();
  EXPECT_EQ(read(buffer, 60000), 0);
  // Readable, but not in pieces of this size.
  port_.fd = eventfd(1, EFD_CLOEXEC);
  EXPECT_EQ(port_.Read(&port_, buffer, 4, 60000), -1);
}

TEST_F(Serial, WritesInOneGo) {
  ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
  const Bytes bytes = {0x00, 0x0A, 0x0D, 0x11, 0x13, 0xFF};
  EXPECT_EQ(port_.Write(&port_, bytes.data(), 6), 6);
  EXPECT_EQ(line_.Receive(6), bytes);
  // Far more than the line takes: what does not fit is left, and nobody waits for a reader.
  const Bytes flood(1 << 20, 0x55);
  int written = 0;
  ExpectTakes(0, 20000, [&] { written = port_.Write(&port_, flood.data(), 1 << 20); });
  EXPECT_TRUE(written > 0 && written < 1 << 20) << written;
  EXPECT_EQ(line_.Receive(static_cast<size_t>(written)).size(), static_cast<size_t>(written));
}

// What a write waits for, and for how long, by what the driver tells.
TEST_F(Serial, WaitsUntilTheLineIsIdle) {
  constexpr int kForever = -1;
  constexpr int kMarginMs = 200;
  constexpr int kSlackMs = 500;
  const struct {
    const char* legend;
    SlowDriver driver;
    int stop;
    int least_ms;
    int status_queries;  // of two writes, the second to an idle line; -1 for any number
    int drains;          // of both
  } rows[] = {
      {"idle at once", {0, 0, 0}, 0, 0, 2, 0},
      {"busy for 50 queries", {0, 50, 0}, 0, 0, -1, 0},
      {"never idle: a margin past the line's 4 ms", {0, kForever, 0}, 0, kMarginMs + 3, -1, 0},
      {"never idle: a margin past the queue's 500 ms", {0, kForever, 400}, 0, 700, -1, 0},
      {"cut short by signals: asked again", {EINTR, 0, 0}, 0, kMarginMs + 3, -1, 0},
      {"cannot tell, not asked again", {ENOTTY, 0, 0}, 0, 0, 1, 2},
      {"hung up, not asked again", {EIO, 0, 0}, 0, 0, 1, 2},
      {"cannot tell, a queue of 100 looks", {ENOTTY, 100, 9}, 0, 95, 1, 2},
      {"cannot tell, a queue that stays", {ENOTTY, kForever, 400}, 0, 700, 1, 1},
      {"never idle, told to end", {0, kForever, 4000}, 1, 1000, -1, 0},
      {"a queue that stays, told to end", {ENOTTY, kForever, 4000}, 1, 1000, 1, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    ASSERT_EQ(SerialPortOpen(&port_, kPath, kLine), 0);
    SlowDriver driver = row.driver;
    g_driver = &driver;
    g_rs232_stop = row.stop;
    const auto start = sim::Clock::now();
    EXPECT_EQ(port_.Write(&port_, "abc", 3), 3);
    const std::chrono::duration<double, std::milli> taken = sim::Clock::now() - start;
    EXPECT_GE(taken.count(), row.least_ms);
    EXPECT_LT(taken.count(), row.least_ms + kSlackMs);
    if (driver.busy == kForever) driver.busy = 0;
    EXPECT_EQ(port_.Write(&port_, "abc", 3), 3);
    EXPECT_EQ(driver.busy, 0);
    if (row.status_queries >= 0) {
      EXPECT_EQ(driver.status_queries, row.status_queries);
    }
    EXPECT_EQ(driver.drains, row.drains);
    g_rs232_stop = 0;
    g_driver = nullptr;
    line_.Receive(6);
    port_.Close(&port_);
  }
}

// --- Send, receive, trace ------------------------------------------------------------------------

constexpr size_t kStampWidth = 21;

TEST_F(Serial, PrintsTraceLines) {
  string hex;
  for (int i = 0; i < 5120; ++i)
    hex += "A5 ";
  const Bytes bytes(5120, 0xA5);
  const std::pair<int, string> rows[] = {
      {3, "   RECV    3: A5 A5 A5 \n"},
      {-5, "   RECV   -5: \n"},
      {5120, "   RECV 5120: " + hex + '\n'},
  };
  for (const auto& row : rows) {
    // Early in a second, when the microseconds have fewer digits than columns.
    timeval now;
    ASSERT_TRUE(WaitUntil([&] { return gettimeofday(&now, nullptr), now.tv_usec < 50000; }));
    const string line = OnStdout([&] { SerialTrace("RECV", bytes.data(), row.first); });
    ASSERT_GT(line.size(), kStampWidth);
    EXPECT_EQ(line.substr(kStampWidth), row.second);
    char second[32];
    strftime(second, sizeof(second), "%m/%d %H:%M:%S.", localtime(&now.tv_sec));
    EXPECT_EQ(line.substr(0, 15), second);
    const int microseconds = std::stoi(line.substr(15, 6));
    char columns[16];
    snprintf(columns, sizeof(columns), "%6d", microseconds);
    EXPECT_EQ(line.substr(15, 6), columns);
    EXPECT_NEAR(microseconds, static_cast<int>(now.tv_usec), 49999);
  }
}

TEST_F(Serial, FailsWhileClosed) {
  g_rs232_context.trace_level = 1;
  char byte = 'x';
  EXPECT_EQ(OnStdout([&] {
              EXPECT_EQ(SerialSend(1, "x", 1), -1);
              EXPECT_EQ(SerialRecv(0, &byte, 1, 60), -1);
              OpenDaemonPort();
              EXPECT_EQ(SerialSend(1, nullptr, 1), -1);
              EXPECT_EQ(SerialRecv(0, nullptr, 1, 60), -1);
            }),
            "");
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

// The terminal refuses a non-blocking write that meets another one.
TEST_F(Serial, WritersLoseNoFrameToEachOther) {
  OpenDaemonPort();
  constexpr int kFrames = 20000;
  constexpr size_t kMostOnTheWay = 2000;
  std::atomic<int> lost = 0;
  std::atomic<int> writing = 2;
  std::atomic<size_t> on_the_way = 0;
  const auto write_frames = [&] {
    for (int i = 0; i < kFrames; ++i) {
      // It also refuses what the far end leaves it no room for.
      while (on_the_way > kMostOnTheWay)
        std::this_thread::yield();
      on_the_way += 6;
      if (SerialSend(-1, "123456", 6) != 6) ++lost;
    }
    --writing;
  };
  std::thread first(write_frames);
  std::thread second(write_frames);
  while (writing > 0)
    on_the_way -= line_.Receive(4096, sim::milliseconds(1)).size();
  first.join();
  second.join();
  EXPECT_EQ(lost, 0);
}

TEST_F(Serial, ReceivesUntilItsDeadline) {
  OpenDaemonPort();
  g_rs232_context.trace_level = 1;
  for (const int limit_s : {0, 1}) {
    SendIn({9, 8});
    uint8_t buffer[6];
    string said;
    const auto receive = [&] { EXPECT_EQ(SerialRecv(-1, buffer, 6, limit_s), 2); };
    ExpectTakes(limit_s * 1000, 1400, [&] { said = OnStdout(receive); });
    EXPECT_EQ(sim::Hex({buffer, 2}), "09 08");
    // One line for the bytes, then one for each 100 ms that brought nothing.
    const auto lines = std::count(said.begin(), said.end(), '\n');
    EXPECT_TRUE(lines >= limit_s * 9 + 2 && lines <= limit_s * 10 + 12) << said;
    EXPECT_NE(said.find(" RECV   -5: \n"), string::npos) << said;
  }
  // A dead line is no reason to end, nor to spin.
  line_.HangUp();
  uint8_t byte = 0;
  const auto receive = [&] { return SerialRecv(-1, &byte, 1, 1); };
  ExpectTakes(1000, 1400, [&] { EXPECT_EQ(OnStdout(receive), "0 "); });
}

}  // namespace
