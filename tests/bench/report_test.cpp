#include "bench/report.h"

#include <gtest/gtest.h>

namespace bench {
namespace {

const Figure kLatency = {
    .id = "latency", .section = "Speed", .label = "latency", .unit = "us", .better = Better::kLess};
const Figure kRate = {
    .id = "rate", .section = "Speed", .label = "rate", .unit = "MB/s", .better = Better::kMore};
const Figure kOwn = {
    .id = "own", .section = "Own", .label = "own", .unit = "ns", .better = Better::kLess};

Results Sample() {
  Results results;
  results.machine = {{"kernel", "Linux \"6\""}};
  results.method = {"how"};
  results.entrants = {{.id = "us", .what = "w", .version = "v", .role = Role::kSubject},
                      {.id = "slow", .what = "", .version = "", .role = Role::kPeer},
                      {.id = "fast", .what = "", .version = "", .role = Role::kPeer},
                      {.id = "least", .what = "", .version = "", .role = Role::kLimit}};
  for (const double value : {30.0, 10.0, 20.0})
    results.Add(kLatency, "us", value);
  results.Add(kLatency, "slow", 100);
  results.Add(kLatency, "fast", 40);
  results.Add(kLatency, "least", 10);
  results.Add(kRate, "us", 6);
  results.Add(kRate, "slow", 2);
  results.Add(kRate, "fast", 12);
  results.Add(kRate, "fast", 12);
  results.AddReason(kRate, "fast", "lost bytes");
  results.Add(kOwn, "us", 3);
  return results;
}

TEST(BenchResults, RatioIsToTheBestPeerThatHasAValue) {
  const Results results = Sample();
  EXPECT_EQ(results.BestPeer(kLatency)->id, "fast");
  EXPECT_EQ(results.Ratio(kLatency, results.BestPeer(kLatency)), 0.5);
  EXPECT_EQ(results.Ratio(kLatency, results.First(Role::kLimit)), 2);
  // One failed round and the peer has no value, good samples or not.
  EXPECT_EQ(results.BestPeer(kRate)->id, "slow");
  EXPECT_FALSE(results.Ratio(kRate, results.First(Role::kLimit)).has_value());
  EXPECT_EQ(results.BestPeer(kOwn), nullptr);
  EXPECT_TRUE(results.IsComparison("Speed"));
  EXPECT_FALSE(results.IsComparison("Own"));
}

TEST(BenchResults, SurviveJson) {
  const Results results = Sample();
  const std::string text = ToJson(results);
  const Results again = FromJson(text);
  EXPECT_EQ(ToJson(again), text);
  EXPECT_EQ(TextReport(again), TextReport(results));
  EXPECT_EQ(again.Value("latency", "us"), 20);
  for (const char* broken : {"", "{", "[]", "{\"machine\": {}}"})
    EXPECT_THROW(FromJson(broken), std::runtime_error) << broken;
}

TEST(BenchReport, TableIsAlignedAndGivesReasons) {
  const std::string text = TextReport(Sample());
  EXPECT_NE(text.find("\n"
                      "Speed\n"
                      "         unit                   us  slow     fast  least  / best peer"
                      "  / minimal\n"
                      "latency  us                     20   100       40     10         0.50"
                      "          2\n"
                      "rate     MB/s (more is better)   6     2  n/a [1]      -            3"
                      "          -\n"
                      "\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("[1] lost bytes\n"), std::string::npos) << text;
}

TEST(BenchReport, MarkdownGoesBetweenItsTwoLines) {
  const std::string report = MarkdownReport(Sample());
  EXPECT_NE(report.find("| latency | us | 20 | 100 | 40 | 10 | 0.50 | 2 |\n"), std::string::npos);
  const std::string document =
      std::string("before\n") + kReportBegin + "\nold\n" + kReportEnd + "\nafter\n";
  const std::string once = WithReport(document, report);
  EXPECT_EQ(once.find("before\n"), 0U);
  EXPECT_NE(once.find("\nafter\n"), std::string::npos);
  EXPECT_EQ(once.find("old"), std::string::npos);
  EXPECT_EQ(WithReport(once, report), once);
  EXPECT_THROW(WithReport("no lines", report), std::runtime_error);
}

}  // namespace
}  // namespace bench
