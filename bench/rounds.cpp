#include "bench/rounds.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

namespace kelvrin::bench {
namespace {

// Waiting for the processor by more than this fraction of the time spoils a sample.
constexpr double kCalm = 0.02;
constexpr int kMostTries = 6;

// Takes what the library measured instead of printing it.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) error = run.error_message;
      const double taken = run.real_accumulated_time;
      seconds = taken / static_cast<double>(run.iterations);
      waited = (taken - run.cpu_accumulated_time) / taken;
    }
  }

  std::string error;   // empty when nothing failed
  double seconds = 0;  // of one call
  double waited = 0;   // the part of the time in which another process had the processor
};

using Loop = std::function<void(benchmark::State&)>;

class LoopBenchmark : public benchmark::internal::Benchmark {
 public:
  LoopBenchmark(const std::string& name, Loop loop)
      : Benchmark(name.c_str()), loop_(std::move(loop)) {}
  void Run(benchmark::State& state) override { loop_(state); }

 private:
  Loop loop_;
};

// As the library's macros do it.
benchmark::internal::Benchmark* Register(const std::string& name, Loop loop) {
  auto benchmark = std::make_unique<LoopBenchmark>(name, std::move(loop));
  // The library takes it over, which the analyser cannot see.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
  return benchmark::internal::RegisterBenchmarkInternal(benchmark.release());
}

// The regular expression for a name: what could mean something there stands for any character.
std::string Pattern(std::string name) {
  std::replace_if(
      name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) == 0; },
      '.');
  return "^" + name + "/";
}

}  // namespace

Rounds::Rounds(int rounds, double min_seconds) : rounds_(rounds) {
  std::string program = "bench";
  std::string min_time = "--benchmark_min_time=" + std::to_string(min_seconds);
  std::vector<char*> arguments = {program.data(), min_time.data(), nullptr};
  int count = static_cast<int>(arguments.size()) - 1;
  benchmark::Initialize(&count, arguments.data());
}

void Rounds::Add(const std::string& name, const std::function<bool()>& call,
                 const std::function<void()>& prepare) {
  names_.push_back(name);
  Register(name, [call, prepare](benchmark::State& state) {
    if (prepare) prepare();
    for (auto _ : state) {
      if (call()) continue;
      state.SkipWithError("the call failed");
      break;
    }
  })->UseRealTime();
}

void Rounds::AddTimed(const std::string& name, const std::function<double()>& call,
                      const std::function<void()>& prepare) {
  names_.push_back(name);
  Register(name, [call, prepare](benchmark::State& state) {
    if (prepare) prepare();
    for (auto _ : state) {
      const double seconds = call();
      if (seconds < 0) {
        state.SkipWithError("the call failed");
        break;
      }
      state.SetIterationTime(seconds);
    }
  })->UseManualTime();
}

// The calmest of a few tries.
double Rounds::Sample(const std::string& name) {
  double best = 0;
  double least_wait = std::numeric_limits<double>::infinity();
  for (int i = 0; i < kMostTries && least_wait > kCalm; ++i) {
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector, Pattern(name));
    if (!collector.error.empty()) throw std::runtime_error(name + ": " + collector.error);
    if (collector.waited >= least_wait) continue;
    least_wait = collector.waited;
    best = collector.seconds;
  }
  ++samples_;
  if (least_wait > kCalm) ++disturbed_;
  return best;
}

std::map<std::string, Samples> Rounds::Run() {
  std::map<std::string, Samples> samples;
  for (int round = 0; round < rounds_; ++round) {
    std::shuffle(names_.begin(), names_.end(), random_);
    for (const std::string& name : names_) samples[name].push_back(Sample(name));
  }
  benchmark::ClearRegisteredBenchmarks();
  names_.clear();
  return samples;
}

}  // namespace kelvrin::bench
