// The live screen of the virtual device, on a pty.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/unique_fd.h"
#include "sim/wait.h"
#include "tests/system/shell.h"

namespace {

using std::string;

constexpr char kEnterScreen[] = "\033[?1049h";
constexpr char kLeaveScreen[] = "\033[?1049l";
constexpr char kRight[] = "\033OC";

// "vdev run MODEL" on a terminal. High enough that no line of the panes is overwritten: what the
// terminal library sends is then what stands on the screen.
class Screen {
 public:
  explicit Screen(int rows = 90, const char* option = nullptr, const char* model = "QB-620") {
    winsize size = {};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = 120;
    int terminal = -1;
    pid_ = forkpty(&terminal, nullptr, nullptr, &size);
    if (pid_ == 0) {
      setenv("TERM", "xterm", 1);
      setenv("LC_ALL", "C.UTF-8", 1);
      execl(VDEV_PATH, "vdev", "run", model, option, nullptr);
      _exit(127);
    }
    terminal_.Reset(terminal);
    // Keeps the terminal alive, and readable, when vdev is gone.
    user_.Reset(open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }
  ~Screen() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  void Type(const char* keys) {
    ASSERT_EQ(write(terminal_.Get(), keys, strlen(keys)), static_cast<ssize_t>(strlen(keys)));
  }

  // Waits until `text` has come since the last one that was awaited.
  bool Await(const string& text) {
    return sim::WaitUntil([&] {
      Read();
      const size_t found = shown_.find(text, seen_);
      if (found == string::npos) return false;
      seen_ = found + text.size();
      return true;
    });
  }

  int WaitEnd() {
    int status = 0;
    const bool ended = sim::WaitUntil([&] {
      Read();
      return waitpid(pid_, &status, WNOHANG) == pid_;
    });
    if (!ended) return -1;
    pid_ = -1;
    Read();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  termios Settings() const {
    termios settings = {};
    tcgetattr(user_.Get(), &settings);
    return settings;
  }

  void Resize(int rows, int cols) {
    winsize size = {};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(cols);
    ioctl(user_.Get(), TIOCSWINSZ, &size);
  }

  // Runs a line of the shell in the world of the device.
  void Join(const string& command) const {
    Shell("$VDEV join --pid " + std::to_string(pid_) + " -- sh -c '" + command + "'");
  }

  const string& Shown() const { return shown_; }
  pid_t Pid() const { return pid_; }

 private:
  void Read() {
    char part[4096];
    pollfd source = {.fd = terminal_.Get(), .events = POLLIN, .revents = 0};
    while (poll(&source, 1, 0) > 0 && (source.revents & POLLIN) != 0) {
      const ssize_t count = read(terminal_.Get(), part, sizeof(part));
      if (count <= 0) return;
      shown_.append(part, static_cast<size_t>(count));
    }
  }

  sim::UniqueFd terminal_;
  sim::UniqueFd user_;
  pid_t pid_ = -1;
  string shown_;
  size_t seen_ = 0;
};

TEST(VdevScreen, KeyMovesTheHeadUntilItIsLetGo) {
  Screen screen;
  ASSERT_TRUE(screen.Await("where it looks")) << screen.Shown();
  screen.Type(kRight);
  // the far end's words, and the bytes
  EXPECT_TRUE(screen.Await("pan right at speed 24")) << screen.Shown();
  EXPECT_TRUE(screen.Await("FF 01 00 02 18 00 1B")) << screen.Shown();
  EXPECT_TRUE(screen.Await("FF 01 00 00 00 00 01")) << screen.Shown();
  screen.Type(":move 0 20 0\r");
  EXPECT_TRUE(screen.Await("tilt up at speed 9")) << screen.Shown();
  screen.Type("q");
  EXPECT_EQ(screen.WaitEnd(), 0);
}

TEST(VdevScreen, TerminalIsGivenBackHoweverItEnds) {
  const struct {
    const char* legend;
    void (*end)(Screen*);
    int status;
  } rows[] = {
      {"q", [](Screen* screen) { screen->Type("q"); }, 0},
      {"Ctrl-C", [](Screen* screen) { screen->Type("\003"); }, 0},
      {"SIGTERM", [](Screen* screen) { kill(screen->Pid(), SIGTERM); }, 0},
      {"the daemon dies",
       [](Screen* screen) {
         // its world may end before the command does
         screen->Join(
             "for p in /proc/[0-9]*; do read -r name < $p/comm; [ $name != rs232d ] ||"
             " kill -9 ${p##*/}; done");
       },
       1},
      {"the screen's process dies",
       [](Screen* screen) {
         screen->Join("read -r screen others </proc/1/task/1/children; kill -9 $screen");
       },
       128 + SIGKILL},
  };
  for (const auto& row : rows) {
    Screen screen;
    const termios before = screen.Settings();
    ASSERT_TRUE(screen.Await(kEnterScreen)) << row.legend << screen.Shown();
    ASSERT_TRUE(screen.Await("CONNECT")) << row.legend << screen.Shown();
    EXPECT_EQ(screen.Settings().c_lflag & ICANON, 0U) << row.legend;
    row.end(&screen);
    EXPECT_EQ(screen.WaitEnd(), row.status) << row.legend;
    EXPECT_TRUE(screen.Await(kLeaveScreen)) << row.legend;
    const termios after = screen.Settings();
    EXPECT_EQ(after.c_lflag, before.c_lflag) << row.legend;
    EXPECT_EQ(after.c_iflag, before.c_iflag) << row.legend;
    EXPECT_EQ(after.c_oflag, before.c_oflag) << row.legend;
  }
}

TEST(VdevScreen, SmallTerminals) {
  Screen small(20);
  EXPECT_TRUE(small.Await("the live screen needs 80 by 24: plain lines"));
  EXPECT_TRUE(small.Await("drive the device by typing"));
  EXPECT_EQ(small.Shown().find(kEnterScreen), string::npos);

  Screen screen;
  ASSERT_TRUE(screen.Await("where it looks"));
  screen.Resize(20, 60);
  EXPECT_TRUE(screen.Await("The screen needs 80 by 24"));
  screen.Resize(40, 100);
  EXPECT_TRUE(screen.Await("where it looks"));
}

// Heads that no code stops, and lenses, whose motors have a code each.
TEST(VdevScreen, PlainLinesAndATypedStopThatEndsAllMotion) {
  const struct {
    const char* model;
    const char* motion;
    const char* begun;
    const char* ended;
  } rows[] = {
      {"QB-620", "right\n", "head   | pan right at speed 29", "head   | stop"},
      {"QB-610", "left\n", "head   | pan left", "head   | stop"},
      {"QB-310", "near\n", "micom  | focus plus", "micom  | stop"},
      {"QB-420", "code 8100 0\nfar\n", "focus runs toward its maximum", "focus stops"},
  };
  for (const auto& row : rows) {
    Screen screen(40, "--plain", row.model);
    EXPECT_TRUE(screen.Await("vdev   | rs232d serves"));
    screen.Type(row.motion);
    EXPECT_TRUE(screen.Await(row.begun)) << screen.Shown();
    screen.Type("stop\n");
    EXPECT_TRUE(screen.Await(row.ended)) << screen.Shown();
    screen.Type("quit\n");
    EXPECT_EQ(screen.WaitEnd(), 0);
    EXPECT_EQ(screen.Shown().find(kEnterScreen), string::npos);
  }
}

}  // namespace
