// The functions under test walk the process table of the machine. To be safe, this program only
// records signals and sends none.
#include "util/process.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <vector>

#include "tests/support.h"

static std::vector<pid_t> g_signalled;

extern "C" int kill(pid_t pid, int signal) noexcept {
  EXPECT_EQ(signal, SIGCONT);
  g_signalled.push_back(pid);
  return 0;
}

namespace {

class Process : public testing::Test {
 protected:
  // Starts a process whose command line begins with a unique path.
  void SetUp() override {
    pid_ = fork();
    if (pid_ == 0) {
      execl("/bin/sleep", name_.c_str(), "600", nullptr);
      _exit(127);
    }
    const std::string path = "/proc/" + std::to_string(pid_) + "/cmdline";
    ASSERT_TRUE(sim::WaitUntil([&] { return sim::ReadTextFile(path).starts_with(name_); }));
  }
  ~Process() override {
    syscall(SYS_kill, pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  bool WasSignalled() { return std::ranges::count(std::exchange(g_signalled, {}), pid_) == 1; }

  const std::string name_ = "/rs232t" + std::to_string(getpid()) + "/abc";
  pid_t pid_ = -1;
  support::TempFile list_;
};

TEST_F(Process, MatchesListedNamesWithTheStartOfCommandLines) {
  std::string others;
  for (int i = 0; i < 15; ++i)
    others += "/rs232t/other\n";
  const std::string to_length = name_ + "\r" + std::string(29 - name_.size(), 'x');
  const std::pair<std::string, bool> rows[] = {
      {name_, true},
      {name_ + " 600\n", false},  // with an argument
      {to_length + "\n", true},   // 31 with its NUL
      {to_length + "x\n", false},
      {std::string("\xFF\0/x\n\0\n", 7) + name_ + '\0', true},
      {"\n\r\n", false},
      {"\n\n" + others + "\n" + name_ + "\n", true},  // the sixteenth name
      {others + "/rs232t/other\n" + name_ + "\n", false},
  };
  for (const auto& [list, signalled] : rows) {
    list_.Write(list);
    EXPECT_EQ(CUTIL_KillProcAll(list_.Path(), SIGCONT), 0);
    EXPECT_EQ(WasSignalled(), signalled) << list;
  }
  EXPECT_EQ(CUTIL_KillProcAll("/nonexistent/list", SIGCONT), -1);
}

TEST_F(Process, FindsAndSignalsProcessesByName) {
  const std::pair<std::string, bool> rows[] = {{name_, true},
                                               {name_.substr(0, name_.size() - 1), true},
                                               {name_ + "d", false},
                                               {name_.substr(1), false}};
  for (const auto& [name, matches] : rows) {
    EXPECT_EQ(CUTIL_IsProc(name.c_str(), 0), matches ? 1 : 0) << name;
    EXPECT_EQ(CUTIL_KillProcByName(name.c_str(), SIGCONT), 0) << name;
    EXPECT_EQ(WasSignalled(), matches) << name;
  }
}

TEST_F(Process, PrintsTheComparisonWhenVerbose) {
  const std::string said = support::OnStdout([this] { return CUTIL_IsProc(name_.c_str(), 1); });
  const std::string length = std::to_string(name_.size());
  EXPECT_NE(said.find("CUTIL_IsProc dirp->d_name : ..\n"), std::string::npos);
  EXPECT_TRUE(said.ends_with("_name         : [" + name_ + "]\nbuf           : [" + name_ +
                             "]\nstrlen(_name) : " + length + "\nstrlen(buf)   : " + length +
                             "\n\n"))
      << said;
}

}  // namespace
