// SoftHSM in several shapes.
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/card/softhsm_card.h"
#include "tests/matrix/card_making.h"
#include "tests/matrix/module_on_test.h"
#include "tests/temporary_folder.h"

namespace matrix {
namespace {

class SoftHsm : public ModuleOnTest {
 public:
  SoftHsm() {
    CertifyAuthority(card_.File("."));
    OnToken({"--write-object", card_.File("authority.der"), "--type", "cert", "--id", "7f",
             "--label", "authority"});
  }

  std::string Configuration() const override {
    return "module = " + kelvrin::SoftHsmCard::Module().string() + "\n";
  }
  std::string Pin() const override { return card_.pin(); }
  std::string CardNumber() const override {
    return card_.label().substr(0, card_.label().find(' '));
  }
  host::Bytes Certificate(const std::string& name) const override {
    return card_.Read(name + ".der");
  }

 protected:
  // Runs pkcs11-tool on the token, logged in.
  void OnToken(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {KELVRIN_PKCS11_TOOL, "--module", kelvrin::SoftHsmCard::Module(),
                                    "--login",           "--pin",    "env:KELVRIN_PIN"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    setenv("KELVRIN_PIN", card_.pin().c_str(), 1);
    RunTool(all);
    unsetenv("KELVRIN_PIN");
  }

 private:
  kelvrin::SoftHsmCard card_{{.extra_certificates = 1}};
};

class SoftHsmWithoutPublicKeys : public SoftHsm {
 public:
  SoftHsmWithoutPublicKeys() {
    for (const char* id : {"01", "02", "10"}) {
      OnToken({"--delete-object", "--type", "pubkey", "--id", id});
    }
  }
};

// Behind a p11-kit that knows one module, whatever the machine and its user have configured; nobody
// is root in this process (ordinary_user.c).
class P11KitProxy : public SoftHsm {
 public:
  P11KitProxy() {
    std::filesystem::create_directories(configuration_ / "pkcs11/modules");
    configuration_.Write("pkcs11/pkcs11.conf", "user-config: only\n");
    configuration_.Write(
        "pkcs11/modules/only.module",
        "module: " + kelvrin::SoftHsmCard::Module().string() + "\ncritical: yes\n");
    setenv("XDG_CONFIG_HOME", configuration_.path().c_str(), 1);
  }
  ~P11KitProxy() override { unsetenv("XDG_CONFIG_HOME"); }

  std::string Configuration() const override { return "module = " KELVRIN_P11_KIT_PROXY "\n"; }

 private:
  kelvrin::TemporaryFolder configuration_;
};

}  // namespace

std::unique_ptr<ModuleOnTest> BringUpSoftHsm() { return std::make_unique<SoftHsm>(); }

std::unique_ptr<ModuleOnTest> BringUpSoftHsmWithoutPublicKeys() {
  return std::make_unique<SoftHsmWithoutPublicKeys>();
}

std::unique_ptr<ModuleOnTest> BringUpP11KitProxy() { return std::make_unique<P11KitProxy>(); }

}  // namespace matrix
