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
    write_text(pin_file, "1234\n");
    write_text(input, "abc");
  }

  Outcome run(std::vector<std::string> arguments, const std::string& standard_input = "") {
    arguments.insert(arguments.begin(), {KELVRIN_TOKENHOST, "--bundle", bundle.path()});
    return run_program(arguments, standard_input);
  }
  // Signs the data, or what standard input has, by default to standard output.
  Outcome sign(std::vector<std::string> more = {}, const std::string& standard_input = "abc") {
    std::vector<std::string> arguments = {"--pin-file", pin_file,      "sign",           "--key",
                                          "02ab",       "--algorithm", "RSASignatureRaw"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments, standard_input);
  }
  // The entries of the folder of results.
  std::vector<std::string> results() const {
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
