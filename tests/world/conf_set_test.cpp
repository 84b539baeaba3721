#include <sys/mount.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <functional>

#include "cmmap/param_block.h"
#include "lens/sensor_config.h"
#include "tests/support.h"
#include "tests/world/failing_call.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "util/camera_info_file.h"
#include "util/conf_file.h"
#include "util/process.h"
#include "util/regular_file.h"

namespace {

using sim::ReadTextFile;
using sim::WriteTextFile;
using std::string;
using std::filesystem::create_symlink;
using std::string_literals::operator""s;

constexpr char kPath[] = "/etc/test.conf";
// Not on the file system of /etc.
constexpr char kElsewhere[] = "/var/test.conf";
constexpr char kInUse[] = "-1 [CUTIL_SetConfValue] temp.conf is already used ...\n";

string Set(const char* path, const char* key, const char* value) {
  return support::OnStdout([&] { return CUTIL_SetConfValue(path, key, value); });
}

bool TempExists() {
  return access(CUTIL_TEMP_CONF_PATH, F_OK) == 0;
}

TEST(ConfSet, RewritesOneValue) {
  const string zeros = "b\0\0=\0\n\0"s;
  const string long_line(1023, 'x');
  const std::tuple<string, const char*, const char*, string> rows[] = {
      {"a=5\nb=7\n", "a", "120", "a=120\nb=7\n"},
      {"a=5\n", "b", "1=2 # x", "a=5\nb=1=2 # x\n"},
      {"", "b", "7", "b=7\n"},
      {"a=5", "b", "7", "a=5\nb=7\n"},
      {"a = 1\n", "a", "9", "a=9\n"},
      {"a=1\r\nb=2\r\n", "a", "9", "a=9\nb=2\r\n"},
      // Lines that only resemble the key's.
      {"# a=1\n\n[a]\n", "a", "9", "# a=1\n\n[a]\na=9\n"},
      {" a=1\na#=1\nab=1\na\t=1\n", "a", "9", " a=1\na#=1\nab=1\na\t=1\na=9\n"},
      // Binary bytes, and lines of more than 1023 characters, which are split.
      {zeros + "\na=1\n" + zeros, "a", "9", zeros + "\na=9\n" + zeros},
      {long_line + "a=1\n", "a", "9", long_line + "a=9\n"},
      {long_line + long_line, "a", "9", long_line + long_line + "\na=9\n"},
  };
  const auto descriptors = support::OpenDescriptors();
  for (const auto& [before, key, value, after] : rows) {
    WriteTextFile(kPath, before);
    EXPECT_EQ(Set(kPath, key, value), "0 ");
    EXPECT_EQ(ReadTextFile(kPath), after) << before.substr(0, 80);
    EXPECT_FALSE(TempExists());
  }
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST(ConfSet, KeepsThePermissions) {
  WriteTextFile(kPath, "a=1\n");
  for (const std::filesystem::perms mode :
       {std::filesystem::perms{0640}, std::filesystem::perms{0666}}) {
    std::filesystem::permissions(kPath, mode);
    Set(kPath, "a", "2");
    EXPECT_EQ(std::filesystem::status(kPath).permissions(), mode);
  }
}

TEST(ConfSet, LeavesTheFileUnchangedWhenItCannotStart) {
  EXPECT_EQ(Set("/etc/absent.conf", "a", "2"),
            "-1 [CUTIL_SetConfValue] we can't open the file : /etc/absent.conf\n");
  EXPECT_FALSE(TempExists());
  WriteTextFile(kElsewhere, "a=1\n");
  WriteTextFile(CUTIL_TEMP_CONF_PATH, "theirs");
  EXPECT_EQ(Set(kElsewhere, "a", "2"), kInUse);
  {
    const FailingCall call("access");  // the file appeared after the check
    EXPECT_EQ(Set(kElsewhere, "a", "2"), kInUse);
  }
  EXPECT_EQ(ReadTextFile(CUTIL_TEMP_CONF_PATH), "theirs");
  unlink(CUTIL_TEMP_CONF_PATH);
  ASSERT_EQ(mount("tmpfs", "/etc", "tmpfs", MS_RDONLY, ""), 0);
  EXPECT_EQ(Set(kElsewhere, "a", "2"),
            "-2 [CUTIL_SetConfValue] we can't open the file : /etc/temp.conf\n");
  umount2("/etc", MNT_DETACH);
  EXPECT_EQ(ReadTextFile(kElsewhere), "a=1\n");
}

TEST(ConfSet, KeepsTheOldFileWhenTheDiskIsFull) {
  const auto descriptors = support::OpenDescriptors();
  ASSERT_EQ(mount("tmpfs", "/etc", "tmpfs", 0, "size=64k"), 0);
  const string before = "a=1\n" + string(40000, 'x');
  WriteTextFile(kPath, before);
  EXPECT_EQ(Set(kPath, "a", "2"),
            "-3 [CUTIL_SetConfValue] error, reason(rewrite /etc/test.conf, No space left on "
            "device)\n");
  EXPECT_EQ(ReadTextFile(kPath), before);
  EXPECT_FALSE(TempExists());
  umount2("/etc", MNT_DETACH);
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

string Params(const string& line) {
  CLI::App app;
  tools::AddParamsCommand(&app);
  try {
    app.parse("params " + line);
  } catch (const tools::Failure& failure) {
    return failure.what();
  }
  return "";
}

// Data that has not reached the medium must be reported as an error, unless it is already in place.
TEST(ConfSet, WaitsUntilTheMediumHasAllOfIt) {
  WriteTextFile(kPath, "a=1\n");
  WriteTextFile(PARAM_BLOCK_PATH, string(PARAM_BLOCK_SIZE, '\0'));
  const auto set = [] { return Set(kPath, "a", "2"); };
  const std::tuple<const char*, int, std::function<string()>, string> rows[] = {
      // A rename before the sync could leave an empty file.
      {"fsync", 0, set,
       "-3 [CUTIL_SetConfValue] error, reason(rewrite /etc/test.conf, Input/output error)\n"},
      {"fsync", 1, set, "0 [CUTIL_SetConfValue] error, reason(sync /etc, Input/output error)\n"},
      {"msync", 0, [] { return Params("set baud=9600"); },
       "cannot write /var/nvt/param.dat: Input/output error"},
      {"fsync", 1, [] { return Params("create --file /etc/new.dat"); },
       "cannot create /etc/new.dat: Input/output error"},
  };
  for (const auto& [call, passes, store, said] : rows) {
    const FailingCall failing(call, EIO, passes);
    EXPECT_EQ(store(), said);
  }
  EXPECT_EQ(ReadTextFile(kPath), "a=2\n");
}

TEST(ConfSet, LeavesTheTemporaryFileOfAFailedRename) {
  WriteTextFile(kElsewhere, "a=1\n");
  EXPECT_EQ(Set(kElsewhere, "a", "2").substr(0, 3), "-3 ");
  EXPECT_EQ(ReadTextFile(kElsewhere), "a=1\n");
  EXPECT_EQ(ReadTextFile(CUTIL_TEMP_CONF_PATH), "a=2\n");
  EXPECT_EQ(Set(kElsewhere, "a", "2"), kInUse);
  unlink(CUTIL_TEMP_CONF_PATH);
}

// --- Files of odd kinds and sizes ----------------------------------------------------------------

TEST(OddFiles, RejectsSettingsBeyondTheSizeLimit) {
  char value[CUTIL_CONF_VALUE_SIZE] = "";
  const string too_long =
      "[CUTIL_OpenSettings] error open, reason(/etc/test.conf is longer than 1048576 bytes)\n";
  const std::pair<std::function<int()>, string> readers[] = {
      {[&] { return CUTIL_GetConfValue(kPath, "a", value, sizeof(value)); }, too_long},
      {[&] { return conf_get_value(kPath, value, 1, "a"); }, too_long},
      {[] { return CUTIL_KillProcAll(kPath, 0); }, ""},  // reports to syslog
      {[] { return CUTIL_SetConfValue(kPath, "a", "2"); },
       "[CUTIL_SetConfValue] we can't open the file : /etc/test.conf\n"},
  };
  for (const off_t excess : {0, 1}) {
    WriteTextFile(kPath, "a=1\n");
    ASSERT_EQ(truncate(kPath, CUTIL_SETTINGS_MAX + excess), 0);
    for (const auto& [read, said] : readers)
      EXPECT_EQ(support::OnStdout(read), excess == 0 ? "0 " : "-1 " + said);
  }
}

// A '*' in a line must not expand to files of the working directory.
TEST(OddFiles, WritesCameraInformationOnlyIntoRegularFiles) {
  const std::pair<void (*)(), string> rows[] = {
      {[] {}, ""},
      {[] { WriteTextFile(CAMERA_INFO_PATH, "MODEL=earlier\n"); }, ""},
      {[] { create_symlink("nowhere_yet", CAMERA_INFO_PATH); }, ""},
      {[] { mkfifo(CAMERA_INFO_PATH, 0644); }, "not a regular file"},
      {[] { mkdir(CAMERA_INFO_PATH, 0755); }, "not a regular file"},
      {[] { create_symlink("/dev/null", CAMERA_INFO_PATH); }, "not a regular file"},
      {[] { create_symlink(CAMERA_INFO_PATH, CAMERA_INFO_PATH); }, strerror(ELOOP)},
  };
  const string refused = "[CUTIL_WriteCameraInfo] error, reason(/var/nvt/camera.info, ";
  WriteTextFile("/tmp/RESOLUTION=1280x720", "");
  std::filesystem::current_path("/tmp");
  for (const auto& [make, reason] : rows) {
    std::filesystem::remove_all(CAMERA_INFO_PATH);
    make();
    const string said = support::OnStderr([] {
      CUTIL_WriteCameraInfo({"VERSION=0.0", "RESOLUTION=1280*720"});
    });
    EXPECT_EQ(said, reason.empty() ? "" : refused + reason + ")\n");
    if (!reason.empty()) continue;
    EXPECT_EQ(ReadTextFile(CAMERA_INFO_PATH), "VERSION=0.0\nRESOLUTION=1280*720\n");
  }
}

}  // namespace
