// bench: how fast signatures are through the extension, and what it costs by itself.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "bench/cards.h"
#include "bench/report.h"
#include "bench/rounds.h"
#include "bench/sections.h"
#include "platform/linux/log/log_recorder.h"

namespace kelvrin::bench {
namespace {

constexpr int kWrongUsage = 2;
constexpr int kFewestRounds = 15;
constexpr double kMostDisturbed = 0.1;

struct Options {
  int rounds = 41;
  double min_seconds = 0.01;
  std::string json;
};

// Where the table goes: the access layer prints to standard output while it searches, and must not
// wait for a terminal meanwhile.
class Output {
 public:
  Output() : descriptor_(dup(STDOUT_FILENO)) {
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (descriptor_ < 0 || nothing < 0 || dup2(nothing, STDOUT_FILENO) < 0) {
      throw std::runtime_error("standard output cannot be redirected");
    }
    close(nothing);
  }
  ~Output() { close(descriptor_); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void Print(const std::string& text) const { dprintf(descriptor_, "%s", text.c_str()); }

 private:
  int descriptor_;
};

Report Measure(Rounds& rounds, const Output& output) {
  output.Print("making the cards\n");
  std::vector<int> certificates(std::begin(kSetupCertificates), std::end(kSetupCertificates));
  certificates.push_back(kManyCertificates);
  const Cards cards(certificates);
  const RawModule raw;
  // Three objects for each certificate, and this one: 100 on the largest card.
  raw.AddDataObject(Cards::Label(kManyCertificates));
  output.Print("measuring requests, set-ups and key agreements\n");
  Report report = {MeasureRequests(cards, rounds), MeasureSetup(cards, rounds),
                   MeasureAgreements(cards, raw)};
  output.Print("measuring signatures\n");
  for (const Section& section : MeasureSignatures(cards, raw, rounds)) report.push_back(section);
  return report;
}

// How far the numbers can be trusted.
std::string TrustOf(const Rounds& rounds) {
  if (rounds.disturbed() <= kMostDisturbed) return "";
  const long percent = std::lround(rounds.disturbed() * 100);
  return "The machine was busy: " + std::to_string(percent) +
         " % of the samples had to wait for the processor. Run this again when it rests.\n";
}

void Run(const Options& options) {
  const Output output;
  for (const os_log_type_t type : {OS_LOG_TYPE_DEFAULT, OS_LOG_TYPE_INFO, OS_LOG_TYPE_ERROR}) {
    oslog::set_enabled(type, false);
  }
  Rounds rounds(options.rounds, options.min_seconds);
  const Report report = Measure(rounds, output);
  if (!options.json.empty()) {
    std::ofstream file(options.json);
    file << JsonOf(report, options.rounds) << std::flush;
    if (!file) throw std::runtime_error(options.json + " cannot be written");
  }
  output.Print("\nMedians of " + std::to_string(options.rounds) + " alternating rounds.\n\n" +
               TableOf(report) + "\n" + TrustOf(rounds) + LastLineOf(report) + "\n");
}

int Main(int argc, char** argv) {
  Options options;
  CLI::App app("Measures signatures through the extension, and what the extension costs.", "bench");
  app.add_option("--rounds", options.rounds, "Rounds")
      ->check(CLI::Range(kFewestRounds, 10'000))
      ->capture_default_str();
  app.add_option("--min-time", options.min_seconds, "Seconds that a sample takes at least")
      ->check(CLI::Range(0.001, 60.0))
      ->capture_default_str();
  app.add_option("--json", options.json, "File to write the results to, as JSON");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_SUCCESS : kWrongUsage;
  }
  Run(options);
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace kelvrin::bench

int main(int argc, char** argv) {
  // C strings are UTF-8 whatever the locale says; Foundation looks here.
  setenv("GNUSTEP_STRING_ENCODING", "NSUTF8StringEncoding", 0);
  try {
    return kelvrin::bench::Main(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
