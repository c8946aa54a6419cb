#include "app/model/export.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "app/model/testing/scripted_system.h"
#include "tests/temporary_folder.h"

namespace kelvrin::app {
namespace {

Bytes FileContents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

std::string AsText(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// Keys and certificates as openssl makes them, and what other programs make of them.
class ExportTest : public testing::Test {
 protected:
  // Runs a command in the folder; what it says on standard output.
  std::string Run(const std::string& command) const {
    const std::string line = "cd " + folder_.path().string() + " && { " + command + "; } >out";
    EXPECT_EQ(std::system((line + " 2>errors").c_str()), 0)
        << command << "\n"
        << AsText(FileContents(folder_ / "errors"));
    return AsText(FileContents(folder_ / "out"));
  }

  Certificate MakeRsa(size_t bits) const {
    Run("openssl genrsa -out key.pem " + std::to_string(bits));
    Run("openssl rsa -in key.pem -RSAPublicKey_out -outform DER -out key.der");
    Certificate certificate = RsaCertificate("Ann");
    certificate.key_bits = bits;
    certificate.public_key = FileContents(folder_ / "key.der");
    return certificate;
  }

  Certificate MakeEc(const std::string& curve, size_t bits) const {
    Run("openssl ecparam -genkey -noout -name " + curve + " -out key.pem");
    Run("openssl ec -in key.pem -pubout -outform DER -out key.der");
    const Bytes info = FileContents(folder_ / "key.der");
    Certificate certificate = EcCertificate("Ann");
    certificate.key_bits = bits;
    const auto point = static_cast<ptrdiff_t>(2 * ((bits + 7) / 8) + 1);
    certificate.public_key.assign(info.end() - point, info.end());
    return certificate;
  }

  // What ssh-keygen makes of the private key, and of the public one.
  void ExpectSshKeygenSays(const std::string& line) const {
    EXPECT_EQ(Run("ssh-keygen -y -f key.pem"), line + "\n");
    Run("openssl pkey -in key.pem -pubout -out public.pem");
    EXPECT_EQ(Run("ssh-keygen -i -m PKCS8 -f public.pem"), line + "\n");
  }

  TemporaryFolder folder_;
};

TEST_F(ExportTest, SshKeysOfEveryRsaSize) {
  for (const size_t bits : {2048U, 3072U, 4096U}) {
    Certificate certificate = MakeRsa(bits);
    certificate.name = "";
    ExpectSshKeygenSays(SshKey(certificate).value_or("none"));
  }
}

TEST_F(ExportTest, SshKeyOnP256) {
  Certificate certificate = MakeEc("prime256v1", 256);
  certificate.name = "";
  ExpectSshKeygenSays(SshKey(certificate).value_or("none"));
}

TEST_F(ExportTest, TheNameIsTheComment) {
  Certificate certificate = MakeEc("prime256v1", 256);
  certificate.name = "";
  const std::string line = SshKey(certificate).value_or("none");
  certificate.name = "Zoë Łukasz";
  EXPECT_EQ(SshKey(certificate), line + " Zoë Łukasz");
  certificate.name = "Ann\nssh-rsa AAAA\r\t\x7F\x1F mallory";
  EXPECT_EQ(SshKey(certificate), line + " Ann ssh-rsa AAAA     mallory");
}

TEST_F(ExportTest, NoSshKeyOnOtherCurves) {
  EXPECT_EQ(SshKey(MakeEc("secp384r1", 384)), std::nullopt);
  EXPECT_EQ(SshKey(MakeEc("secp521r1", 521)), std::nullopt);
}

TEST(SshKeyTest, NoneForKeysThatAreNotWhatTheyClaim) {
  Certificate certificate = EcCertificate("Ann");
  ASSERT_NE(SshKey(certificate), std::nullopt);
  certificate.key_bits = 255;
  EXPECT_EQ(SshKey(certificate), std::nullopt);
  certificate.key_bits = 256;
  certificate.public_key.push_back(4);
  EXPECT_EQ(SshKey(certificate), std::nullopt);
  certificate = EcCertificate("Ann");
  certificate.key_type = KeyType::kOther;
  EXPECT_EQ(SshKey(certificate), std::nullopt);

  certificate = RsaCertificate("Ann");
  ASSERT_NE(SshKey(certificate), std::nullopt);
  const Bytes broken[] = {{},
                          {0x30, 0x00},
                          {0x30, 0x03, 0x02, 0x01, 0x05},
                          {0x31, 0x06, 0x02, 0x01, 0x05, 0x02, 0x01, 0x03},
                          {0x30, 0x06, 0x04, 0x01, 0x05, 0x02, 0x01, 0x03},
                          {0x30, 0x06, 0x02, 0x01, 0x05, 0x04, 0x01, 0x03}};
  for (const Bytes& key : broken) {
    certificate.public_key = key;
    EXPECT_EQ(SshKey(certificate), std::nullopt) << key.size();
  }
}

// Names of several lengths leave one, two and no digits to fill, and a last line that is full.
TEST_F(ExportTest, PemEqualsOpenssls) {
  Run("openssl ecparam -genkey -noout -name prime256v1 -out key.pem");
  std::string name = "A";
  for (int i = 0; i < 12; ++i, name += "n") {
    Run("openssl req -x509 -new -key key.pem -days 30 -subj /CN=" + name + " -out certificate.pem");
    Run("openssl x509 -in certificate.pem -outform DER -out certificate.der");
    Certificate certificate;
    certificate.der = FileContents(folder_ / "certificate.der");
    EXPECT_EQ(Pem(certificate), AsText(FileContents(folder_ / "certificate.pem"))) << name;
  }
}

// The lengths at which digits or lines are full, as RFC 7468 writes them.
TEST(PemTest, FillsItsLastLine) {
  const auto pem_of = [](size_t length) {
    Certificate certificate;
    certificate.der.assign(length, 0xFF);
    return Pem(certificate);
  };
  const std::string begin = "-----BEGIN CERTIFICATE-----\n";
  const std::string end = "-----END CERTIFICATE-----\n";
  EXPECT_EQ(pem_of(1), begin + "/w==\n" + end);
  EXPECT_EQ(pem_of(2), begin + "//8=\n" + end);
  EXPECT_EQ(pem_of(3), begin + "////\n" + end);
  EXPECT_EQ(pem_of(48), begin + std::string(64, '/') + "\n" + end);
  EXPECT_EQ(pem_of(49), begin + std::string(64, '/') + "\n/w==\n" + end);
}

TEST(PemFileNameTest, LeavesOutWhatFileSystemsTakeAmiss) {
  const std::pair<std::string, std::string> names[] = {
      {"Ann Example", "Ann Example.pem"},
      {"Ann/Example: mail", "Ann-Example- mail.pem"},
      {"../../.ssh/id", "certificate..-..-.ssh-id.pem"},
      {".hidden", "certificate.hidden.pem"},
      {"", "certificate.pem"},
      {std::string("A\0b\n\x7F", 5), "A-b--.pem"},
      {"Zoë שלום", "Zoë שלום.pem"},
  };
  for (const auto& [name, file] : names) {
    Certificate certificate;
    certificate.name = name;
    EXPECT_EQ(PemFileName(certificate), file);
  }
}

}  // namespace
}  // namespace kelvrin::app
