// The functions under test walk the machine's process table. So that a fault harms nobody, the
// signal of these tests is SIGCONT and their own process is a stopped one: who was signalled
// shows in who was woken.
#include "util/process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support.h"

namespace {

// A stopped process whose command line begins with a path of its own.
class StoppedProcess {
 public:
  // Forked by hand: an emulator's posix_spawn may be back before the program runs.
  explicit StoppedProcess(const std::string& path) {
    int until_exec[2];
    if (pipe2(until_exec, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      execl("/bin/sleep", path.c_str(), "600", nullptr);
      _exit(127);
    }
    close(until_exec[1]);
    char none;
    is_ready_ = pid_ > 0 && read(until_exec[0], &none, 1) == 0;
    close(until_exec[0]);
    Stop();
  }
  StoppedProcess(const StoppedProcess&) = delete;
  StoppedProcess& operator=(const StoppedProcess&) = delete;
  ~StoppedProcess() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  bool IsReady() const { return is_ready_; }

  // True when it was woken since it was stopped last; it is stopped again.
  bool WasWoken() {
    const bool woken = waitpid(pid_, nullptr, WCONTINUED | WNOHANG) == pid_;
    if (woken) Stop();
    return woken;
  }

 private:
  void Stop() {
    int status = 0;
    is_ready_ = is_ready_ && kill(pid_, SIGSTOP) == 0 &&
                waitpid(pid_, &status, WUNTRACED) == pid_ && WIFSTOPPED(status);
  }

  pid_t pid_ = -1;
  bool is_ready_ = false;
};

class Process : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(process_.IsReady());
    ASSERT_LE(name_.size(), 20U);
  }

  const std::string name_ = "/rs232t" + std::to_string(getpid()) + "/abc";
  StoppedProcess process_{name_};
  support::TempFile list_;
};

TEST_F(Process, ListNamesProcessesByTheStartOfTheirCommandLine) {
  std::string others;
  for (int i = 0; i < 15; ++i)
    others += "/rs232t/other\n";
  const std::tuple<const char*, std::string, bool> rows[] = {
      {"whole path", name_ + "\n", true},
      {"an argument", name_ + " 600\n", false},
      {"other line end", name_ + "\r\n", true},
      {"no line end", name_, true},
      {"line of 31 with its end", name_ + "\r" + std::string(29 - name_.size(), 'x') + "\n", true},
      {"line of 32 with its end", name_ + "\r" + std::string(30 - name_.size(), 'x') + "\n", false},
      {"bytes that are no text", std::string("\xFF\0/x\n\0\n", 7) + name_ + std::string(1, '\0'),
       true},
      {"sixteenth name: blank lines take no place", "\n\n" + others + "\n" + name_ + "\n", true},
  };
  for (const auto& [legend, list, woken] : rows) {
    list_.Write(list);
    EXPECT_EQ(CUTIL_KillProcAll(list_.Path(), SIGCONT), 0) << legend;
    EXPECT_EQ(process_.WasWoken(), woken) << legend;
  }
  EXPECT_EQ(CUTIL_KillProcAll("/nonexistent/list", SIGCONT), -1);
}

TEST_F(Process, NameFindsAndSignalsProcesses) {
  const std::pair<std::string, bool> rows[] = {
      {name_, true},
      {name_.substr(0, name_.size() - 1), true},
      {name_ + "d", false},
      {name_.substr(1), false},
  };
  for (const auto& [name, matches] : rows) {
    EXPECT_EQ(CUTIL_IsProc(name.c_str(), 0), matches ? 1 : 0) << name;
    EXPECT_EQ(CUTIL_KillProcByName(name.c_str(), SIGCONT), 0) << name;
    EXPECT_EQ(process_.WasWoken(), matches) << name;
  }
}

TEST_F(Process, VerboseLookupShowsTheComparison) {
  const std::string said = support::OnStdout([this] { return CUTIL_IsProc(name_.c_str(), 1); });
  const std::string length = std::to_string(name_.size());
  EXPECT_NE(said.find("CUTIL_IsProc dirp->d_name : ..\n"), std::string::npos);
  EXPECT_TRUE(said.ends_with("_name         : [" + name_ + "]\nbuf           : [" + name_ +
                             "]\nstrlen(_name) : " + length + "\nstrlen(buf)   : " + length +
                             "\n\n"))
      << said;
}

}  // namespace
