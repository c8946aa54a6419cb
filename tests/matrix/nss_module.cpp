// NSS's software token over a database in a temporary folder.
#include <string>
#include <vector>

#include "platform/linux/host/testing/text_files.h"
#include "tests/matrix/card_making.h"
#include "tests/matrix/module_on_test.h"
#include "tests/temporary_folder.h"

namespace matrix {
namespace {

constexpr char kPassword[] = "123456";

class Nss : public ModuleOnTest {
 public:
  Nss() {
    folder_.Write("password", std::string(kPassword) + "\n");
    std::filesystem::create_directory(folder_ / "database");
    RunTool({KELVRIN_CERTUTIL, "-N", "-d", Database(), "-f", folder_ / "password"});
    Add("rsa", kRsa2048, "digitalSignature,keyEncipherment,dataEncipherment");
    Add("ec", kP256, "digitalSignature,keyAgreement");
    Add("extra-01", kP256, "digitalSignature");
    CertifyAuthority(folder_.path());
    RunTool({KELVRIN_CERTUTIL, "-A", "-d", Database(), "-n", "authority", "-t", ",,", "-i",
             File("authority", ".der")});
  }

  std::string Configuration() const override {
    return "module = " KELVRIN_SOFTOKN "\nreserved = configdir='" + Database() +
           "' certPrefix='' keyPrefix='' secmod='' flags= \ntoken-label = NSS Certificate DB\n";
  }
  std::string Pin() const override { return kPassword; }
  std::string CardNumber() const override { return "NSS"; }
  host::Bytes Certificate(const std::string& name) const override {
    const std::string der = host::testing::ReadText(File(name, ".der"));
    return {der.begin(), der.end()};
  }

 private:
  std::string Database() const { return "sql:" + (folder_ / "database").string(); }
  std::string File(const std::string& name, const char* ending) const {
    return folder_ / (name + ending);
  }

  // Puts a key and its certificate into the database.
  void Add(const std::string& name, const std::vector<std::string>& key,
           const std::string& usage) const {
    Certify(folder_.path(), name, key, usage);
    const std::string password = folder_ / "password";
    RunTool({KELVRIN_OPENSSL, "pkcs12", "-export", "-name", name + " certificate", "-inkey",
             File(name, ".key"), "-in", File(name, ".pem"), "-passout", "file:" + password, "-out",
             File(name, ".p12")});
    RunTool({KELVRIN_PK12UTIL, "-i", File(name, ".p12"), "-d", Database(), "-k", password, "-w",
             password});
  }

  kelvrin::TemporaryFolder folder_;
};

}  // namespace

std::unique_ptr<ModuleOnTest> BringUpNss() { return std::make_unique<Nss>(); }

}  // namespace matrix
