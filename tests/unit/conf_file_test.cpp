#include "util/conf_file.h"

#include "tests/support.h"

namespace {

using std::string;
using std::string_literals::operator""s;

const string kPath = testing::TempDir() + "rs232_conf_test." + std::to_string(getpid());

TEST(ConfFile, ReadsAValue) {
  const string key63(63, 'k');
  const struct {
    string file, key;
    int result;
    string value;
  } rows[] = {
      {"a=1\nab=2\n", "ab", 0, "2"},
      {"a=1\nab=2\n", "a", 0, "1"},
      {"ab=2\na=1\n", "a", 0, "2"},  // a prefix of the key is enough
      {"a=1\nab=2\n", "abc", -1, "2"},
      {"a=1\nB=2\n", "b", -1, "2"},
      {"# a=1\n\n", "a", -1, ""},
      {"a=1\n# b=2\n[c]\n", "d", -1, "1"},
      {"  a =  1  \n", "a", 0, "1 "},
      {"\ta\t=\t1\t\n", "a", 0, "1"},
      {"a=\" 1 2 \"\n", "a", 0, " 1 2 "},
      {"a=\"12 \n", "a", 0, "1"},  // the last character goes whatever it is
      {"a=\"\n", "a", 0, ""},
      {"a=1\"2\"\n", "a", 0, "1\"2\""},
      {"\" a b \" = 1\n", " a b ", 0, "1"},
      {"a  =1\n", "a  ", -1, "1"},  // one blank is cut off
      {"[a=1\nb=2\n", "a", -1, "2"},
      {"a=b=c\n", "a", 0, "b"},
      {"a=\nb=2\n", "a", 0, ""},
      {"b=1\na\n", "a", 0, ""},
      {"=1\na=2\n", "a", 0, "2"},
      {"a=#1\na=[2]\na=3\n", "a", 0, "3"},
      {"b=1\na= #2\n", "a", 0, "1"},  // such a value leaves the one before it
      {"a=1 # one\n", "a", 0, "1 # one"},
      {"[a]\n  #a=1\n  [a=2\na=3", "a", 0, "3"},
      {"a=1\r\nb=\"2\"\r\n\r\nc=3", "b", 0, "2"},
      {"a=\r\nb=2\r\n", "a", 0, ""},
      // A binary zero ends a line's text, not the file.
      {"x\0y=1\na=2\n"s, "a", 0, "2"},
      {"\0a=1\nb=2\n"s, "a", -1, "2"},
      // Lines beyond 2047 characters are several, keys beyond 63 are cut.
      {string(65536, 'x') + "\na=2\n", "a", 0, "2"},
      {string(2047, 'x') + "a=2\n", "a", 0, "2"},
      {string(2046, 'x') + "a=2\n", "a", -1, "2"},
      {"a=" + string(65536, 'v') + "\n", "a", 0, string(2045, 'v')},
      {key63 + "xyz=1\n", key63, 0, "1"},
      {key63 + "xyz=1\n", key63 + "x", -1, "1"},
  };
  for (const auto& row : rows) {
    sim::WriteTextFile(kPath, row.file);
    char value[4096] = "untouched";
    EXPECT_EQ(CUTIL_GetConfValue(kPath.c_str(), row.key.c_str(), value, sizeof(value)), row.result)
        << row.file.substr(0, 80) << " / " << row.key;
    EXPECT_EQ(value, row.value) << row.file.substr(0, 80) << " / " << row.key;
  }
  unlink(kPath.c_str());
  char value[16] = "untouched";
  EXPECT_EQ(CUTIL_GetConfValue(kPath.c_str(), "a", value, sizeof(value)), -1);
  EXPECT_STREQ(value, "untouched");
}

}  // namespace
