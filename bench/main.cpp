// bench SECTION [the flags of Google Benchmark]: measures one section. bench.py runs them all.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>

#include "bench/benchmarks.h"
#include "platform/linux/log/log_recorder.h"

namespace kelvrin::bench {

void Register(const std::string& name, const std::function<bool()>& call,
              const std::function<void()>& prepare) {
  benchmark::RegisterBenchmark(name.c_str(), [call, prepare](benchmark::State& state) {
    if (prepare) prepare();
    while (state.KeepRunning()) {
      if (call()) continue;
      state.SkipWithError("the call failed");
      break;
    }
  })->UseRealTime();
}

void RegisterTimed(const std::string& name, const std::function<double()>& call,
                   const std::function<void()>& prepare) {
  benchmark::RegisterBenchmark(name.c_str(), [call, prepare](benchmark::State& state) {
    if (prepare) prepare();
    while (state.KeepRunning()) {
      const double seconds = call();
      if (seconds < 0) {
        state.SkipWithError("the call failed");
        break;
      }
      state.SetIterationTime(seconds);
    }
  })->UseManualTime();
}

namespace {

int Run(int argc, char** argv) {
  const std::map<std::string, Fixture (*)()> sections = {{"requests", RegisterRequests},
                                                         {"setups", RegisterSetups},
                                                         {"agreements", RegisterAgreements},
                                                         {"rsa", RegisterRsaSignatures},
                                                         {"ec", RegisterEcSignatures}};
  const auto section = sections.find(argc < 2 ? "" : argv[1]);
  benchmark::Initialize(&argc, argv);
  if (section == sections.end() || argc != 2) {
    std::fprintf(stderr, "usage: bench requests|setups|agreements|rsa|ec [flags]\n");
    return 2;
  }
  for (const os_log_type_t type : {OS_LOG_TYPE_DEFAULT, OS_LOG_TYPE_INFO, OS_LOG_TYPE_ERROR}) {
    oslog::SetEnabled(type, false);
  }
  const Fixture fixture = section->second();
  return benchmark::RunSpecifiedBenchmarks() == 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace
}  // namespace kelvrin::bench

int main(int argc, char** argv) {
  // C strings are UTF-8 whatever the locale says; Foundation looks here.
  setenv("GNUSTEP_STRING_ENCODING", "NSUTF8StringEncoding", 0);
  try {
    return kelvrin::bench::Run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
