// The whole road through the tokenhost command: the built bundle, the adapter, a real card.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/host/testing/program.h"
#include "platform/linux/host/testing/text_files.h"
#include "tests/card/softhsm_card.h"
#include "tests/product/product_files.h"

namespace endtoend {

using host::testing::Outcome;
using host::testing::ReadText;
using host::testing::RunProgram;
using host::testing::WriteText;

// Object IDs of the card's keys.
inline constexpr char kRsaKey[] = "0201";
inline constexpr char kEcKey[] = "0202";

// A card, and beside it a copy of the built bundle for tests to change.
class TokenhostOnCard : public testing::Test {
 protected:
  TokenhostOnCard() : bundle_(card_.directory() / "KelvrinToken.appex") {
    product::CopyBundle(bundle_);
  }

  // A file beside the card.
  std::filesystem::path Path(const std::string& name) const { return card_.directory() / name; }

  // Runs tokenhost with a PIN file beside the card, by default one with the card's PIN.
  Outcome Run(const std::vector<std::string>& arguments, const std::string& pin_file = "") const {
    std::vector<std::string> all = {
        KELVRIN_TOKENHOST, "--bundle", bundle_, "--pin-file",
        pin_file.empty() ? card_.File("pin").string() : Path(pin_file).string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return RunProgram(all);
  }

  kelvrin::SoftHsmCard card_;
  std::filesystem::path bundle_;
};

}  // namespace endtoend
