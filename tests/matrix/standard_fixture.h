// Programs on a card with and without the adapter, whose profile is "standard".
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/linux/host/testing/openssl_key.h"
#include "platform/linux/host/testing/text_files.h"
#include "tests/matrix/two_worlds.h"

namespace matrix {

using Command = std::vector<std::string>;
using host::testing::Outcome;

inline constexpr char kPin[] = "env:KELVRIN_PIN";

// pkcs11-tool on the module, logged in.
inline Command Pkcs11Tool(const Command& arguments) {
  Command all = {KELVRIN_PKCS11_TOOL, "--module", kModule, "--login", "--pin", kPin};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

// p11tool on the module, logged in.
inline Command P11Tool(const Command& arguments) {
  Command all = {KELVRIN_P11TOOL, "--provider", kModule, "--login"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

// The lines of a text in the order of their letters, and without the numbers and handles of
// objects: these come in no order of their own.
std::string SortedLines(const std::string& text);

// With what is new in each key left out: long hexadecimal numbers.
std::string WithoutKeyMaterial(const std::string& text);

class StandardProfile : public testing::Test {
 protected:
  using Normaliser = std::string (*)(const std::string&);

  explicit StandardProfile(const kelvrin::CardOptions& options = {}) : card_(options) {}

  // Runs a program in both worlds; what it prints and returns must be the same, which comes back.
  // `normalise`: takes out of a text what differs by nature.
  Outcome ExpectSame(const Command& command, Normaliser normalise = AsItIs) const {
    const Outcome without = without_.Run(command);
    const Outcome with = with_.Run(command);
    EXPECT_EQ(normalise(with.output), normalise(without.output));
    EXPECT_EQ(normalise(with.errors), normalise(without.errors));
    EXPECT_EQ(with.status, without.status);
    return with;
  }
  // The same of a program that is to succeed.
  Outcome ExpectSameSuccess(const Command& command, Normaliser normalise = AsItIs) const {
    Outcome outcome = ExpectSame(command, normalise);
    EXPECT_EQ(outcome.status, 0) << command[0] << '\n' << outcome.output << outcome.errors;
    return outcome;
  }

  // A file that a program left in a world's folder.
  static host::Bytes Result(const World& world, const std::string& name) {
    return host::testing::bytes(host::testing::read_text(world.Path(name)));
  }
  // Puts a file into both folders.
  void Provide(const std::string& name, const host::Bytes& contents) const {
    for (const World* world : {&without_, &with_}) {
      host::testing::write_text(world->Path(name), {contents.begin(), contents.end()});
    }
  }
  host::testing::OpensslKey PublicKey(const std::string& name) const {
    return host::testing::OpensslKey::of_certificate(card_.Read(name + ".der"));
  }

  static std::string AsItIs(const std::string& text) { return text; }

  const kelvrin::SoftHsmCard card_;
  const ExportedPin pin_{card_.pin()};
  const StandardAdapter adapter_{"module = " + kelvrin::SoftHsmCard::Module().string() + "\n"};
  const World without_{kelvrin::SoftHsmCard::Module(), card_};
  const World with_{adapter_.path(), card_};
};

}  // namespace matrix
