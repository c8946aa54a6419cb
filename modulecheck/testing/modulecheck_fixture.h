// Runs the built program on cards, good modules and bad ones.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/linux/host/testing/program.h"
#include "platform/linux/host/testing/text_files.h"
#include "tests/card/softhsm_card.h"
#include "tests/temporary_folder.h"

namespace kelvrin::modulecheck {

using host::testing::Outcome;

class ModulecheckTest : public testing::Test {
 protected:
  explicit ModulecheckTest(const CardOptions& options = {}) : card_(options) {}
  ~ModulecheckTest() override {
    for (const char* name : {"KELVRIN_FAULT", "KELVRIN_FAULT_BEHIND", "KELVRIN_FAULT_CALLS"}) {
      unsetenv(name);
    }
  }

  static Outcome Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KELVRIN_MODULECHECK);
    return host::testing::RunProgram(arguments);
  }
  // The same with --json: the document.
  static nlohmann::json RunJson(std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    const Outcome outcome = Run(arguments);
    nlohmann::json report = nlohmann::json::parse(outcome.output, nullptr, false);
    EXPECT_TRUE(report.is_object()) << outcome.output << outcome.errors;
    if (report.is_object()) EXPECT_EQ(report.at("exitStatus"), outcome.status);
    return report;
  }

  std::string SoftHsm() const { return SoftHsmCard::Module(); }
  std::string PinFile() const { return card_.File("pin"); }

  // A module that does all that the extension expects: an adapter in front of the card.
  std::string GoodModule() const {
    const auto library = folder_ / "good.so";
    if (!std::filesystem::exists(library)) {
      std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, library);
      folder_.Write("good.conf", "module = " + SoftHsm() + "\n");
    }
    return library;
  }

  // A module that has this fault and is that one otherwise.
  std::string FaultyModule(const std::string& fault, const std::string& behind) const {
    setenv("KELVRIN_FAULT", fault.c_str(), 1);
    setenv("KELVRIN_FAULT_BEHIND", behind.c_str(), 1);
    setenv("KELVRIN_FAULT_CALLS", (folder_ / "calls").c_str(), 1);
    std::filesystem::remove(folder_ / "calls");
    return KELVRIN_FAULT_MODULE;
  }
  std::string FaultyModule(const std::string& fault) const {
    return FaultyModule(fault, GoodModule());
  }

  // A file with the line by which the adapter takes a card in any reader.
  std::string AnyReader() const { return folder_.Write("any", "any-reader = yes\n"); }

  // How often the faulty module's function was called.
  std::size_t Calls(const std::string& function) const {
    const std::string calls = host::testing::ReadText(folder_ / "calls");
    std::size_t count = 0;
    for (std::size_t at = 0; (at = calls.find(function, at)) != std::string::npos; ++at) ++count;
    return count;
  }

  static const nlohmann::json& Find(const nlohmann::json& report, const std::string& name) {
    static const nlohmann::json none = nlohmann::json::object();
    const auto& all = report.at("expectations");
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const auto& one) { return one.at("name") == name; });
    EXPECT_NE(found, all.end()) << name;
    return found == all.end() ? none : *found;
  }
  static std::string VerdictOn(const nlohmann::json& report, const std::string& name) {
    return Find(report, name).value("verdict", "");
  }
  static std::string AsItIs(const nlohmann::json& report, const std::string& name) {
    return Find(report, name).at("asItIs").at("outcome");
  }
  // The names of the expectations that have this verdict.
  static std::vector<std::string> WithVerdict(const nlohmann::json& report,
                                              const std::string& verdict) {
    std::vector<std::string> names;
    for (const auto& one : report.at("expectations")) {
      if (one.at("verdict") == verdict) names.push_back(one.at("name"));
    }
    return names;
  }
  static std::string Reason(const nlohmann::json& report) {
    return report.contains("notJudged") ? report.at("notJudged").value("reason", "") : "";
  }
  // The names of those that the module does not meet as it is.
  static std::vector<std::string> UnmetAsItIs(const nlohmann::json& report) {
    std::vector<std::string> names;
    for (const auto& one : report.at("expectations")) {
      if (one.at("asItIs").at("outcome") == "unmet") names.push_back(one.at("name"));
    }
    return names;
  }

  TemporaryFolder folder_;
  SoftHsmCard card_;
};

}  // namespace kelvrin::modulecheck
