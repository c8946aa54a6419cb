// What ships for macOS says, line by line, what is built here says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/endtoend/tokenhost_on_card.h"

namespace endtoend {
namespace {

using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

class ShippedLogTest : public TokenhostOnCard {
 protected:
  ShippedLogTest() { WriteText(Path("message"), "a message"); }

  // What tokenhost says with the bundle that lies beside the card.
  Outcome RunWithLog(const std::string& loader, const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {
        "/usr/bin/env", "LD_PRELOAD=" + loader, KELVRIN_TOKENHOST, "--bundle", bundle_,
        "--pin-file",   card_.File("pin"),      "--log",           "default"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return RunProgram(all);
  }

  // Everything that the commands say, and the signature that the last one writes.
  std::vector<std::string> Say(const std::string& loader) {
    std::vector<std::string> said;
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"list"},
             {"supports", kRsaKey},
             {"supports", kEcKey},
             {"sign", "--key", kRsaKey, "--algorithm", "RSASignatureMessagePKCS1v15SHA256", "--in",
              Path("message"), "--out", Path("result")}}) {
      const Outcome outcome = RunWithLog(loader, arguments);
      EXPECT_EQ(outcome.status, 0) << outcome.errors;
      said.push_back(outcome.output);
      said.push_back(outcome.errors);
    }
    said.push_back(ReadText(Path("result")));
    return said;
  }
};

TEST_F(ShippedLogTest, IsThatOfTheFilesBuiltHere) {
  const std::vector<std::string> built = Say("");
  EXPECT_THAT(built[1], HasSubstr("log default: PKCS11-Modul wurde geladen."));
  EXPECT_EQ(built.back().size(), 256U);
  std::filesystem::remove_all(bundle_);
  setenv("KELVRIN_SHIPPED_FILES", KELVRIN_SHIPPED, 1);
  product::CopyBundle(bundle_);
  unsetenv("KELVRIN_SHIPPED_FILES");
  const std::vector<std::string> shipped = Say(KELVRIN_MACHO);
  EXPECT_EQ(shipped.back(), built.back());
  // SoftHSM orders its objects by where they lie in memory, so that each process may see another
  // order of certificates.
  for (size_t i = 0; i + 1 < built.size(); ++i) {
    EXPECT_THAT(Lines(shipped[i]), UnorderedElementsAreArray(Lines(built[i]))) << i;
  }
}

}  // namespace
}  // namespace endtoend
