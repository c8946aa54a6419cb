// Runs the built program on modules with and without a fault.
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
#include "tests/product/product_files.h"
#include "tests/temporary_folder.h"

namespace kelvrin::modulecheck {

using host::testing::Outcome;
using Arguments = std::vector<std::string>;

class ModulecheckTest : public testing::Test {
 protected:
  ~ModulecheckTest() override {
    unsetenv("KELVRIN_FAULT");
    unsetenv("KELVRIN_CALLS");
    unsetenv("KELVRIN_RSA_KEY");
  }

  static std::string Program() { return product::Modulecheck(); }

  static Outcome Run(Arguments arguments, const Arguments& more = {}) {
    arguments.insert(arguments.begin(), Program());
    arguments.insert(arguments.end(), more.begin(), more.end());
    return host::testing::RunProgram(arguments);
  }
  // The same with --json: the document.
  static nlohmann::json RunJson(Arguments arguments, const Arguments& more = {}) {
    arguments.emplace_back("--json");
    const Outcome outcome = Run(arguments, more);
    nlohmann::json report = nlohmann::json::parse(outcome.output, nullptr, false);
    EXPECT_TRUE(report.is_object()) << outcome.output << outcome.errors;
    if (report.is_object()) EXPECT_EQ(report.at("exitStatus"), outcome.status);
    return report;
  }

  // A module that does all that the extension expects, but for this fault (faulty_module.cpp).
  std::string FaultyModule(const std::string& fault) const {
    setenv("KELVRIN_FAULT", fault.c_str(), 1);
    setenv("KELVRIN_RSA_KEY", RsaKey().c_str(), 1);
    setenv("KELVRIN_CALLS", (folder_ / "calls").c_str(), 1);
    std::filesystem::remove(folder_ / "calls");
    return KELVRIN_FAULTY_MODULE;
  }
  // A file with the RSA key of all modules: to make one takes each process a while.
  static const std::string& RsaKey() {
    static const TemporaryFolder folder;
    static const std::string path = folder / "rsa.pem";
    static const Outcome made =
        host::testing::RunProgram({"/usr/bin/openssl", "genrsa", "-out", path, "2048"});
    EXPECT_EQ(made.status, 0) << made.errors;
    return path;
  }
  std::string GoodModule() const { return FaultyModule("none"); }

  std::string PinFile(const std::string& text = "123456\n") const {
    return folder_.Write("pin", text);
  }

  // How often the module's function was called.
  std::size_t Calls(const std::string& function) const {
    const std::string calls = host::testing::ReadText(folder_ / "calls");
    std::size_t count = 0;
    for (std::size_t at = 0; (at = calls.find(function, at)) != std::string::npos; ++at) ++count;
    return count;
  }

  // The element of a list whose member is this; an empty object when there is none.
  static nlohmann::json With(const nlohmann::json& elements, const char* member,
                             const std::string& value) {
    for (const auto& element : elements) {
      if (element.at(member) == value) return element;
    }
    ADD_FAILURE() << value;
    return nlohmann::json::object();
  }
  static nlohmann::json Find(const nlohmann::json& report, const std::string& name) {
    return With(report.at("expectations"), "name", name);
  }
  static std::string VerdictOn(const nlohmann::json& report, const std::string& name) {
    return Find(report, name).value("verdict", "");
  }
  static std::string AsItIs(const nlohmann::json& report, const std::string& name) {
    return Find(report, name).at("asItIs").at("outcome");
  }
  // The names of the expectations that have this verdict.
  static Arguments WithVerdict(const nlohmann::json& report, const std::string& verdict) {
    return Names(report, [&](const auto& one) { return one.at("verdict") == verdict; });
  }
  // The names of those that the module does not meet as it is.
  static Arguments UnmetAsItIs(const nlohmann::json& report) {
    return Names(report, [](const auto& one) { return one.at("asItIs").at("outcome") == "unmet"; });
  }
  // Why the module could not be judged.
  static std::string Reason(const nlohmann::json& report) {
    return report.value("notJudged", nlohmann::json::object()).value("reason", "");
  }

  TemporaryFolder folder_;

 private:
  template <typename Predicate>
  static Arguments Names(const nlohmann::json& report, Predicate predicate) {
    Arguments names;
    for (const auto& one : report.at("expectations")) {
      if (predicate(one)) names.push_back(one.at("name"));
    }
    return names;
  }
};

}  // namespace kelvrin::modulecheck
