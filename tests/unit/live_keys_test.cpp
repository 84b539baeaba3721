// Keys of the live screen: what they send, and that every motion ends.
#include "sim/live_keys.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using sim::KeyAction;
using sim::KeyDriver;
using sim::milliseconds;
using std::string;

// "CODE P1 P2 P3; " for each command, the bytes for what goes to the line.
string Told(const std::vector<KeyAction>& actions) {
  string told;
  for (const KeyAction& action : actions) {
    char text[64];
    if (action.control.has_value()) {
      snprintf(text, sizeof(text), "%04X %d %d %d; ", action.control->code, action.control->first,
               action.control->second, action.control->third);
    } else {
      snprintf(text, sizeof(text), "%s; ", sim::Hex(action.line).c_str());
    }
    told += text;
  }
  return told;
}

// A key, or 0 for a look at whether one was let go, some time after the row before it.
struct Step {
  int key;
  int after_ms;
  const char* sent;
};

void ExpectSent(const char* model, const std::vector<Step>& steps) {
  KeyDriver keys(model);
  sim::Clock::time_point now = {};
  for (size_t i = 0; i < steps.size(); ++i) {
    now += milliseconds(steps[i].after_ms);
    EXPECT_EQ(Told(steps[i].key == 0 ? keys.Tick(now) : keys.Press(steps[i].key, now)),
              steps[i].sent)
        << model << " step " << i;
  }
}

TEST(LiveKeys, HeldMotionIsSentOnceAndStoppedWhenLetGo) {
  using namespace sim;
  ExpectSent("QB-620", {{kKeyRight, 0, "1012 50 0 0; "},
                        {kKeyRight, 299, ""},  // repeats keep it going
                        {0, 299, ""},
                        {0, 1, "2002 0 0 0; "},
                        {0, 5000, ""},
                        {kKeyUp, 0, "1012 0 50 0; "},
                        {'+', 100, "2002 0 0 1; "},              // the same stop: no need for it
                        {'n', 100, "2002 0 0 0; 2001 1 0 0; "},  // another one
                        {' ', 0, "2002 0 0 0; "},
                        {0, 5000, ""}});
  ExpectSent("QB-420", {{'+', 0, "2002 0 0 40; "},
                        {'f', 100, "2002 0 0 0; 2001 -40 0 0; "},
                        {0, 300, "2001 0 0 0; "},
                        {' ', 0, "2002 0 0 0; 2001 0 0 0; "}});
  // no code stops this head
  ExpectSent("QB-610", {{kKeyLeft, 0, "2009 0 0 0; "},
                        {0, 300, "FF 01 00 00 00 00 01; "},
                        {' ', 0, "FF 01 00 00 00 00 01; "}});
}

TEST(LiveKeys, TapsAreNotSentFasterThanTheDaemonCarriesThemOut) {
  using namespace sim;
  for (const char* model : {"QB-100", "QB-210", "QB-310"}) {
    ExpectSent(model, {{kKeyLeft, 0, "2009 0 0 0; "},
                       {kKeyLeft, 40, ""},
                       {kKeyLeft, 209, ""},
                       {kKeyLeft, 1, "2009 0 0 0; "},
                       {kKeyUp, 10, "2007 0 0 0; "},
                       {0, 5000, ""}});  // each ends by itself
  }
}

TEST(LiveKeys, EachModelAnswersItsOwnKeys) {
  using namespace sim;
  const std::tuple<const char*, int, const char*> rows[] = {
      {"QB-620", '3', "1021 3 0 0; "},
      {"QB-100", '3', ""},
      {"QB-610", 'n', ""},
      {"QB-210", '+', "2002 0 0 1; "},
      {"QB-310", 'F', "1202 0 0 0; "},
      {"QB-420", 'i', "100A -1 0 0; "},
  };
  for (const auto& [model, key, sent] : rows) {
    ExpectSent(model, {{key, 0, sent}});
    KeyDriver keys(model);
    keys.Press(key, {});
    EXPECT_EQ(keys.State().find("no key of this model") != string::npos, *sent == '\0') << model;
  }
  ExpectSent("QB-620", {{'p', 0, ""},
                        {'4', 0, "1020 4 0 0; "},
                        {'4', 0, "1021 4 0 0; "},
                        {'p', 0, ""},
                        {'m', 0, "2000 0 0 0; "},
                        {'4', 0, "1021 4 0 0; "}});
  ExpectSent("QB-420",
             {{'A', 0, "8100 2 0 0; "}, {'A', 0, "8100 3 0 0; "}, {'A', 0, "8100 2 0 0; "}});
}

}  // namespace
