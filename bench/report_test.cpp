// How samples become results, and results become met or missed.
#include "bench/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kelvrin::bench {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Row RatioRow(double ratio, double limit) {
  Row row;
  row.name = "road";
  row.value = 2e-6;
  row.ratio_to_raw = ratio;
  row.target = {Target::Bound::kAtLeast, limit};
  return row;
}

TEST(StatisticsTest, RoundsOfDifferentNumbersAreNoRatios) {
  EXPECT_THROW(Ratios({1, 2}, {1}), std::invalid_argument);
}

TEST(StatisticsTest, EachRoundIsComparedWithItself) {
  EXPECT_THAT(Ratios({2, 9}, {4, 3}), ElementsAre(0.5, 3));
}

TEST(StatisticsTest, TheMedianIsTheMiddleOfTheSortedSamples) {
  EXPECT_EQ(Median({7}), 7);
  EXPECT_EQ(Median({9, 1, 5}), 5);
  EXPECT_EQ(Median({4, 1, 9, 2}), 3);
}

TEST(StatisticsTest, TheSpreadIsTheQuartilesDistanceInMedians) {
  EXPECT_EQ(Spread({1, 2, 3, 4, 5}), 2.0 / 3);
  EXPECT_EQ(Spread({4, 4, 4}), 0);
}

TEST(ReportTest, ARowWithoutATargetIsNeitherMetNorMissed) {
  EXPECT_EQ(TimeRow("raw", {1, 2, 3}).IsMet(), std::nullopt);
}

TEST(ReportTest, ARatioIsJudgedInTheValuesPlace) {
  EXPECT_EQ(RatioRow(0.96, 0.97).IsMet(), false);
  EXPECT_EQ(RatioRow(0.97, 0.97).IsMet(), true);
}

TEST(ReportTest, AValueIsJudgedWhereThereIsNoRatio) {
  Row row = TimeRow("request", {4e-6, 5e-6, 6e-6});
  row.target = {Target::Bound::kAtMost, 5e-6};
  EXPECT_EQ(row.IsMet(), true);
  row.target->limit = 4.9e-6;
  EXPECT_EQ(row.IsMet(), false);
}

TEST(ReportTest, TheRatioToRawIsOfThroughput) {
  EXPECT_EQ(TimeRow("road", {4, 4, 4}, {1, 2, 3}).ratio_to_raw, 0.5);
}

TEST(ReportTest, TheLastLineCountsWhatIsMissed) {
  EXPECT_EQ(LastLineOf({{"A", {RatioRow(0.9, 0.5), TimeRow("raw", {1})}}}),
            "bench: all 1 targets met");
  EXPECT_EQ(LastLineOf({{"A", {RatioRow(0.9, 0.5), RatioRow(0.4, 0.5)}}, {"B", {RatioRow(0, 1)}}}),
            "bench: 2 of 3 targets missed");
}

TEST(ReportTest, TheTableNamesWhatIsMissed) {
  EXPECT_EQ(TableOf({{"Signatures", {RatioRow(0.5, 0.97), TimeRow("raw", {1e-6, 1e-6})}}}),
            "         median  spread  per second  ratio to raw   target  verdict\n"
            "Signatures\n"
            "  road  2.00 us              500000         0.500  >= 0.97   MISSED\n"
            "  raw   1.00 us   0.0 %     1000000\n");
}

TEST(ReportTest, TheTableHasAUnitForEveryQuantity) {
  Row row;
  row.target = Target{};
  row.quantity = Quantity::kBytes;
  row.value = 1536;
  EXPECT_THAT(TableOf({{"", {row}}}), HasSubstr("1.5 KiB"));
  row.quantity = Quantity::kFactor;
  EXPECT_THAT(TableOf({{"", {row}}}), HasSubstr("1536.00 x"));
  row.quantity = Quantity::kCount;
  row.value = 0;
  EXPECT_THAT(TableOf({{"", {row}}}), HasSubstr("<= 0"));
}

TEST(ReportTest, TheJsonHasWhatARowHas) {
  const auto json = nlohmann::json::parse(
      JsonOf({{"A", {RatioRow(0.4, 0.5), TimeRow("raw", {0.25, 0.25})}}}, 21));
  EXPECT_EQ(json, nlohmann::json::parse(R"({
    "rounds": 21, "targets": 1, "missed": 1, "sections": [{"title": "A", "rows": [
      {"name": "road", "unit": "seconds", "value": 2e-6, "ratio_to_raw": 0.4,
       "target": "at least", "limit": 0.5, "met": false},
      {"name": "raw", "unit": "seconds", "value": 0.25, "spread": 0.0}]}]})"));
}

}  // namespace
}  // namespace kelvrin::bench
