// Commands in the world of a virtual device: "vdev run MODEL -- COMMAND" and "vdev join".
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/system/shell.h"

namespace {

using std::string;

TEST(VdevRun, ExitStatusIsTheCommands) {
  const struct {
    const char* arguments;
    int status;
    const char* said;
  } rows[] = {
      {"run QB-620 -- sh -c 'exit 7'", 7, ""},
      {"run QB-620 -- sh -c 'kill -TERM $$'", 128 + SIGTERM, ""},
      {"run QB-620 -- no-such-program -x -- y", 127, "cannot run no-such-program"},
      {"run QB-620 -- /etc", 126, "cannot run /etc"},
      {"run QB-620 --no-trace --daemon /bin/uname -- true", 1,
       "daemon | Linux\nvdev: /bin/uname did"},
      {"run QB-620 -- sh -c 'rs232ctl stop; sleep 0.3'", 0, "vdev: rs232d has ended\n"},
      {"run QB-620 --verbose -- true", 0, "vdev   | rs232d serves QB-620"},
      {"run QB-620 --", 2, "vdev: there is no command behind --\n"},
      {"rum", 2, "vdev: unknown command 'rum', did you mean run?\n"},
      {"run QB-620 --udp-port 010017 -- true", 2,
       "10017 is a port of another interface of the device\n"},
      {"run QB-310 -- rs232ctl info", 0, "version     2.1\n"},
      {"join --pid 1 -- true", 1, "process 1 is no vdev"},
  };
  for (const auto& row : rows) {
    const ShellResult result = Shell(string("trap '' CHLD; exec $VDEV ") + row.arguments);
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
      // the local ports, from /proc/net/udp: 10020 is 2724, 1860 is 0744
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
    const ShellResult result = Shell(string("$VDEV run QB-310 -- sh -c '") + row.command + "'");
    EXPECT_NE(result.text.find(row.said), string::npos) << row.command << ": " << result.text;
  }
  EXPECT_NE(access("/tmp/vdev_run_test.mark", F_OK), 0) << "a file has left the world";
}

TEST(VdevJoin, EntersTheWorldThatRuns) {
  const ShellResult result = Shell(
      "$VDEV run QB-620 -- sh -c 'trap \"exit 9\" TERM; touch /tmp/ready; while sleep 0.05; do :;"
      " done' >/dev/null 2>&1 & vdev=$!;"
      "for i in $(seq 100); do"
      " $VDEV join --pid $vdev -- test -e /tmp/ready 2>/dev/null && break; sleep 0.05; done;"
      "$VDEV join --pid $vdev -- sh -c 'echo $VDEV_MODEL; cat /etc/udp_port_table.conf;"
      " cat /proc/1/comm; exit 5'; echo joined $?;"
      "kill $vdev; wait $vdev");
  EXPECT_EQ(result.text, "QB-620\nRS232_DAEMON_PORT=10020\nvdev\njoined 5\n");
  EXPECT_EQ(result.status, 9);  // the command's own answer to it
}

}  // namespace
