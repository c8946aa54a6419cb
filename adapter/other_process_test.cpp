// Objects that another process changes while the adapter remembers them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "adapter/testing/card_test.h"
#include "adapter/testing/loaded_library.h"
#include "adapter/testing/openssl_check.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_BYTE kEcId = 2;

class OtherProcessTest : public CardTest {
 protected:
  OtherProcessTest() : card_(LoadLibrary(Install("libX"))) {
    card_.Open();
    EXPECT_EQ(card_.Login(soft_card_.pin()), CKR_OK);
    EXPECT_NE(card_.Find(CKO_PRIVATE_KEY, kEcId), CK_INVALID_HANDLE);
  }
  ~OtherProcessTest() override { card_.p11->C_Finalize(nullptr); }

  // Runs pkcs11-tool on the card in a process of its own.
  void Run(const std::string& arguments) const {
    setenv("OTHER_PROCESS_PIN", soft_card_.pin().c_str(), 1);
    const std::string command = "pkcs11-tool --module " + SoftHsmCard::Module().string() +
                                " --login --pin env:OTHER_PROCESS_PIN " + arguments +
                                " >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << arguments;
  }

  // Signs with the handle; whether the signature is the old key's.
  bool SignsAsBefore(CK_OBJECT_HANDLE key) const {
    const Bytes digest(32, 7);
    Bytes signature;
    EXPECT_EQ(card_.SignInit(CKM_ECDSA, key), CKR_OK);
    EXPECT_EQ(card_.Sign(digest, &signature), CKR_OK);
    const OpensslKey public_key = ReadPublicKey(soft_card_.File("ec.pub.pem"));
    return VerifyEcdsa(public_key.get(), digest, signature);
  }

  Card card_;
};

TEST_F(OtherProcessTest, KeyThatWasDeletedIsNotFoundAndNotSignedWith) {
  const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, kEcId);
  Run("--delete-object --type privkey --id 02");
  EXPECT_NE(card_.SignInit(CKM_ECDSA, key), CKR_OK);
  EXPECT_EQ(card_.Find(CKO_PRIVATE_KEY, kEcId), CK_INVALID_HANDLE);
}

TEST_F(OtherProcessTest, KeyThatGotAnotherIdIsNotFoundByItsOldOne) {
  EXPECT_TRUE(SignsAsBefore(card_.Find(CKO_PRIVATE_KEY, kEcId)));
  Run("--set-id 07 --type privkey --id 02");
  EXPECT_EQ(card_.Find(CKO_PRIVATE_KEY, kEcId), CK_INVALID_HANDLE);
  EXPECT_TRUE(SignsAsBefore(card_.Find(CKO_PRIVATE_KEY, 7)));
}

TEST_F(OtherProcessTest, KeyThatTookTheIdOfAnotherIsTheOneThatSigns) {
  EXPECT_TRUE(SignsAsBefore(card_.Find(CKO_PRIVATE_KEY, kEcId)));
  Run("--set-id 07 --type privkey --id 02");
  Run("--keypairgen --key-type EC:prime256v1 --id 02 --usage-sign");
  const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, kEcId);
  ASSERT_NE(key, CK_INVALID_HANDLE);
  EXPECT_FALSE(SignsAsBefore(key));
}

TEST_F(OtherProcessTest, HandleOfAReplacedKeySignsWithTheNewKeyOfItsId) {
  const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, kEcId);
  EXPECT_TRUE(SignsAsBefore(key));
  Run("--delete-object --type privkey --id 02");
  Run("--keypairgen --key-type EC:prime256v1 --id 02 --usage-sign");
  EXPECT_FALSE(SignsAsBefore(key));
}

// However often the caller tries.
TEST_F(OtherProcessTest, HandleOfAKeyThatGotAnotherIdDoesNotSign) {
  const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, kEcId);
  EXPECT_TRUE(SignsAsBefore(key));
  Run("--set-id 09 --type privkey --id 02");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(card_.SignInit(CKM_ECDSA, key), CKR_KEY_HANDLE_INVALID);
}

TEST_F(OtherProcessTest, HandlesOfKeysThatSwappedTheirIdsSignWithTheKeyThatWasAskedFor) {
  Run("--keypairgen --key-type EC:prime256v1 --id 09 --usage-sign");
  const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, kEcId);
  const CK_OBJECT_HANDLE other = card_.Find(CKO_PRIVATE_KEY, 9);
  Run("--set-id 07 --type privkey --id 02");
  Run("--set-id 02 --type privkey --id 09");
  Run("--set-id 09 --type privkey --id 07");
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(SignsAsBefore(key)) << i;
    EXPECT_TRUE(SignsAsBefore(other)) << i;
  }
}

TEST_F(OtherProcessTest, KeyThatIsAddedIsFound) {
  EXPECT_EQ(card_.Find(CKO_PRIVATE_KEY, 9), CK_INVALID_HANDLE);
  Run("--keypairgen --key-type EC:prime256v1 --id 09 --usage-sign");
  EXPECT_NE(card_.Find(CKO_PRIVATE_KEY, 9), CK_INVALID_HANDLE);
  EXPECT_NE(card_.Find(CKO_PUBLIC_KEY, 9), CK_INVALID_HANDLE);
}

}  // namespace
}  // namespace kelvrin::adapter
