#include <sys/mount.h>

#include <cerrno>
#include <cstring>

#include "tests/support.h"
#include "tests/world/failing_call.h"
#include "util/conf_file.h"

namespace {

using sim::ReadTextFile;
using sim::WriteTextFile;
using std::string;
using std::string_literals::operator""s;

constexpr char kPath[] = "/etc/test.conf";
// On another file system than /etc.
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
      // Lines that only look like the key's.
      {"# a=1\n\n[a]\n", "a", "9", "# a=1\n\n[a]\na=9\n"},
      {" a=1\na#=1\nab=1\na\t=1\n", "a", "9", " a=1\na#=1\nab=1\na\t=1\na=9\n"},
      // Bytes that are no text, and lines beyond 1023 characters, which count as several.
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

TEST(ConfSet, LeavesTheFileAloneWhereItCannotBegin) {
  EXPECT_EQ(Set("/etc/absent.conf", "a", "2"),
            "-1 [CUTIL_SetConfValue] we can't open the file : /etc/absent.conf\n");
  EXPECT_FALSE(TempExists());
  WriteTextFile(kElsewhere, "a=1\n");
  WriteTextFile(CUTIL_TEMP_CONF_PATH, "theirs");
  EXPECT_EQ(Set(kElsewhere, "a", "2"), kInUse);
  {
    const FailingCall call("access");  // it came after the look at it
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

// On a full disk, or where the bytes do not get to the medium: a rename could leave an empty file.
TEST(ConfSet, KeepsTheOldFileWhereTheNewOneCannotBeWritten) {
  const auto descriptors = support::OpenDescriptors();
  for (const auto& [error, call] : {std::pair(ENOSPC, ""), {EPERM, "fsync"}}) {
    ASSERT_EQ(mount("tmpfs", "/etc", "tmpfs", 0, "size=64k"), 0);
    const string before = "a=1\n" + string(error == ENOSPC ? 40000 : 0, 'x');
    WriteTextFile(kPath, before);
    const FailingCall failing(call);
    EXPECT_EQ(Set(kPath, "a", "2"),
              string("-3 [CUTIL_SetConfValue] error, reason(rewrite /etc/test.conf, ") +
                  strerror(error) + ")\n");
    EXPECT_EQ(ReadTextFile(kPath), before);
    EXPECT_FALSE(TempExists());
    umount2("/etc", MNT_DETACH);
  }
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST(ConfSet, LeavesTheTemporaryFileOfAFailedRename) {
  WriteTextFile(kElsewhere, "a=1\n");
  EXPECT_EQ(Set(kElsewhere, "a", "2").substr(0, 3), "-3 ");
  EXPECT_EQ(ReadTextFile(kElsewhere), "a=1\n");
  EXPECT_EQ(ReadTextFile(CUTIL_TEMP_CONF_PATH), "a=2\n");
  EXPECT_EQ(Set(kElsewhere, "a", "2"), kInUse);
  unlink(CUTIL_TEMP_CONF_PATH);
}

}  // namespace
