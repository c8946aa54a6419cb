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
  }

  Outcome Run(std::vector<std::string> arguments, const std::string& standard_input = "") {
    arguments.insert(arguments.begin(), {KELVRIN_TOKENHOST, "--bundle", bundle.path()});
    return RunProgram(arguments, standard_input);
  }
  // Signs the data, or what standard input has, by default to standard output.
  Outcome Sign(std::vector<std::string> more = {}, const std::string& standard_input = "abc") {
    std::vector<std::string> arguments = {"--pin-file", pin_file,      "sign",           "--key",
                                          "02ab",       "--algorithm", "RSASignatureRaw"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Run(arguments, standard_input);
  }
  // Runs it on a bundle of the same extension with another driver.
  static Outcome RunWith(const TestBundle& other, const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {KELVRIN_TOKENHOST, "--bundle", other.path()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return RunProgram(all);
  }
  // The entries of the folder of results, which it makes.
  std::vector<std::string> Results() const {
    std::vector<std::string> names;
    std::filesystem::create_directory(folder / "results");
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
