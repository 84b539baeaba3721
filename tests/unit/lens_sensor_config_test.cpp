#include "lens/sensor_config.h"

#include <json-c/json.h>

#include <memory>

#include "tests/support.h"

namespace {

class ConfigFile : public testing::Test {
 protected:
  void Write(const std::string& text) { file_.Write(text); }

  // The value of a key, or "(none)".
  std::string ValueOf(const char* key) {
    char value[SENSOR_CONF_VALUE_SIZE] = "(none)";
    const int result = conf_get_value(file_.Path(), value, 1, "%s", key);
    EXPECT_EQ(result == 0, std::string(value) != "(none)");
    return value;
  }

  support::TempFile file_;
};

TEST_F(ConfigFile, LinesAreSplitAndKeysMatchedWhole) {
  Write(
      "# Camera.1.Lens=comment\n"
      "[Camera.1.Lens]\n"
      "\n"
      "Camera.1.LensModel=M1\n"
      "Camera.1.Lens= V1 \r\n"
      "Camera.1.Lens=second\n"
      "camera.1.sensor=lower\n"
      "  \"Quoted\" = \"a b\" \n"
      "Cut=a=b\n"
      "Bare\n"
      "Hash=#x\n"
      "Hash=after\n"
      "Number= 42x\n");
  const std::pair<const char*, const char*> rows[] = {
      {"Camera.1.Lens", "V1"},
      {"Camera.1", "(none)"},
      {"Camera.1.Sensor", "(none)"},  // but in lower case
      {"Quoted", "a b"},
      {"Cut", "a"},
      {"Bare", ""},
      {"Hash", "after"},
  };
  for (const auto& [key, value] : rows)
    EXPECT_EQ(ValueOf(key), value) << key;

  int32_t number = 7;
  EXPECT_EQ(conf_get_value(file_.Path(), &number, 0, "Num%s", "ber"), 0);
  EXPECT_EQ(number, 42);
  EXPECT_EQ(conf_get_value(file_.Path(), &number, 0, "None%d", 1), -1);
  EXPECT_EQ(number, 42);
}

TEST_F(ConfigFile, LongValueIsCutAndMissingArgumentsAreRefused) {
  Write("Long=" + std::string(400, 'x') + "\n" + std::string(100, 'k') + "=v\n");
  EXPECT_EQ(ValueOf("Long"), std::string(SENSOR_CONF_VALUE_SIZE - 1, 'x'));
  EXPECT_EQ(ValueOf(std::string(100, 'k').c_str()), "v");
  EXPECT_EQ(ValueOf(std::string(63, 'k').c_str()), "(none)");

  char value[SENSOR_CONF_VALUE_SIZE];
  EXPECT_EQ(conf_get_value(nullptr, value, 1, "Long"), -1);
  EXPECT_EQ(conf_get_value(file_.Path(), nullptr, 1, "Long"), -1);
  EXPECT_EQ(conf_get_value("/nonexistent/file", value, 1, "Long"), -1);
}

TEST_F(ConfigFile, TextIsLoadedWholeOrNotAtAll) {
  using Text = std::unique_ptr<char, decltype(&free)>;
  Write("");
  EXPECT_STREQ(Text(json_load_text(file_.Path()), free).get(), "");
  ASSERT_EQ(truncate(file_.Path(), ISP_FILE_MAX), 0);
  EXPECT_NE(Text(json_load_text(file_.Path()), free), nullptr);
  ASSERT_EQ(truncate(file_.Path(), ISP_FILE_MAX + 1), 0);
  EXPECT_EQ(json_load_text(file_.Path()), nullptr);
  EXPECT_EQ(json_load_text("/tmp"), nullptr);
}

TEST(JsonPath, FindsWhatIsThere) {
  const std::string name(120, 'n');
  const std::string text =
      R"({"All":{"AE":{"Flag":true,"Text":"TRUE","Number":1,"Null":null,"List":[1]}},")" + name +
      R"(":{"abcdef":"deep","abcdefg":"deeper"}})";
  const std::unique_ptr<json_object, decltype(&json_object_put)> tree(
      json_tokener_parse(text.c_str()), json_object_put);
  ASSERT_NE(tree, nullptr);
  const std::pair<std::string, const char*> rows[] = {
      // null: nothing there
      {"All.AE.Flag", "true"},      {"All.AE.Text", "TRUE"},        {"All.AE.Number", "1"},
      {"All.AE.Null", nullptr},     {"All.AE.Flag.VALUE", nullptr}, {"All.AE.List.0", nullptr},
      {"All.ae.Flag", nullptr},     {"All.AE.Text..Flag", "TRUE"},  {"All.AE.Text.", "TRUE"},
      {name + ".abcdef", "deep"},    // 127 characters
      {name + ".abcdefg", nullptr},  // 128
  };
  for (const auto& [path, expected] : rows) {
    char value[1024] = "";
    const int result = json_get_string_path(tree.get(), path.c_str(), value, sizeof(value));
    EXPECT_EQ(result, expected != nullptr ? 0 : -1) << path;
    EXPECT_STREQ(value, expected != nullptr ? expected : "") << path;
  }
  for (const char* path : {"", ".All"})
    EXPECT_EQ(json_get_path(tree.get(), path), tree.get()) << "the object itself";

  char value[4];
  EXPECT_EQ(json_get_string_path(tree.get(), "All.AE.Text", value, sizeof(value)), 0);
  EXPECT_STREQ(value, "TRU");
  EXPECT_EQ(json_get_string_path(nullptr, "All", value, sizeof(value)), -1);
  EXPECT_EQ(json_get_string_path(tree.get(), nullptr, value, sizeof(value)), -1);
  EXPECT_EQ(json_get_string_path(tree.get(), "All", nullptr, sizeof(value)), -1);
}

}  // namespace
