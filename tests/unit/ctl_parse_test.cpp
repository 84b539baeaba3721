// What users type: numbers, durations, bytes, names that are nearly right.
#include <gtest/gtest.h>

#include "sim/pty_line.h"
#include "tools/failure.h"
#include "tools/nearest_name.h"
#include "tools/param_fields.h"
#include "tools/parse.h"

namespace {

TEST(CtlParse, Numbers) {
  const struct {
    const char* text;
    std::optional<int> value;  // from -128 to 255
  } rows[] = {
      {"0", 0},
      {"-128", -128},
      {"255", 255},
      {"0xff", 255},
      {"010", 10},
      {"-129", std::nullopt},
      {"256", std::nullopt},
      {"99999999999", std::nullopt},
      {"", std::nullopt},
      {"-", std::nullopt},
      {"0x", std::nullopt},
      {"0x-1", std::nullopt},
      {"+1", std::nullopt},
      {" 1", std::nullopt},
      {"1 ", std::nullopt},
      {"1.5", std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(tools::ParseNumber(row.text, -128, 255), row.value) << row.text;
}

TEST(CtlParse, Codes) {
  const struct {
    const char* text;
    std::optional<int> value;
  } rows[] = {
      {"2001", 0x2001},        {"0xFFFF", 0xFFFF},   {"a", 10},
      {"10000", std::nullopt}, {"-1", std::nullopt}, {"", std::nullopt},
      {"xyz", std::nullopt},   {"-0", std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(tools::ParseHexNumber(row.text, 0xFFFF), row.value) << row.text;
}

TEST(CtlParse, Durations) {
  const struct {
    const char* text;
    int64_t ms;  // -1: none
  } rows[] = {
      {"500ms", 500},
      {"2s", 2000},
      {"1.5s", 1500},
      {"0.001s", 1},
      {"86400s", 86'400'000},
      {"1ms", 1},
      {"0ms", -1},
      {"0s", -1},
      {"-1s", -1},
      {"86401s", -1},
      {"24h", 86'400'000},
      {"25h", -1},
      {"500", -1},
      {"s", -1},
      {"ms", -1},
      {"2 s", -1},
      {"2m", 120'000},
      {"1e9s", -1},
      {"nans", -1},
      {"infs", -1},
      {"", -1},
      {"2s2s", -1},
  };
  for (const auto& row : rows) {
    const auto duration = tools::ParseDuration(row.text);
    EXPECT_EQ(duration.has_value() ? duration->count() : -1, row.ms) << row.text;
  }
}

TEST(CtlParse, HexBytes) {
  const struct {
    const char* text;
    const char* bytes;
    const char* problem = "";
  } rows[] = {
      {"FF 01 0a", "FF 01 0A"},
      {"ff010A", "FF 01 0A"},
      {"0xFF 0x01,", "FF 01"},
      {"{0xFF, 0x1}", "FF 01"},
      {"\\xFF\\x01", "FF 01"},
      {" \n41\t42\r\n", "41 42"},
      {"", ""},
      {"4", "", "'4' ends in half a byte"},
      {"41 4", "41", "'4' ends in half a byte"},
      {"4 1", "", "'4' ends in half a byte"},
      {"0x", "", "'0x' is not hexadecimal"},
      {"+1", "", "'+1' is not hexadecimal"},
      {"gg", "", "'gg' is not hexadecimal"},
  };
  for (const auto& row : rows) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(tools::ReadHexBytes(row.text, &bytes), row.problem) << row.text;
    EXPECT_EQ(sim::Hex(bytes), row.bytes) << row.text;
  }
}

TEST(CtlParse, NearestName) {
  const std::vector<std::string> names = {"pan-left", "pan-right", "stop", "up", "write", "preset"};
  const struct {
    const char* typed;
    std::optional<std::string> nearest;
  } rows[] = {
      {"pan-lfet", "pan-left"}, {"panright", "pan-right"}, {"stpo", "stop"},
      {"wrtie", "write"},       {"presets", "preset"},     {"STOP", std::nullopt},
      {"xy", std::nullopt},     {"zoom", std::nullopt},    {"", std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(tools::NearestName(row.typed, names), row.nearest) << row.typed;
  EXPECT_EQ(tools::EditDistance("abcd", "abdc"), 1U);
  EXPECT_EQ(tools::EditDistance("kitten", "sitting"), 3U);
}

// --- Parameters -------------------------------------------------------------------------------

TEST(CtlParse, FirstWordOfAName) {
  const std::vector<std::string> names = {"zoom-tele", "zoom-wide", "zoomed", "stop"};
  EXPECT_EQ(tools::DidYouMean("zoom", names), ", did you mean zoom-tele or zoom-wide?");
  EXPECT_EQ(tools::DidYouMean("zom", names), "");
  EXPECT_EQ(tools::DidYouMean("stpo", names), ", did you mean stop?");
}

TEST(CtlParse, ParameterChangesStoreTheirBytesAndNoOthers) {
  const struct {
    const char* text;
    size_t at;
    const char* bytes;
  } rows[] = {
      {"model=QB-310", 0, "51 42 2D 33 31 30 00"}, {"model=", 0, "00"},
      {"serial-count=2", 23728, "02 00 00 00"},    {"baud=115200", 23764, "00 C2 01 00"},
      {"parity=odd", 23768, "02 00 00 00"},        {"parity=1", 23768, "01 00 00 00"},
      {"data-bits=7", 23772, "07 00 00 00"},       {"stop-bits=2", 23776, "02 00 00 00"},
      {"ptz-enable=on", 23780, "01 00 00 00"},     {"ptz-port=32767", 23784, "FF 7F 00 00"},
  };
  for (const auto& row : rows) {
    sim::Bytes block(PARAM_BLOCK_SIZE, 0xA5);
    tools::StoreParam(tools::ParseParamChange(row.text), block.data());
    const size_t count = (std::string(row.bytes).size() + 1) / 3;
    EXPECT_EQ(sim::Hex({block.data() + row.at, count}), row.bytes) << row.text;
    std::fill_n(block.begin() + static_cast<long>(row.at), count, uint8_t{0xA5});
    EXPECT_EQ(block, sim::Bytes(PARAM_BLOCK_SIZE, 0xA5)) << row.text;
  }
}

TEST(CtlParse, ParameterChangesThatAreNone) {
  const struct {
    std::string text;
    const char* says;
  } rows[] = {
      {"baud", "baud is not of the form NAME=VALUE"},
      {"buad=9600", "there is no parameter buad, did you mean baud?"},
      {"=1", "there is no parameter "},
      {"baud=14400",
       "baud cannot be '14400'; allowed: 1200, 2400, 4800, 9600, 19200, 38400, "
       "57600, 115200"},
      {"parity=3", "parity cannot be '3'; allowed: none, even, odd"},
      {"parity=", "parity cannot be ''; allowed: none, even, odd"},
      {"data-bits=4", "data-bits cannot be '4'; allowed: 5 to 8"},
      {"ptz-port=32768", "ptz-port cannot be '32768'; allowed: 1 to 32767"},
      {"model=" + std::string(128, 'Q'), "a model name has up to 127 characters"},
  };
  for (const auto& row : rows) {
    try {
      tools::ParseParamChange(row.text);
      ADD_FAILURE() << row.text;
    } catch (const tools::Failure& failure) {
      EXPECT_EQ(failure.status, tools::EXIT_STATUS_USAGE);
      EXPECT_STREQ(failure.what(), row.says);
    }
  }
}

}  // namespace
