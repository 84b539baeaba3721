#include <sys/mount.h>
#include <sys/stat.h>

#include "tests/support.h"
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
  const struct {
    string before;
    const char* key;
    const char* value;
    string after;
  } rows[] = {
      {"a=5\nb=7\n", "a", "120", "a=120\nb=7\n"},
      {"a=5\n", "b", "1=2 # x", "a=5\nb=1=2 # x\n"},
      {"", "b", "7", "b=7\n"},
      {"a=5", "b", "7", "a=5\nb=7\n"},
      {"a=5", "a", "7", "a=7\n"},
      {"a = 1\n", "a", "9", "a=9\n"},
      {"a b=1\n", "a", "9", "a=9\n"},
      {"a=1\r\nb=2\r\n", "a", "9", "a=9\nb=2\r\n"},
      // Lines that only look like the key's.
      {"# a=1\n\n[a]\n", "a", "9", "# a=1\n\n[a]\na=9\n"},
      {" a=1\na#=1\nab=1\na\t=1\n", "a", "9", " a=1\na#=1\nab=1\na\t=1\na=9\n"},
      {"a\n", "a", "9", "a\na=9\n"},
      // Bytes that are no text, and lines beyond 1023 characters, which count as several.
      {zeros + "\na=1\n" + zeros, "a", "9", zeros + "\na=9\n" + zeros},
      {string(65536, 'x') + "\na=1\n", "a", "9", string(65536, 'x') + "\na=9\n"},
      {long_line + "a=1\n", "a", "9", long_line + "a=9\n"},
      {long_line + long_line, "a", "9", long_line + long_line + "\na=9\n"},
  };
  const auto descriptors = support::OpenDescriptors();
  for (const auto& row : rows) {
    WriteTextFile(kPath, row.before);
    EXPECT_EQ(Set(kPath, row.key, row.value), "0 ");
    EXPECT_EQ(ReadTextFile(kPath), row.after) << row.before.substr(0, 80);
    EXPECT_FALSE(TempExists());
  }
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST(ConfSet, KeepsThePermissions) {
  for (const mode_t mode : {0600U, 0640U, 0666U}) {
    WriteTextFile(kPath, "a=1\n");
    ASSERT_EQ(chmod(kPath, mode), 0);
    Set(kPath, "a", "2");
    struct stat file;
    ASSERT_EQ(stat(kPath, &file), 0);
    EXPECT_EQ(file.st_mode & 07777, mode);
  }
}

TEST(ConfSet, LeavesTheFileAloneWhereItCannotBegin) {
  EXPECT_EQ(Set("/etc/absent.conf", "a", "2"),
            "-1 [CUTIL_SetConfValue] we can't open the file : /etc/absent.conf\n");
  EXPECT_FALSE(TempExists());
  WriteTextFile(kElsewhere, "a=1\n");
  WriteTextFile(CUTIL_TEMP_CONF_PATH, "theirs");
  EXPECT_EQ(Set(kElsewhere, "a", "2"), kInUse);
  EXPECT_EQ(ReadTextFile(CUTIL_TEMP_CONF_PATH), "theirs");
  unlink(CUTIL_TEMP_CONF_PATH);
  ASSERT_EQ(mount("tmpfs", "/etc", "tmpfs", MS_RDONLY, ""), 0);
  EXPECT_EQ(Set(kElsewhere, "a", "2"),
            "-2 [CUTIL_SetConfValue] we can't open the file : /etc/temp.conf\n");
  umount2("/etc", MNT_DETACH);
  EXPECT_EQ(ReadTextFile(kElsewhere), "a=1\n");
}

TEST(ConfSet, KeepsTheOldFileOnAFullDisk) {
  ASSERT_EQ(mount("tmpfs", "/etc", "tmpfs", 0, "size=64k"), 0);
  const string before = "a=1\n" + string(40000, 'x');
  WriteTextFile(kPath, before);
  const auto descriptors = support::OpenDescriptors();
  const string said = Set(kPath, "a", "2");
  EXPECT_EQ(said.find("-3 [CUTIL_SetConfValue] error, reason("), 0U) << said;
  EXPECT_NE(said.find("No space left on device"), string::npos) << said;
  EXPECT_EQ(said.find('\n'), said.size() - 1) << said;
  EXPECT_EQ(ReadTextFile(kPath), before);
  EXPECT_FALSE(TempExists());
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
  umount2("/etc", MNT_DETACH);
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
