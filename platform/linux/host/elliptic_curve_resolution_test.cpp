#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/host/ecdsa_signature.h"
#include "platform/linux/host/resolution.h"
#include "platform/linux/host/shared_secret.h"
#include "platform/linux/host/testing/fake_backend.h"
#include "platform/linux/host/testing/openssl_key.h"

namespace host {
namespace {

using testing::bytes;
using testing::FakeBackend;
using ::testing::HasSubstr;
using testing::OpensslKey;
using testing::values;

class EllipticCurveResolution : public ::testing::Test {
 protected:
  // A token that signs digests.
  FakeBackend signing() {
    FakeBackend backend({algorithm_value("ECDSASignatureDigestX962")});
    backend.answer = [this](const Bytes& digest) { return key.sign_digest(digest); };
    return backend;
  }
  // A token that agrees on the bare coordinate.
  FakeBackend agreeing(const OpensslKey& own) {
    FakeBackend backend(
        {algorithm_value("ECDHKeyExchangeStandard"), algorithm_value("ECDHKeyExchangeCofactor")});
    backend.answer = [own](const Bytes& point) { return own.agree(point); };
    return backend;
  }

  const OpensslKey key = OpensslKey::elliptic_curve();
  const Bytes message = bytes("A message.");
};

TEST_F(EllipticCurveResolution, WithoutASupportedAlgorithmTheSearchEndsAtTheBareDigest) {
  FakeBackend none;
  const Result<Bytes> result =
      run(&none, key.facts(), Operation::kSign, algorithm_value("ECDSASignatureMessageX962SHA256"),
          {.data = message});
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, kParameterStatus);
  EXPECT_EQ(none.targets(), values({"ECDSASignatureMessageX962SHA256",
                                    "ECDSASignatureDigestX962SHA256", "ECDSASignatureDigestX962"}));
}

TEST_F(EllipticCurveResolution, AnExchangeThatTheTokenDoesNotSupportIsRefused) {
  FakeBackend none;
  const Result<Bytes> result =
      run(&none, key.facts(), Operation::kKeyExchange,
          algorithm_value("ECDHKeyExchangeStandardX963SHA1"), {.data = message});
  ASSERT_FALSE(result);
  EXPECT_THAT(result.error().description, HasSubstr("not supported"));
  EXPECT_EQ(none.targets(), values({"ECDHKeyExchangeStandardX963SHA1", "ECDHKeyExchangeStandard"}));
}

TEST_F(EllipticCurveResolution, ADigestOfAnotherLengthNeverReachesTheToken) {
  FakeBackend backend = signing();
  EXPECT_FALSE(run(&backend, key.facts(), Operation::kSign,
                   algorithm_value("ECDSASignatureDigestX962SHA384"), {.data = Bytes(32)}));
  EXPECT_TRUE(backend.performed.empty());
}

TEST_F(EllipticCurveResolution, ARawSignatureCannotBecomeAnRfc4754One) {
  FakeBackend raw({algorithm_value("ECDSASignatureDigestX962")});
  raw.answer = [](const Bytes&) { return Bytes(64, 0x11); };
  const Result<Bytes> result = run(&raw, key.facts(), Operation::kSign,
                                   algorithm_value("ECDSASignatureRFC4754"), {.data = Bytes(32)});
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, kDecodeStatus);
}

TEST_F(EllipticCurveResolution, AnExchangeForNoBytesIsRefused) {
  FakeBackend backend = agreeing(key);
  EXPECT_FALSE(run(&backend, key.facts(), Operation::kKeyExchange,
                   algorithm_value("ECDHKeyExchangeStandardX963SHA1"),
                   {.data = key.facts().public_key, .requested_size = 0}));
}

TEST_F(EllipticCurveResolution, AMessageTooShortForASendersKeyIsRefused) {
  FakeBackend backend = agreeing(key);
  EXPECT_FALSE(run(&backend, key.facts(), Operation::kDecrypt,
                   algorithm_value("ECIESEncryptionStandardX963SHA256AESGCM"),
                   {.data = Bytes(80)}));
  EXPECT_TRUE(backend.performed.empty());
}

TEST_F(EllipticCurveResolution, SignaturesVerifyForEveryHash) {
  for (const Hash hash : kHashes) {
    const std::string message_name = std::string("ECDSASignatureMessageX962") + hash_name(hash);
    const std::string digest_name = std::string("ECDSASignatureDigestX962") + hash_name(hash);
    FakeBackend backend = signing();
    Result<Bytes> signature = run(&backend, key.facts(), Operation::kSign,
                                  algorithm_value(message_name), {.data = message});
    ASSERT_TRUE(signature) << signature.error().description;
    EXPECT_TRUE(key.verifies(hash, message, *signature)) << message_name;
    EXPECT_EQ(backend.targets(), values({message_name, digest_name, "ECDSASignatureDigestX962"}));
    EXPECT_EQ(backend.received.data, digest(hash, message));

    backend = signing();
    signature = run(&backend, key.facts(), Operation::kSign, algorithm_value(digest_name),
                    {.data = digest(hash, message)});
    ASSERT_TRUE(signature);
    EXPECT_TRUE(key.verifies(hash, message, *signature)) << digest_name;
    EXPECT_EQ(backend.targets(), values({digest_name, "ECDSASignatureDigestX962"}));
  }
}

TEST_F(EllipticCurveResolution, ATokensSignatureIsPassedOnAsItIs) {
  FakeBackend raw({algorithm_value("ECDSASignatureDigestX962")});
  raw.answer = [](const Bytes&) { return Bytes(64, 0x11); };
  const Result<Bytes> signature =
      run(&raw, key.facts(), Operation::kSign, algorithm_value("ECDSASignatureMessageX962SHA256"),
          {.data = message});
  ASSERT_TRUE(signature);
  EXPECT_EQ(*signature, Bytes(64, 0x11));
}

