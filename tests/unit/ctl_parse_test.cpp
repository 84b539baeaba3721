// What users type: numbers, durations, bytes, names that are nearly right.
#include <gtest/gtest.h>

#include "sim/pty_line.h"
#include "tools/failure.h"
#include "tools/nearest_name.h"
#include "tools/param_fields.h"
#include "tools/parse.h"

namespace {

TEST(CtlParse, Numbers) {
  const std::pair<const char*, std::optional<int>> rows[] = {
      {"-128", -128},         {"0xff", 255},         {"010", 10},
      {"-129", std::nullopt}, {"256", std::nullopt}, {"99999999999", std::nullopt},
      {"", std::nullopt},     {"0x", std::nullopt},  {"0x-1", std::nullopt},
      {"1 ", std::nullopt},
  };
  for (const auto& [text, value] : rows)
    EXPECT_EQ(tools::ParseNumber(text, -128, 255), value) << text;
}

TEST(CtlParse, Codes) {
  const std::pair<const char*, std::optional<int>> rows[] = {
      {"2001", 0x2001},        {"0xFFFF", 0xFFFF},   {"a", 10},
      {"10000", std::nullopt}, {"-1", std::nullopt}, {"", std::nullopt},
      {"xyz", std::nullopt},   {"-0", std::nullopt},
  };
  for (const auto& [text, value] : rows)
    EXPECT_EQ(tools::ParseHexNumber(text, 0xFFFF), value) << text;
}

TEST(CtlParse, Durations) {
  const std::pair<const char*, int64_t> rows[] = {
      // -1: none
      {"1.5s", 1500}, {"0.001s", 1},   {"500ms", 500}, {"86400s", 86'400'000},
      {"0ms", -1},    {"-1s", -1},     {"86401s", -1}, {"25h", -1},
      {"500", -1},    {"2m", 120'000}, {"nans", -1},   {"", -1},
      {"2s2s", -1},
  };
  for (const auto& [text, ms] : rows) {
    const auto duration = tools::ParseDuration(text);
    EXPECT_EQ(duration.has_value() ? duration->count() : -1, ms) << text;
  }
}

TEST(CtlParse, HexBytes) {
  const struct {
    const char* text;
    const char* bytes;
    const char* problem = "";
  } rows[] = {
      {"{0xFF, 0x1}", "FF 01"},
      {"\\xFF\\x01", "FF 01"},
      {" \n41\t42\r\n", "41 42"},
      {"", ""},
      {"4", "", "'4' ends in half a byte"},
      {"4 1", "", "'4' ends in half a byte"},
      {"0x", "", "'0x' is not hexadecimal"},
  };
  for (const auto& row : rows) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(tools::ReadHexBytes(row.text, &bytes), row.problem) << row.text;
    EXPECT_EQ(sim::Hex(bytes), row.bytes) << row.text;
  }
}

TEST(CtlParse, NearestName) {
  const std::vector<std::string> names = {"pan-left", "pan-right", "panorama", "stop",
                                          "step",     "write",     "preset"};
  const std::pair<const char*, std::optional<std::string>> rows[] = {
      {"pan-lfet", "pan-left"}, {"panright", "pan-right"}, {"stpo", "stop"},
      {"wrtie", "write"},       {"presets", "preset"},     {"STOP", std::nullopt},
      {"xy", std::nullopt},     {"zoom", std::nullopt},    {"", std::nullopt},
      {"st", "stop"},
  };
  for (const auto& [typed, nearest] : rows)
    EXPECT_EQ(tools::NearestName(typed, names), nearest) << typed;
  EXPECT_EQ(tools::DidYouMean("pan", names), ", did you mean pan-left or pan-right?");
  EXPECT_EQ(tools::DidYouMean("pon", names), "");
}

// --- Parameters -------------------------------------------------------------------------------

TEST(CtlParse, ParameterChangesStoreTheirBytesAndNoOthers) {
  const std::tuple<const char*, size_t, std::string> rows[] = {
      {"model=QB-310", 0, "51 42 2D 33 31 30 00"}, {"model=", 0, "00"},
      {"serial-count=2", 23728, "02 00 00 00"},    {"baud=115200", 23764, "00 C2 01 00"},
      {"parity=odd", 23768, "02 00 00 00"},        {"parity=1", 23768, "01 00 00 00"},
      {"data-bits=7", 23772, "07 00 00 00"},       {"stop-bits=2", 23776, "02 00 00 00"},
      {"ptz-enable=on", 23780, "01 00 00 00"},     {"ptz-port=32767", 23784, "FF 7F 00 00"},
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

TEST(CtlParse, ParameterChangesThatAreNone) {
  const std::pair<std::string, const char*> rows[] = {
      {"baud", "baud is not of the form NAME=VALUE"},
      {"buad=9600", "there is no parameter buad, did you mean baud?"},
      {"baud=14400",
       "baud cannot be '14400'; allowed: 1200, 2400, 4800, 9600, 19200, 38400, "
       "57600, 115200"},
      {"parity=", "parity cannot be ''; allowed: none, even, odd"},
      {"data-bits=4", "data-bits cannot be '4'; allowed: 5 to 8"},
      {"model=" + std::string(128, 'Q'), "a model name has up to 127 characters"},
  };
  for (const auto& [text, says] : rows) {
    try {
      tools::ParseParamChange(text);
      ADD_FAILURE() << text;
    } catch (const tools::Failure& failure) {
      EXPECT_EQ(failure.status, tools::EXIT_STATUS_USAGE);
      EXPECT_STREQ(failure.what(), says);
    }
  }
}

}  // namespace
