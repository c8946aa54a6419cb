// The tokenhost program on an extension that fills standard output with noise.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/host/testing/program.h"
#include "platform/linux/host/testing/test_bundle.h"

namespace host::testing {

class TokenhostTest : public ::testing::Test {
 protected:
  TokenhostTest() {
    WriteText(pin_file, "1234\n");
    WriteText(input, "abc");
    std::filesystem::create_directory(folder / "results");
  }

  Outcome Run(const std::vector<std::string>& arguments, const std::string& standard_input = "") {
    return RunOn(bundle, arguments, standard_input);
  }
  // Signs the data, or what standard input has, by default to standard output.
  Outcome Sign(const std::vector<std::string>& more = {},
               const std::string& standard_input = "abc") {
    std::vector<std::string> arguments = {"--pin-file", pin_file,      "sign",           "--key",
                                          "02ab",       "--algorithm", "RSASignatureRaw"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Run(arguments, standard_input);
  }
  // Runs it on a bundle, of the same extension with another driver for instance.
  static Outcome RunOn(const TestBundle& on, std::vector<std::string> arguments,
                       const std::string& standard_input = "") {
    arguments.insert(arguments.begin(), {KELVRIN_TOKENHOST, "--bundle", on.path()});
    return RunProgram(arguments, standard_input);
  }
  // The entries of the folder of results.
  std::vector<std::string> Results() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "results")) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  const TestBundle bundle{KELVRIN_NOISY_EXTENSION, "NoisyDriver"};
  const TemporaryFolder folder;
  const std::string pin_file = folder / "pin";
  const std::string input = folder / "input";
};

}  // namespace host::testing