TEST_F(EllipticCurveResolution, AnRfc4754SignatureIsMadeFromADerOne) {
  FakeBackend backend = signing();
  Bytes der;
  backend.answer = [&](const Bytes& digest) { return der = key.sign_digest(digest); };
  const Bytes hash = digest(Hash::kSha256, message);
  const Result<Bytes> signature = run(&backend, key.facts(), Operation::kSign,
                                      algorithm_value("ECDSASignatureRFC4754"), {.data = hash});
  ASSERT_TRUE(signature) << signature.error().description;
  EXPECT_TRUE(key.verifies_digest(hash, der));
  EXPECT_EQ(*signature, *der_to_rfc4754(der, 32));
  EXPECT_EQ(signature->size(), 64U);
  EXPECT_EQ(backend.targets(), values({"ECDSASignatureRFC4754", "algid:sign:ECDSA:digest-RFC4754",
                                       "ECDSASignatureDigestX962"}));
}

TEST_F(EllipticCurveResolution, ThePlatformDerivesFromTheBareSecret) {
  const OpensslKey peer = OpensslKey::elliptic_curve();
  const Bytes info = bytes("info");
  for (const std::string kind : {"Standard", "Cofactor"}) {
    for (const Hash hash : kHashes) {
      const std::string name = "ECDHKeyExchange" + kind + "X963" + hash_name(hash);
      FakeBackend backend = agreeing(key);
      const Result<Bytes> secret =
          run(&backend, key.facts(), Operation::kKeyExchange, algorithm_value(name),
              {.data = peer.facts().public_key, .requested_size = 50, .shared_info = info});
      ASSERT_TRUE(secret) << secret.error().description;
      EXPECT_EQ(*secret, *derive_x963(hash, peer.agree(key.facts().public_key), info, 50)) << name;
      EXPECT_EQ(backend.targets(), values({name, "ECDHKeyExchange" + kind}));
      EXPECT_EQ(backend.received.data, peer.facts().public_key);
    }
  }
}

// What a sender does: agrees with an ephemeral key, derives, seals.
Bytes encrypt_for(const OpensslKey& recipient, const OpensslKey& ephemeral, bool derived_iv,
                  size_t key_size, const Bytes& message) {
  const Bytes point = ephemeral.facts().public_key;
  const Bytes secret = ephemeral.agree(recipient.facts().public_key);
  const Bytes derived =
      *derive_x963(Hash::kSha256, secret, point, key_size + (derived_iv ? 16 : 0));
  const auto key_end = derived.begin() + static_cast<std::ptrdiff_t>(key_size);
  Bytes iv(key_end, derived.end());
  iv.resize(16);
  const Bytes body = testing::seal_aes_gcm(Bytes(derived.begin(), key_end), iv,
                                           recipient.facts().public_key, message);
  Bytes result = point;
  result.insert(result.end(), body.begin(), body.end());
  return result;
}

TEST_F(EllipticCurveResolution, AnEncryptionIsDecryptedThroughAKeyExchange) {
  for (const std::string kind : {"Standard", "Cofactor"}) {
    for (const std::string variant : {"", "VariableIV"}) {
      const OpensslKey ephemeral = OpensslKey::elliptic_curve();
      FakeBackend backend = agreeing(key);
      std::string name = "ECIESEncryption";
      name.append(kind).append(variant).append("X963SHA256AESGCM");
      const Result<Bytes> plaintext =
          run(&backend, key.facts(), Operation::kDecrypt, algorithm_value(name),
              {.data = encrypt_for(key, ephemeral, !variant.empty(), 16, message)});
      ASSERT_TRUE(plaintext) << name << ": " << plaintext.error().description;
      EXPECT_EQ(*plaintext, message);
      EXPECT_EQ(backend.received.data, ephemeral.facts().public_key);
      EXPECT_EQ(backend.performed_operation, Operation::kKeyExchange);
      EXPECT_EQ(backend.targets(),
                values({name, "ECDHKeyExchange" + kind + "X963SHA256", "ECDHKeyExchange" + kind}));
      // The exchange is a request of its own.
      EXPECT_EQ(backend.performed,
                values({"ECDHKeyExchange" + kind + "X963SHA256", "ECDHKeyExchange" + kind}));
    }
  }
}

TEST_F(EllipticCurveResolution, BiggerCurvesHaveBiggerSessionKeys) {
  const OpensslKey own = OpensslKey::elliptic_curve("P-384");
  const OpensslKey ephemeral = OpensslKey::elliptic_curve("P-384");
  FakeBackend backend = agreeing(own);
  const Result<Bytes> plaintext = run(&backend, own.facts(), Operation::kDecrypt,
                                      algorithm_value("ECIESEncryptionStandardX963SHA256AESGCM"),
                                      {.data = encrypt_for(own, ephemeral, false, 32, message)});
  ASSERT_TRUE(plaintext) << plaintext.error().description;
  EXPECT_EQ(*plaintext, message);
}

TEST(Resolution, EveryRoadEndsWithinFiveQuestions) {
  for (const Operation operation : kKeyOperations) {
    for (const Algorithm& algorithm : algorithms()) {
      FakeBackend none;
      EXPECT_FALSE(find_road(&none, {.bits = 4096}, operation, algorithm.value));
      EXPECT_LE(none.asked.size(), 5U) << algorithm.name;
    }
  }
}

}  // namespace
}  // namespace host
