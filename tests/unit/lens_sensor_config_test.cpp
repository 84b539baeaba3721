#include "lens/sensor_config.h"

#include <json-c/json.h>

#include <memory>

#include "tests/support.h"

namespace {

class ConfigFile : public testing::Test {
 protected:
  // The value of a key, or "(none)".
  std::string ValueOf(const std::string& key) {
    char value[SENSOR_CONF_VALUE_SIZE] = "(none)";
    const int result = conf_get_value(file_.Path(), value, 1, "%s", key.c_str());
    EXPECT_EQ(result == 0, std::string(value) != "(none)");
    return value;
  }

  support::TempFile file_;
};

TEST_F(ConfigFile, SplitsLinesAndMatchesWholeKeys) {
  const std::string key(100, 'k');
  file_.Write(
      "# Lens=comment\n[Lens]\n\nLensModel=M1\nLens= V1 \r\nLens=second\nsensor=lower\n"
      "  \"Quoted\" = \"a b\" \nCut=a=b\nBare\nHash=#x\nHash=after\nNumber= 42x\nLong=" +
      std::string(400, 'x') + "\n" + key + "=v\n");
  const std::pair<const char*, const char*> rows[] = {
      {"Lens", "V1"},    {"Len", "(none)"}, {"Sensor", "(none)"}, {"Bare", ""},
      {"Quoted", "a b"}, {"Cut", "a"},      {"Hash", "after"},
  };
  for (const auto& [name, value] : rows)
    EXPECT_EQ(ValueOf(name), value) << name;
  EXPECT_EQ(ValueOf(key), "v");
  EXPECT_EQ(ValueOf(key.substr(1)), "(none)");
  EXPECT_EQ(ValueOf("Long"), std::string(SENSOR_CONF_VALUE_SIZE - 1, 'x'));

  int32_t number = 7;
  EXPECT_EQ(conf_get_value(file_.Path(), &number, 0, "Num%s", "ber"), 0);
  EXPECT_EQ(conf_get_value(file_.Path(), &number, 0, "None%d", 1), -1);
  EXPECT_EQ(number, 42);
  EXPECT_EQ(conf_get_value(nullptr, &number, 0, "Number"), -1);
  EXPECT_EQ(conf_get_value(file_.Path(), nullptr, 0, "Number"), -1);
  EXPECT_EQ(conf_get_value("/nonexistent/file", &number, 0, "Number"), -1);
}

TEST_F(ConfigFile, LoadsTheWholeTextOrNothing) {
  using Text = std::unique_ptr<char, decltype(&free)>;
  EXPECT_STREQ(Text(json_load_text(file_.Path()), free).get(), "");
  ASSERT_EQ(truncate(file_.Path(), ISP_FILE_MAX), 0);
  EXPECT_NE(Text(json_load_text(file_.Path()), free), nullptr);
  ASSERT_EQ(truncate(file_.Path(), ISP_FILE_MAX + 1), 0);
  EXPECT_EQ(support::OnStdout([this] { EXPECT_EQ(json_load_text(file_.Path()), nullptr); }),
            "[CUTIL_OpenSettings] error open, reason(" + std::string(file_.Path()) +
                " is longer than 16777216 bytes)\n");
  EXPECT_EQ(json_load_text("/tmp"), nullptr);
}

TEST(JsonPath, FindsValuesByPath) {
  const std::string name(120, 'n');
  const std::string text =
      R"({"All":{"AE":{"Flag":true,"Text":"TRUE","Number":1,"Null":null,"List":[1]}},")" + name +
      R"(":{"abcdef":"deep","abcdefg":"deeper"}})";
  const std::unique_ptr<json_object, decltype(&json_object_put)> tree(
      json_tokener_parse(text.c_str()), json_object_put);
  ASSERT_NE(tree, nullptr);
  const std::pair<std::string, const char*> rows[] = {
      // null: not found
      {"All.AE.Flag", "true"},      {"All.AE.Text", "TRUE"},        {"All.AE.Number", "1"},
      {"All.AE.Null", nullptr},     {"All.AE.Flag.VALUE", nullptr}, {"All.AE.List.0", nullptr},
      {"All.ae.Flag", nullptr},     {"All.AE.Text..Flag", "TRUE"},  {"All.AE.Text.", "TRUE"},
      {name + ".abcdef", "deep"},    // 127 characters
      {name + ".abcdefg", nullptr},  // 128
  };
  char value[1024];
  for (const auto& [path, expected] : rows) {
    value[0] = '\0';
    const int result = json_get_string_path(tree.get(), path.c_str(), value, sizeof(value));
    EXPECT_EQ(result, expected != nullptr ? 0 : -1) << path;
    EXPECT_STREQ(value, expected != nullptr ? expected : "") << path;
  }
  for (const char* path : {"", ".All"})
    EXPECT_EQ(json_get_path(tree.get(), path), tree.get()) << "the object itself";
  EXPECT_EQ(json_get_string_path(tree.get(), "All.AE.Text", value, 4), 0);
  EXPECT_STREQ(value, "TRU");
  EXPECT_EQ(json_get_string_path(nullptr, "All", value, 4), -1);
  EXPECT_EQ(json_get_string_path(tree.get(), nullptr, value, 4), -1);
  EXPECT_EQ(json_get_string_path(tree.get(), "All", nullptr, 4), -1);
}

}  // namespace
