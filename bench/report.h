// Results and targets, as a table and as JSON.
#ifndef KELVRIN_BENCH_REPORT_H_
#define KELVRIN_BENCH_REPORT_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "bench/statistics.h"

namespace kelvrin::bench {

enum class Quantity {
  kSeconds,  // of one call
  kFactor,
  kBytes,
  kCount,
};

// What a result should reach: its ratio to raw where it has one, else its value.
struct Target {
  enum class Bound { kAtLeast, kAtMost };
  Bound bound = Bound::kAtMost;
  double limit = 0;
};

struct Row {
  std::string name;
  Quantity quantity = Quantity::kSeconds;
  double value = 0;                    // the median, where there are rounds
  std::optional<double> spread;        // a fraction of the value
  std::optional<double> ratio_to_raw;  // of throughput: 1 is as fast as raw, less is slower
  std::optional<Target> target;

  // Whether the target is reached; nothing without one.
  std::optional<bool> IsMet() const;
};

struct Section {
  std::string title;
  std::vector<Row> rows;
};

using Report = std::vector<Section>;

// A row of seconds per call with median and spread.
Row TimeRow(const std::string& name, const Samples& seconds);

// The same beside the raw calls of the same rounds.
Row TimeRow(const std::string& name, const Samples& seconds, const Samples& raw);

struct Verdict {
  std::size_t targets = 0;
  std::size_t missed = 0;
};
Verdict Judge(const Report& report);

// One line a row under each section's title; columns in line, the last says "met" or "MISSED".
std::string TableOf(const Report& report);

// "bench: 1 of 12 targets missed" or "bench: all 12 targets met".
std::string LastLineOf(const Report& report);

// {"rounds": ..., "sections": [{"title", "rows": [{"name", "unit", "value", "spread",
// "ratio_to_raw", "target", "limit", "met"}]}], "targets", "missed"}; what a row does not have is
// not there.
std::string JsonOf(const Report& report, int rounds);

}  // namespace kelvrin::bench

#endif  // KELVRIN_BENCH_REPORT_H_
