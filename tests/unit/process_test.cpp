// The functions under test walk the machine's process table. So that a fault harms nobody, the
// signal of these tests is SIGCONT and their own process is a stopped one: who was signalled
// shows in who was woken.
#include "util/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tests/support.h"

namespace {

// A stopped process whose command line begins with a path of its own.
class StoppedProcess {
 public:
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
  const std::string padding(40, 'x');
  std::string others;
  for (int i = 0; i < 15; ++i)
    others += "/rs232t/other\n";
  const struct {
    const char* legend;
    std::string list;
    bool woken;
  } rows[] = {
      {"whole path", name_ + "\n", true},
      {"start of the path", name_.substr(0, name_.size() - 1) + "\n", true},
      {"more than the path", name_ + "d\n", false},
      {"an argument", name_ + " 600\n", false},
      {"other line end", name_ + "\r\n", true},
      {"no line end", name_, true},
      {"second of two", "/rs232t/other\n" + name_ + "\n", true},
      {"empty list", "", false},
      {"blank lines", "\n\r\n\n", false},
      {"line of 31 with its end", name_ + "\r" + std::string(29 - name_.size(), 'x') + "\n", true},
      {"line of 32 with its end", name_ + "\r" + std::string(30 - name_.size(), 'x') + "\n", false},
      {"line of 40", name_ + "\r" + padding.substr(name_.size() + 1), false},
      {"bytes that are no text", std::string("\xFF\0/x\n\0\n", 7) + name_ + std::string(1, '\0'),
       true},
      {"end of a long line", std::string(255, 'x') + name_ + "\n", false},
      {"sixteenth name", others + name_ + "\n", true},
      {"seventeenth name", others + "/rs232t/other\n" + name_ + "\n", false},
      {"blank lines take no place", "\n\n" + others + "\n" + name_ + "\n", true},
  };
  for (const auto& row : rows) {
    list_.Write(row.list);
    EXPECT_EQ(CUTIL_KillProcAll(list_.Path(), SIGCONT), 0) << row.legend;
    EXPECT_EQ(process_.WasWoken(), row.woken) << row.legend;
  }
  EXPECT_EQ(CUTIL_KillProcAll("/nonexistent/list", SIGCONT), -1);
}

TEST_F(Process, NameFindsAndSignalsProcesses) {
  const struct {
    std::string name;
    bool matches;
  } rows[] = {
      {name_, true},
      {name_.substr(0, name_.size() - 1), true},
      {name_ + "d", false},
      {name_.substr(1), false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(CUTIL_IsProc(row.name.c_str(), 0), row.matches ? 1 : 0) << row.name;
    EXPECT_EQ(CUTIL_KillProcByName(row.name.c_str(), SIGCONT), 0) << row.name;
    EXPECT_EQ(process_.WasWoken(), row.matches) << row.name;
  }
}

TEST_F(Process, VerboseLookupShowsTheComparison) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(CUTIL_IsProc(name_.c_str(), 1), 1);
  const std::string output = testing::internal::GetCapturedStdout();
  const std::string length = std::to_string(name_.size());
  const std::string comparison = "_name         : [" + name_ + "]\nbuf           : [" + name_ +
                                 "]\nstrlen(_name) : " + length + "\nstrlen(buf)   : " + length +
                                 "\n\n";
  EXPECT_NE(output.find("CUTIL_IsProc dirp->d_name : ..\n"), std::string::npos);
  ASSERT_GE(output.size(), comparison.size());
  EXPECT_EQ(output.substr(output.size() - comparison.size()), comparison);
}

}  // namespace
