// Input of the user: numbers, durations, bytes, mistyped names. Safe output.
#include <gtest/gtest.h>

#include "sim/pty_line.h"
#include "tools/failure.h"
#include "tools/json.h"
#include "tools/nearest_name.h"
#include "tools/param_fields.h"
#include "tools/parse.h"

namespace {

TEST(CtlParse, NumbersAndCodes) {
  const auto number = [](const char* text) { return tools::ParseNumber(text, -128, 255); };
  const auto code = [](const char* text) { return tools::ParseHexNumber(text, 0xFFFF); };
  for (const auto& [text, value] : {std::pair("-128", -128), {"0xff", 255}, {"010", 10}})
    EXPECT_EQ(number(text), value);
  for (const char* text : {"-129", "256", "99999999999", "", "0x", "0x-1", "1 "})
    EXPECT_EQ(number(text), std::nullopt) << text;
  for (const auto& [text, value] : {std::pair("2001", 0x2001), {"0xFFFF", 0xFFFF}, {"a", 10}})
    EXPECT_EQ(code(text), value);
  for (const char* text : {"10000", "-1", "", "xyz", "-0"})
    EXPECT_EQ(code(text), std::nullopt) << text;
}

TEST(CtlParse, Durations) {
  for (const auto& [text, ms] : {std::pair("1.5s", 1500), {"500ms", 500}, {"86400s", 86'400'000}})
    EXPECT_EQ(tools::ParseDuration(text), std::chrono::milliseconds(ms)) << text;
  for (const char* text : {"0ms", "-1s", "86401s", "25h", "500", "nans", "", "2s2s"})
    EXPECT_EQ(tools::ParseDuration(text), std::nullopt) << text;
}

TEST(CtlParse, HexBytes) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"{0xFF, 0x1}", "FF 01", ""},          {"\\xFF\\x01", "FF 01", ""},
      {" \n41\t42\r\n", "41 42", ""},        {"4 1", "", "'4' has an odd number of digits"},
      {"0x", "", "'0x' is not hexadecimal"},
  };
  for (const auto& [text, expected, problem] : rows) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(tools::ReadHexBytes(text, &bytes), problem) << text;
    EXPECT_EQ(sim::Hex(bytes), expected) << text;
  }
}

TEST(CtlParse, NearestName) {
  const std::vector<std::string> names = {"pan-left", "pan-right", "stop", "step", "write"};
  const std::pair<const char*, std::optional<std::string>> rows[] = {
      {"panright", "pan-right"}, {"stpo", "stop"},     {"st", "stop"},
      {"STOP", std::nullopt},    {"xy", std::nullopt}, {"", std::nullopt},
  };
  for (const auto& [typed, nearest] : rows)
    EXPECT_EQ(tools::NearestName(typed, names), nearest) << typed;
  EXPECT_EQ(tools::DidYouMean("pan", names), ", did you mean pan-left or pan-right?");
}

TEST(CtlOutput, EscapesControlCharacters) {
  // Input, expected text, expected JSON.
  const std::tuple<std::string, const char*, const char*> rows[] = {
      {"\u00E9 \u30AB \U0001F4F7", "\u00E9 \u30AB \U0001F4F7", "\u00E9 \u30AB \U0001F4F7"},
      {{"\0\n\x1B[\x7F", 5}, R"(\x00\x0A\x1B[\x7F)", R"(\u0000\n\u001b[\u007f)"},
      {"\u0080\u009F", R"(\xC2\x80\xC2\x9F)", R"(\u0080\u009f)"},
      {"\u202E\u2066", R"(\xE2\x80\xAE\xE2\x81\xA6)", R"(\u202e\u2066)"},
      // Not UTF-8: a C1 byte, an overlong ESC, a surrogate, a code point above the maximum, an
      // incomplete sequence.
      {"\x9B \xC0\x9B \xED\xA0\x80 \xF4\x90\x80\x80 \xE3\x82",
       R"(\x9B \xC0\x9B \xED\xA0\x80 \xF4\x90\x80\x80 \xE3\x82)",
       R"(\\x9B \\xC0\\x9B \\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80 \\xE3\\x82)"},
  };
  for (const auto& [text, shown, json] : rows) {
    EXPECT_EQ(tools::Escaped(text), shown);
    const std::string quoted = std::string(1, '"').append(json).append("\"\n");
    EXPECT_EQ(tools::JsonText(tools::OwnJson(tools::NewJsonText(text))), quoted);
  }
}

// --- Parameters -------------------------------------------------------------------------------

TEST(CtlParse, ParameterChangesAffectOnlyTheirBytes) {
  const std::tuple<std::string, size_t, std::string> rows[] = {
      {"model=QB-310", 0, "51 42 2D 33 31 30 00"},
      {"model=" + std::string(127, 'Q'), 0, sim::Hex(sim::Bytes(127, 0x51)) + " 00"},
      {"serial-count=2", 23728, "02 00 00 00"},
      {"baud=115200", 23764, "00 C2 01 00"},
      {"parity=odd", 23768, "02 00 00 00"},
      {"data-bits=7", 23772, "07 00 00 00"},
      {"stop-bits=2", 23776, "02 00 00 00"},
      {"ptz-enable=on", 23780, "01 00 00 00"},
      {"ptz-port=32767", 23784, "FF 7F 00 00"},
  };
  for (const auto& [text, at, bytes] : rows) {
    sim::Bytes block(PARAM_BLOCK_SIZE, 0xA5);
    tools::StoreParam(tools::ParseParamChange(text), block.data());
    const size_t count = (bytes.size() + 1) / 3;
    EXPECT_EQ(sim::Hex({block.data() + at, count}), bytes) << text;
    std::fill_n(block.begin() + static_cast<long>(at), count, uint8_t{0xA5});
    EXPECT_EQ(block, sim::Bytes(PARAM_BLOCK_SIZE, 0xA5)) << text;
  }
}

TEST(CtlParse, RejectsInvalidParameterChanges) {
  const std::pair<std::string, const char*> rows[] = {
      {"baud", "baud is not of the form NAME=VALUE"},
      {"buad=9600", "unknown parameter buad, did you mean baud?"},
      {"model=", "a model name cannot be empty"},
      {"data-bits=4", "data-bits cannot be '4'; allowed: 5 to 8"},
      {"model=" + std::string(128, 'Q'), "a model name must have 1 to 127 characters"},
  };
  for (const auto& [text, says] : rows) {
    std::string said;
    try {
      tools::ParseParamChange(text);
    } catch (const tools::Failure& failure) {
      said = failure.what();
    }
    EXPECT_EQ(said, says) << text;
  }
}

}  // namespace
