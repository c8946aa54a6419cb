// A PKCS#11 module with a card, for as long as a test needs it.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "platform/linux/host/result.h"

namespace matrix {

// The card carries an RSA-2048 key and two P-256 keys, each with its certificate, and the
// certificate of an authority whose key is elsewhere. One at a time in a process.
class ModuleOnTest {
 public:
  ModuleOnTest() = default;
  virtual ~ModuleOnTest() = default;
  ModuleOnTest(const ModuleOnTest&) = delete;
  ModuleOnTest& operator=(const ModuleOnTest&) = delete;

  // The lines that an adapter in front of the module has in its configuration.
  virtual std::string Configuration() const = 0;

  // The user's PIN.
  virtual std::string Pin() const = 0;

  // The first word of the token's label.
  virtual std::string CardNumber() const = 0;

  // A certificate in DER: "rsa", "ec" or "extra-01" with a key, "authority" without.
  virtual host::Bytes Certificate(const std::string& name) const = 0;
};

// A row of the matrix.
struct Row {
  const char* name;
  // Throws std::runtime_error when the module cannot be brought up.
  std::unique_ptr<ModuleOnTest> (*bring_up)();
};

inline void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

std::unique_ptr<ModuleOnTest> BringUpSoftHsm();
// With its public key objects deleted.
std::unique_ptr<ModuleOnTest> BringUpSoftHsmWithoutPublicKeys();
// Behind p11-kit's proxy, in a p11-kit configuration of its own.
std::unique_ptr<ModuleOnTest> BringUpP11KitProxy();
// NSS's software token; its PIN is the database's password.
std::unique_ptr<ModuleOnTest> BringUpNss();

inline constexpr Row kRows[] = {
    {"SoftHsm", BringUpSoftHsm},
    {"SoftHsmWithoutPublicKeys", BringUpSoftHsmWithoutPublicKeys},
    {"Nss", BringUpNss},
    {"P11KitProxy", BringUpP11KitProxy},
};

}  // namespace matrix
