// Commands in the world of a virtual device: "vdev run MODEL -- COMMAND" and "vdev join".
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "sim/wait.h"

namespace {

using std::string;

struct Result {
  int status;  // of the exit; 128 + N for signal N
  string text;
};

// Runs a line of the shell, in which $VDEV is the program.
Result Shell(const string& line) {
  setenv("VDEV", VDEV_PATH, 1);
  FILE* pipe = popen(("exec 2>&1; " + line).c_str(), "re");
  Result result = {.status = -1, .text = ""};
  char part[256];
  while (fgets(part, sizeof(part), pipe) != nullptr)
    result.text += part;
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

TEST(VdevRun, ExitStatusIsTheCommands) {
  const struct {
    const char* arguments;
    int status;
    const char* said;
  } rows[] = {
      {"run QB-620 -- true", 0, "lines go to /dev/.world/vdev.log"},
      {"run QB-620 -- sh -c 'exit 7'", 7, ""},
      {"run QB-620 -- sh -c 'kill -TERM $$'", 128 + SIGTERM, ""},
      {"run QB-620 -- no-such-program -x -- y", 127, "cannot run no-such-program"},
      {"run QB-620 -- /etc", 126, "cannot run /etc"},
      {"run QB-620 --no-trace --daemon /bin/uname -- true", 1,
       "daemon | Linux\nvdev: /bin/uname did"},
      {"run QB-620 -- sh -c 'rs232ctl stop; sleep 0.3'", 0, "vdev: rs232d has ended\n"},
      {"run QB-620 --verbose -- true", 0, "vdev   | rs232d serves QB-620"},
      {"run QB-620 --", 2, "vdev: there is no command behind --\n"},
      {"run QB-620 --demo -- true", 2, "a command follows -- only"},
      {"run", 2, "vdev: run: MODEL is required\n"},
      {"rum", 2, "vdev: unknown command 'rum', did you mean run?\n"},
      {"run QB-620 --plian", 2, "vdev: run: unknown option --plian, did you mean --plain?\n"},
      {"run QB-620 --baud 123", 2, "vdev: run: --baud: baud cannot be '123'; allowed: 1200,"},
      {"run QB-620 --udp-port 010017 -- true", 2,
       "10017 is a port of another interface of the device\n"},
      {"run QB-310 -- rs232ctl info", 0, "version     2.1\n"},
      {"join --pid 1 -- true", 1, "process 1 is no vdev"},
  };
  for (const auto& row : rows) {
    const Result result = Shell(string("trap '' CHLD; exec $VDEV ") + row.arguments);
    EXPECT_EQ(result.status, row.status) << row.arguments << ": " << result.text;
    EXPECT_NE(result.text.find(row.said), string::npos) << row.arguments << ": " << result.text;
  }
}

// What a command finds: the device's files, its ports, the tools, nobody on the data port.
TEST(VdevRun, CommandIsInTheWorldOfTheDevice) {
  const struct {
    const char* command;
    const char* said;
  } rows[] = {
      {"cat /etc/udp_port_table.conf", "RS232_DAEMON_PORT=10020"},
      {"echo first in path: $(command -v vdev)", "first in path: " VDEV_PATH},
      {"echo model $VDEV_MODEL", "model QB-310"},
      // the local ports, from /proc/net/udp: 10017 is 2721, 10020 is 2724, 1860 is 0744
      {"cat /proc/net/udp", ":2721"},
      {"cat /proc/net/udp", ":2724"},
      {"grep -c :0744 /proc/net/udp", "0\n"},
      {"grep -c CONNECT /dev/.world/vdev.log", "0\n"},
      {"until grep -s VERSION /var/nvt/camera.info; do sleep 0.05; done", "VERSION=2.1"},
      {"rs232ctl write --text $(printf %0200d 7);"
       "until rs232ctl frames < /dev/.world/vdev.log | grep 200; do sleep 0.05; done",
       "200 bytes of no frame"},
      {"cd /tmp && pwd && touch vdev_run_test.mark && ls", "vdev_run_test.mark"},
      {"echo out > /dev/stdout; echo typed | cat /dev/stdin", "typed"},
  };
  for (const auto& row : rows) {
    const Result result = Shell(string("$VDEV run QB-310 -- sh -c '") + row.command + "'");
    EXPECT_NE(result.text.find(row.said), string::npos) << row.command << ": " << result.text;
  }
  EXPECT_NE(access("/tmp/vdev_run_test.mark", F_OK), 0) << "a file has left the world";
}

// A vdev started in the background, ended with the object.
class Background {
 public:
  explicit Background(const char* command) {
    pid_ = fork();
    if (pid_ != 0) return;
    execl(VDEV_PATH, "vdev", "run", "QB-620", "--", "sh", "-c", command, nullptr);
    _exit(127);
  }
  ~Background() {
    if (pid_ > 0) End(SIGTERM);
  }
  int End(int signal) {
    kill(pid_, signal);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  string Join(const string& command) const {
    return "$VDEV join --pid " + std::to_string(pid_) + " -- sh -c '" + command + "'";
  }

 private:
  pid_t pid_;
};

TEST(VdevJoin, EntersTheWorldThatRuns) {
  Background vdev("trap \"exit 9\" TERM; touch /tmp/ready; while :; do sleep 0.05; done");
  EXPECT_TRUE(sim::WaitUntil([&] { return Shell(vdev.Join("test -e /tmp/ready")).status == 0; }));
  const Result result =
      Shell(vdev.Join("echo $VDEV_MODEL; cat /etc/udp_port_table.conf; cat /proc/1/comm; exit 5"));
  EXPECT_EQ(result.status, 5);
  EXPECT_EQ(result.text, "QB-620\nRS232_DAEMON_PORT=10020\nvdev\n");
  EXPECT_EQ(vdev.End(SIGTERM), 9);  // the command's own answer to it
}

}  // namespace
