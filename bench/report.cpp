#include "bench/report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace kelvrin::bench {
namespace {

std::string Number(double value, int decimals, const char* unit = "") {
  std::array<char, 64> text = {};
  std::snprintf(text.data(), text.size(), "%.*f%s", decimals, value, unit);
  return text.data();
}

std::string SecondsText(double seconds) {
  if (seconds < 1e-6) return Number(seconds * 1e9, 1, " ns");
  if (seconds < 1e-3) return Number(seconds * 1e6, 2, " us");
  if (seconds < 1) return Number(seconds * 1e3, 2, " ms");
  return Number(seconds, 2, " s");
}

std::string ValueText(Quantity quantity, double value) {
  switch (quantity) {
    case Quantity::kSeconds:
      return SecondsText(value);
    case Quantity::kFactor:
      return Number(value, 2, " x");
    case Quantity::kBytes:
      return Number(value / 1024, 1, " KiB");
    case Quantity::kCount:
      break;
  }
  return Number(value, 0);
}

std::string TargetText(const Row& row) {
  if (!row.target) return "";
  const std::string limit =
      row.ratio_to_raw ? Number(row.target->limit, 2) : ValueText(row.quantity, row.target->limit);
  return (row.target->bound == Target::Bound::kAtLeast ? ">= " : "<= ") + limit;
}

std::string VerdictText(const Row& row) {
  const std::optional<bool> met = row.IsMet();
  if (!met) return "";
  return *met ? "met" : "MISSED";
}

constexpr std::size_t kColumns = 7;
using Line = std::array<std::string, kColumns>;

Line Cells(const Row& row) {
  return {"  " + row.name,
          ValueText(row.quantity, row.value),
          row.spread ? Number(*row.spread * 100, 1, " %") : "",
          row.quantity == Quantity::kSeconds ? Number(1 / row.value, 0) : "",
          row.ratio_to_raw ? Number(*row.ratio_to_raw, 3) : "",
          TargetText(row),
          VerdictText(row)};
}

// The first column is flush left, the others flush right; a title stands alone.
std::string Aligned(const std::vector<Line>& lines) {
  std::array<std::size_t, kColumns> widths = {};
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      if (i == 0 && line[1].empty()) continue;
      widths[i] = std::max(widths[i], line[i].size());
    }
  }
  std::string text;
  for (const Line& line : lines) {
    std::string row = line[0];
    for (std::size_t i = 1; i < kColumns; ++i) {
      row.append(widths[i - 1] - std::min(widths[i - 1], i == 1 ? line[0].size() : widths[i - 1]),
                 ' ');
      row.append(2 + widths[i] - line[i].size(), ' ');
      row += line[i];
    }
    row.erase(row.find_last_not_of(' ') + 1);
    text += row + '\n';
  }
  return text;
}

const char* UnitOf(Quantity quantity) {
  switch (quantity) {
    case Quantity::kSeconds:
      return "seconds";
    case Quantity::kFactor:
      return "factor";
    case Quantity::kBytes:
      return "bytes";
    case Quantity::kCount:
      break;
  }
  return "count";
}

nlohmann::ordered_json JsonOfRow(const Row& row) {
  nlohmann::ordered_json json = {
      {"name", row.name}, {"unit", UnitOf(row.quantity)}, {"value", row.value}};
  if (row.spread) json["spread"] = *row.spread;
  if (row.ratio_to_raw) json["ratio_to_raw"] = *row.ratio_to_raw;
  if (row.target) {
    json["target"] = row.target->bound == Target::Bound::kAtLeast ? "at least" : "at most";
    json["limit"] = row.target->limit;
  }
  if (const std::optional<bool> met = row.IsMet()) json["met"] = *met;
  return json;
}

}  // namespace

std::optional<bool> Row::IsMet() const {
  if (!target) return std::nullopt;
  const double reached = ratio_to_raw.value_or(value);
  return target->bound == Target::Bound::kAtLeast ? reached >= target->limit
                                                  : reached <= target->limit;
}

Row TimeRow(const std::string& name, const Samples& seconds) {
  Row row;
  row.name = name;
  row.value = Median(seconds);
  row.spread = Spread(seconds);
  return row;
}

Row TimeRow(const std::string& name, const Samples& seconds, const Samples& raw) {
  Row row = TimeRow(name, seconds);
  row.ratio_to_raw = Median(Ratios(raw, seconds));
  return row;
}

Verdict Judge(const Report& report) {
  Verdict verdict;
  for (const Section& section : report) {
    for (const Row& row : section.rows) {
      const std::optional<bool> met = row.IsMet();
      if (!met) continue;
      ++verdict.targets;
      if (!*met) ++verdict.missed;
    }
  }
  return verdict;
}

std::string TableOf(const Report& report) {
  std::vector<Line> lines = {
      {"", "median", "spread", "per second", "ratio to raw", "target", "verdict"}};
  for (const Section& section : report) {
    lines.push_back({section.title});
    for (const Row& row : section.rows) lines.push_back(Cells(row));
  }
  return Aligned(lines);
}

std::string LastLineOf(const Report& report) {
  const Verdict verdict = Judge(report);
  const std::string targets = std::to_string(verdict.targets);
  if (verdict.missed == 0) return "bench: all " + targets + " targets met";
  return "bench: " + std::to_string(verdict.missed) + " of " + targets + " targets missed";
}

std::string JsonOf(const Report& report, int rounds) {
  nlohmann::ordered_json sections = nlohmann::ordered_json::array();
  for (const Section& section : report) {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const Row& row : section.rows) rows.push_back(JsonOfRow(row));
    sections.push_back({{"title", section.title}, {"rows", rows}});
  }
  const Verdict verdict = Judge(report);
  const nlohmann::ordered_json json = {{"rounds", rounds},
                                       {"sections", sections},
                                       {"targets", verdict.targets},
                                       {"missed", verdict.missed}};
  return json.dump(2) + "\n";
}

}  // namespace kelvrin::bench
