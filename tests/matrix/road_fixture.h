// The whole road from an application to a module: the extension from its bundle, the adapter in it.
#pragma once

#include <gtest/gtest.h>
#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#endif

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/host/hosted_extension.h"
#include "platform/linux/host/testing/openssl_key.h"
#include "tests/matrix/module_on_test.h"
#include "tests/product/product_files.h"
#include "tests/temporary_folder.h"

namespace matrix {

// A copy of the built bundle whose adapter stands in front of a module.
class BundleInFront {
 public:
  explicit BundleInFront(const ModuleOnTest& module) : path_(folder_ / "KelvrinToken.appex") {
    product::CopyBundle(path_);
    folder_.Write(
        "KelvrinToken.appex/Contents/Resources/libpkcs11qarn_Lindel_PCSC.conf",
        module.Configuration() + "any-reader = yes\nreader-name = " KELVRIN_READER_NAME "\n");
  }
  // Checks for leaks while the bundle's executable is there, which the check takes names from.
  ~BundleInFront() {
#if __has_feature(address_sanitizer)
    __lsan_do_leak_check();
#endif
  }
  BundleInFront(const BundleInFront&) = delete;
  BundleInFront& operator=(const BundleInFront&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path Adapter() const {
    return path_ / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib";
  }

 private:
  kelvrin::TemporaryFolder folder_;
  std::filesystem::path path_;
};

class AnyModule : public testing::TestWithParam<Row> {
 protected:
  host::Bytes Certificate(const std::string& name) const { return module_->Certificate(name); }
  host::testing::OpensslKey PublicKey(const std::string& name) const {
    return host::testing::OpensslKey::OfCertificate(Certificate(name));
  }

  const std::unique_ptr<ModuleOnTest> module_ = GetParam().bring_up();
  const BundleInFront bundle_{*module_};
};

inline std::string RowName(const testing::TestParamInfo<Row>& row) { return row.param.name; }

// With the card inserted.
class WholeRoad : public AnyModule {
 protected:
  void SetUp() override {
    auto extension = host::HostedExtension::Load(host::CheckBundle(bundle_.path()));
    ASSERT_TRUE(extension) << extension.error().description;
    extension_.emplace(std::move(*extension));
    ASSERT_NO_FATAL_FAILURE(Insert());
  }

  void Insert() {
    client_.reset();
    card_.reset();
    card_.emplace(extension_->InsertCard());
    ASSERT_FALSE(card_->error()) << card_->error()->description;
    auto client = card_->OpenClient();
    ASSERT_TRUE(client) << client.error().description;
    client_.emplace(std::move(*client));
  }

  // The item of a certificate of the card's; empty when it is not shown.
  host::Item CertificateItem(const std::string& name) const {
    const host::Bytes certificate = Certificate(name);
    for (const host::Item& item : card_->items()) {
      if (item.certificate == certificate) return item;
    }
    return {};
  }
  // The key item that belongs to a certificate; empty when there is none.
  host::Item KeyItem(const std::string& certificate) const {
    const std::string id = CertificateItem(certificate).object_id;
    if (id.empty()) return {};
    const auto key = card_->FindKey("02" + id.substr(2));
    return key ? *key : host::Item();
  }

  // What becomes of an operation with the key of a certificate; nothing, and a failure noted, when
  // there is none.
  host::Bytes Perform(host::Operation operation, const std::string& certificate,
                      const std::string& algorithm, const host::Bytes& data) const {
    const auto result = TryToPerform(operation, certificate, algorithm, data, module_->Pin());
    EXPECT_TRUE(result) << algorithm << ": " << result.error().description;
    return result ? *result : host::Bytes();
  }
  host::Bytes Sign(const std::string& certificate, const std::string& algorithm,
                   const host::Bytes& data) const {
    return Perform(host::Operation::kSign, certificate, algorithm, data);
  }
  host::Bytes Decrypt(const std::string& algorithm, const host::Bytes& data) const {
    return Perform(host::Operation::kDecrypt, "rsa", algorithm, data);
  }
  host::Result<host::Bytes> TryToPerform(host::Operation operation, const std::string& certificate,
                                         const std::string& algorithm, const host::Bytes& data,
                                         const std::string& pin) const {
    return client_->Perform(operation, KeyItem(certificate), algorithm, data, [pin] {
      host::Secret secret;
      secret.Assign(pin);
      return host::Result<host::Secret>(std::move(secret));
    });
  }

  std::optional<host::HostedExtension> extension_;
  std::optional<host::InsertedCard> card_;
  std::optional<host::Client> client_;
};

}  // namespace matrix
