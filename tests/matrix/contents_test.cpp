// What a card behind the adapter shows, whatever the module.
#include <gmock/gmock.h>

#include "tests/matrix/road_fixture.h"

namespace matrix {
namespace {

class MatrixContents : public WholeRoad {};
INSTANTIATE_TEST_SUITE_P(Matrix, MatrixContents, testing::ValuesIn(kRows), RowName);

TEST_P(MatrixContents, AreTheCertificatesThatHaveAKeyAndTheirKeys) {
  EXPECT_EQ(card_->instance_id(), module_->CardNumber());
  EXPECT_EQ(card_->items().size(), 6U);
  EXPECT_TRUE(host::DuplicateObjectIds(card_->items()).empty());
  for (const char* name : {"rsa", "ec", "extra-01"}) {
    EXPECT_EQ(CertificateItem(name).kind, host::Item::Kind::kCertificate) << name;
    EXPECT_EQ(KeyItem(name).kind, host::Item::Kind::kKey) << name;
    EXPECT_EQ(KeyItem(name).facts.public_key, PublicKey(name).facts().public_key) << name;
  }
  EXPECT_EQ(CertificateItem("authority").object_id, "");
}

TEST_P(MatrixContents, SayWhatEachKeyCanDo) {
  const host::Item rsa = KeyItem("rsa");
  EXPECT_EQ(rsa.facts.bits, 2048U);
  EXPECT_TRUE(rsa.can_sign);
  EXPECT_TRUE(rsa.can_decrypt);
  EXPECT_FALSE(rsa.can_exchange);
  for (const char* name : {"ec", "extra-01"}) {
    const host::Item ec = KeyItem(name);
    EXPECT_EQ(ec.facts.bits, 256U) << name;
    EXPECT_TRUE(ec.can_sign) << name;
    EXPECT_FALSE(ec.can_decrypt) << name;
    EXPECT_TRUE(ec.can_exchange) << name;
  }
}

TEST_P(MatrixContents, AreTheSameWhenTheCardIsInsertedAgain) {
  const auto object_ids = [this] {
    std::vector<std::string> all;
    for (const host::Item& item : card_->items()) all.push_back(item.object_id);
    return all;
  };
  const std::vector<std::string> before = object_ids();
  ASSERT_NO_FATAL_FAILURE(Insert());
  EXPECT_THAT(object_ids(), testing::UnorderedElementsAreArray(before));
}

}  // namespace
}  // namespace matrix
