// One card in two copies: a module with the first behind it, and the adapter in front of the same
// module with the second.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/host/testing/program.h"
#include "tests/card/softhsm_card.h"
#include "tests/temporary_folder.h"

namespace matrix {

// Stand for what differs between the worlds, in what is run and in what is printed.
inline constexpr char kModule[] = "{module}";
inline constexpr char kFolder[] = "{folder}";

// Runs a program that may load the adapter, with these variables ("NAME=value") in its environment.
host::testing::Outcome RunProgram(const std::vector<std::string>& arguments,
                                  const std::vector<std::string>& environment = {});

// A module and a copy of the card. Programs that run in it find the PIN in the environment.
class World {
 public:
  // `module`: absolute path.
  World(std::filesystem::path module, const kelvrin::SoftHsmCard& card);

  // Runs a program on the card. In its arguments and in what it prints kModule stands for the
  // module's path, and kFolder for a folder of the world's own.
  host::testing::Outcome Run(const std::vector<std::string>& arguments) const;

  const std::filesystem::path& module() const { return module_; }
  // SoftHSM's configuration, to be exported as SOFTHSM2_CONF.
  std::filesystem::path configuration() const { return folder_ / "softhsm2.conf"; }
  std::filesystem::path Path(const std::string& file) const { return folder_ / file; }

 private:
  kelvrin::TemporaryFolder folder_;
  std::filesystem::path module_;
};

// Exports the card's PIN as KELVRIN_PIN, and as what GnuTLS's programs read.
class ExportedPin {
 public:
  explicit ExportedPin(const std::string& pin);
  ~ExportedPin();
  ExportedPin(const ExportedPin&) = delete;
  ExportedPin& operator=(const ExportedPin&) = delete;
};

// The adapter in a folder of its own, with the profile "standard".
class StandardAdapter {
 public:
  // `configuration`: the lines beside the profile.
  explicit StandardAdapter(const std::string& configuration);

  std::filesystem::path path() const { return folder_ / "libkelvrin_adapter.so"; }

 private:
  kelvrin::TemporaryFolder folder_;
};

}  // namespace matrix
