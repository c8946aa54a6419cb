#include "bench/statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace kelvrin::bench {

double Quantile(Samples samples, double fraction) {
  std::sort(samples.begin(), samples.end());
  const double position = fraction * static_cast<double>(samples.size() - 1);
  const auto below = static_cast<std::size_t>(position);
  const std::size_t above = std::min(below + 1, samples.size() - 1);
  return std::lerp(samples[below], samples[above], position - static_cast<double>(below));
}

double Median(const Samples& samples) { return Quantile(samples, 0.5); }

double Spread(const Samples& samples) {
  return (Quantile(samples, 0.75) - Quantile(samples, 0.25)) / Median(samples);
}

Samples Ratios(const Samples& numerator, const Samples& denominator) {
  if (numerator.size() != denominator.size()) {
    throw std::invalid_argument("rounds of two benchmarks do not match");
  }
  Samples ratios;
  ratios.reserve(numerator.size());
  for (std::size_t i = 0; i < numerator.size(); ++i) {
    ratios.push_back(numerator[i] / denominator[i]);
  }
  return ratios;
}

}  // namespace kelvrin::bench
