// The virtual device as a user starts it: typed commands, and a command in its world.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

TEST(Vdev, RunsTypedAndGivenCommands) {
  const std::tuple<const char*, int, const char*> rows[] = {
      {"printf 'right\\nquit\\n' | vdev run QB-620 --plain", 0, "head   | pan right at speed 29"},
      {"vdev run QB-620 -- sh -c 'echo model $VDEV_MODEL; touch /tmp/vdev_test.mark; exit 7'", 7,
       "model QB-620"},
      {"vdev run QB-620 -- no-such-program", 127, "cannot run no-such-program"},
      {"vdev run QB-620 --daemon /bin/uname -- true", 1, "vdev: /bin/uname failed"},
      {"vdev run QB-620 -- sh -c 'rs232ctl stop; sleep 0.3'", 0, "vdev: rs232d has exited\n"},
      {"vdev run QB-310 -- rs232ctl info", 0, "version     2.1\n"},
  };
  for (const auto& [line, status, said] : rows) {
    FILE* pipe = popen(
        (std::string("exec 2>&1; vdev() { '" VDEV_PATH "' \"$@\"; }; ") + line).c_str(), "re");
    std::string text;
    for (int byte = 0; (byte = fgetc(pipe)) != EOF;)
      text += static_cast<char>(byte);
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), status) << line << ": " << text;
    EXPECT_NE(text.find(said), std::string::npos) << line << ": " << text;
  }
  EXPECT_NE(access("/tmp/vdev_test.mark", F_OK), 0) << "a file escaped from the world";
}

}  // namespace
