#include <memory>

#include "tests/support.h"
#include "util/conf_file.h"
#include "util/load_file.h"

namespace {

using std::string;
using std::string_literals::operator""s;

TEST(ConfFile, ReadsValues) {
  const string key63(63, 'k');
  const struct {
    string file, key;
    int result;
    string value;
  } rows[] = {
      {"a=1\nab=2\n", "ab", 0, "2"},
      {"ab=2\na=1\n", "a", 0, "2"},  // a prefix of the key is enough
      {"a=1\nab=2\n", "abc", -1, "2"},
      {"a=1\nB=2\n", "b", -1, "2"},
      {"# a=1\n\n", "a", -1, ""},
      {"  a =  1  \n", "a", 0, "1 "},
      {"\ta\t=\t1\t\n", "a", 0, "1"},
      {"a=\" 1 2 \"\n", "a", 0, " 1 2 "},
      {"a=\"12 \n", "a", 0, "1"},  // the last character is always removed
      {"\" a b \" = 1\n", " a b ", 0, "1"},
      {"a  =1\n", "a  ", -1, "1"},  // one blank is removed
      {"[a=1\nb=2\n", "a", -1, "2"},
      {"a=b=c\n", "a", 0, "b"},
      {"a=\nb=2\n", "a", 0, ""},
      {"b=1\na\n", "a", 0, ""},
      {"=1\na=2\n", "a", 0, "2"},
      {"a=#1\na=[2]\na=3\n", "a", 0, "3"},
      {"b=1\na= #2\n", "a", 0, "1"},  // leaves the earlier value in place
      {"a=1 # one\n", "a", 0, "1 # one"},
      {"a=1\r\nb=\"2\"\r\n\r\nc=3", "b", 0, "2"},
      // A NUL ends the text of a line, not the file.
      {"x\0y=1\na=2\n"s, "a", 0, "2"},
      {"\0a=1\nb=2\n"s, "a", -1, "2"},
      // Lines are split after 2047 characters, keys truncated after 63.
      {string(2047, 'x') + "a=2\n", "a", 0, "2"},
      {string(2046, 'x') + "a=2\n", "a", -1, "2"},
      {"a=" + string(65536, 'v') + "\n", "a", 0, string(2045, 'v')},
      {key63 + "xyz=1\n", key63, 0, "1"},
      {key63 + "xyz=1\n", key63 + "x", -1, "1"},
  };
  const support::TempFile conf;
  char value[4096] = "untouched";
  EXPECT_EQ(CUTIL_GetConfValue("/nonexistent/file", "a", value, sizeof(value)), -1);
  EXPECT_STREQ(value, "untouched");
  for (const auto& [file, key, result, expected] : rows) {
    conf.Write(file);
    EXPECT_EQ(CUTIL_GetConfValue(conf.Path(), key.c_str(), value, sizeof(value)), result)
        << file.substr(0, 80) << " / " << key;
    EXPECT_EQ(value, expected) << file.substr(0, 80) << " / " << key;
  }
}

// The update tests cover whole and empty files.
TEST(LoadFile, PrintsOneErrorLineOnFailure) {
  const support::TempFile long_file;
  ASSERT_EQ(truncate(long_file.Path(), CUTIL_LOAD_MAX + 1), 0);
  const support::TempFile file;
  const string link = file.Path() + ".link"s;
  ASSERT_EQ(symlink(file.Path(), link.c_str()), 0);
  int size = -7;
  const std::tuple<const char*, int*, const char*> rows[] = {
      {nullptr, &size, "reason(filename[0] or filesize["},
      {"/etc", nullptr, "] or filesize[0] is NULL)\n"},
      {"/nonexistent/image", &size, "reason('fp' is NULL, filename'/nonexistent/image')\n"},
      {"/tmp", &size, "reason('fp' is NULL, filename'/tmp')\n"},
      {long_file.Path(), &size, "reason(malloc, size is 16777217)\n"},
      {link.c_str(), &size, "reason('fp' is NULL, filename'/tmp/rs232_test."},
  };
  for (const auto& [path, size_out, reason] : rows) {
    const std::string line = support::OnStderr([&, name = path, out = size_out] {
      const std::unique_ptr<uint8_t, decltype(&free)> buffer(CUTIL_LoadFile(name, out), free);
      EXPECT_EQ(buffer, nullptr);
    });
    EXPECT_EQ(line.rfind("[CUTIL_LoadFile] Error line[", 0), 0U) << line;
    EXPECT_NE(line.find(reason), std::string::npos) << line;
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    EXPECT_EQ(size, -7) << reason;
  }
  unlink(link.c_str());
}

}  // namespace
