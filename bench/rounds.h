// Runs Google Benchmark's benchmarks in rounds that alternate between them.
#ifndef KELVRIN_BENCH_ROUNDS_H_
#define KELVRIN_BENCH_ROUNDS_H_

#include <cstddef>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/statistics.h"

namespace kelvrin::bench {

// The benchmarks of one section. One object at a time in a process.
class Rounds {
 public:
  // Each sample takes `min_seconds` at least.
  Rounds(int rounds, double min_seconds);

  // Adds a benchmark whose iteration is one call. A call that returns false makes the run fail.
  // `prepare`, if any, runs before each sample, outside its time.
  void Add(const std::string& name, const std::function<bool()>& call,
           const std::function<void()>& prepare = {});

  // The same for an action that takes its own time: it returns the seconds that count, or a
  // negative number when it failed.
  void AddTimed(const std::string& name, const std::function<double()>& call,
                const std::function<void()>& prepare = {});

  // Runs every benchmark once a round, in an order that is drawn anew for each round, and forgets
  // them. A sample that had to wait for the processor, because the machine had other work, is taken
  // again a few times. Returns the seconds per call of each benchmark, one sample a round. Throws
  // std::runtime_error when one fails.
  std::map<std::string, Samples> Run();

  // The fraction of the samples so far that had to wait all the same.
  double disturbed() const {
    return samples_ == 0 ? 0 : static_cast<double>(disturbed_) / static_cast<double>(samples_);
  }

 private:
  double Sample(const std::string& name);

  int rounds_;
  std::vector<std::string> names_;
  std::mt19937 random_{std::random_device()()};
  std::size_t samples_ = 0;
  std::size_t disturbed_ = 0;
};

}  // namespace kelvrin::bench

#endif  // KELVRIN_BENCH_ROUNDS_H_
