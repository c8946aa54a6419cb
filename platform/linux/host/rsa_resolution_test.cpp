#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/host/padding.h"
#include "platform/linux/host/resolution.h"
#include "platform/linux/host/rsa_words.h"
#include "platform/linux/host/testing/fake_backend.h"
#include "platform/linux/host/testing/openssl_key.h"

namespace host {
namespace {

using testing::bytes;
using testing::FakeBackend;
using ::testing::HasSubstr;
using testing::OpensslKey;
using testing::values;

constexpr char kSignWords[] = "algid:sign:RSA:raw-cc";
constexpr char kDecryptWords[] = "algid:encrypt:RSA:raw-cc";

class RsaResolution : public ::testing::Test {
 protected:
  // Runs a request with a key that supports these algorithms and has the raw operation.
  Result<Bytes> run_with(const std::vector<std::string>& supported, Operation operation,
                         const std::string& algorithm, const Bytes& data) {
    const AlgorithmList known = values(supported);
    backend = FakeBackend({known.begin(), known.end()});
    backend.answer = [this](const Bytes& block) { return key.raw(block); };
    return run(&backend, key.facts(), operation, algorithm_value(algorithm), {.data = data});
  }
  Result<Bytes> sign(const std::string& algorithm, const Bytes& data) {
    return run_with({"RSASignatureRaw"}, Operation::kSign, algorithm, data);
  }
  Result<Bytes> decrypt(const std::string& algorithm, const Bytes& data) {
    return run_with({"RSAEncryptionRaw"}, Operation::kDecrypt, algorithm, data);
  }

  const OpensslKey key = OpensslKey::rsa();
  const Bytes message = bytes("A message.");
  FakeBackend backend;
};

TEST_F(RsaResolution, WithoutASupportedAlgorithmTheSearchEndsInTheCycleOfTheRawOperation) {
  const Result<Bytes> result =
      run_with({}, Operation::kSign, "RSASignatureMessagePKCS1v15SHA256", message);
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().domain, kOsStatusDomain);
  EXPECT_EQ(result.error().code, kParameterStatus);
  EXPECT_THAT(result.error().description, HasSubstr("not supported by the key"));
  EXPECT_EQ(backend.targets(),
            values({"RSASignatureMessagePKCS1v15SHA256", "RSASignatureDigestPKCS1v15SHA256",
                    kSignWords, "RSASignatureRaw"}));
  EXPECT_TRUE(backend.performed.empty());
}

TEST_F(RsaResolution, TheRawOperationIsServedDirectlyOrInWordsOrNotAtAll) {
  EXPECT_FALSE(run_with({}, Operation::kSign, "RSASignatureRaw", Bytes(256, 1)));
  EXPECT_EQ(backend.targets(), values({"RSASignatureRaw", kSignWords}));

  EXPECT_TRUE(run_with({"RSASignatureRaw"}, Operation::kSign, "RSASignatureRaw", Bytes(256, 1)));
  EXPECT_EQ(backend.received.data, Bytes(256, 1));
}

TEST_F(RsaResolution, AnAlgorithmOfAnotherOperationHasNoAdaptor) {
  EXPECT_FALSE(run_with({"RSASignatureRaw", "RSAEncryptionRaw"}, Operation::kKeyExchange,
                        "RSASignatureMessagePSSSHA256", message));
  EXPECT_EQ(backend.asked.size(), 1U);
}

TEST_F(RsaResolution, ADigestOfAnotherLengthNeverReachesTheToken) {
  for (const char* name : {"RSASignatureDigestPKCS1v15SHA256", "RSASignatureDigestPSSSHA256"}) {
    const Result<Bytes> result = sign(name, Bytes(31));
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, kParameterStatus);
    EXPECT_THAT(result.error().description, HasSubstr("32 bytes, not 31"));
    EXPECT_TRUE(backend.performed.empty());
  }
}

TEST_F(RsaResolution, AKeyTooSmallForPssDoesNotSupportIt) {
  FakeBackend raw({algorithm_value("RSASignatureRaw")});
  const KeyFacts small = {.bits = 1024};
  EXPECT_FALSE(
      find_road(&raw, small, Operation::kSign, algorithm_value("RSASignatureMessagePSSSHA512")));
  EXPECT_EQ(raw.targets(), values({"RSASignatureMessagePSSSHA512", "RSASignatureDigestPSSSHA512"}));
  EXPECT_TRUE(
      find_road(&raw, small, Operation::kSign, algorithm_value("RSASignatureMessagePSSSHA384")));
}

TEST_F(RsaResolution, ATokensErrorIsPassedOnUnchanged) {
  FakeBackend failing({algorithm_value("RSASignatureRaw")});
  failing.answer = [](const Bytes&) { return Error{"CryptoTokenKit", -3, "broken"}; };
  const Result<Bytes> result =
      run(&failing, key.facts(), Operation::kSign,
          algorithm_value("RSASignatureMessagePKCS1v15SHA1"), {.data = message});
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, -3);
  EXPECT_EQ(result.error().description, "broken");
}

TEST_F(RsaResolution, AResultLongerThanTheModulusIsRefused) {
  FakeBackend talkative({algorithm_value("RSASignatureRaw")});
  talkative.answer = [](const Bytes&) { return Bytes(257, 1); };
  EXPECT_FALSE(run(&talkative, key.facts(), Operation::kSign,
                   algorithm_value("RSASignatureMessagePKCS1v15SHA1"), {.data = message}));
}

TEST_F(RsaResolution, ADecryptedBlockWithoutItsPaddingIsRefused) {
  const Bytes not_encrypted(256, 1);
  EXPECT_FALSE(decrypt("RSAEncryptionPKCS1", not_encrypted));
  EXPECT_FALSE(decrypt("RSAEncryptionOAEPSHA256", not_encrypted));
  EXPECT_FALSE(decrypt("RSAEncryptionOAEPSHA256", key.encrypt_oaep(Hash::kSha1, message)));
}

TEST_F(RsaResolution, ACiphertextLongerThanTheModulusIsRefused) {
  EXPECT_FALSE(decrypt("RSAEncryptionPKCS1", Bytes(257, 1)));
  EXPECT_TRUE(backend.performed.empty());
}

TEST_F(RsaResolution, ASealedMessageTooShortForItsSessionKeyIsRefused) {
  EXPECT_FALSE(decrypt("RSAEncryptionOAEPSHA256AESGCM", Bytes(271)));
}

TEST_F(RsaResolution, Pkcs1SignaturesOfMessagesVerifyForEveryHash) {
  for (const Hash hash : kHashes) {
    const std::string message_name = std::string("RSASignatureMessagePKCS1v15") + hash_name(hash);
    const std::string digest_name = std::string("RSASignatureDigestPKCS1v15") + hash_name(hash);
    const Result<Bytes> signature = sign(message_name, message);
    ASSERT_TRUE(signature) << signature.error().description;
    EXPECT_TRUE(key.verifies(hash, message, *signature)) << message_name;
    EXPECT_EQ(backend.targets(),
              values({message_name, digest_name, kSignWords, "RSASignatureRaw"}));
    // Passed through, though never asked about.
    EXPECT_EQ(backend.performed, values({message_name, digest_name, "RSASignatureDigestPKCS1v15Raw",
                                         kSignWords, "RSASignatureRaw"}));
    EXPECT_EQ(backend.received.data, *pad_pkcs1(digest_info(hash, digest(hash, message)), 256));
  }
}

TEST_F(RsaResolution, Pkcs1SignaturesOfDigestsVerifyForEveryHash) {
  for (const Hash hash : kHashes) {
    const std::string name = std::string("RSASignatureDigestPKCS1v15") + hash_name(hash);
    const Result<Bytes> signature = sign(name, digest(hash, message));
    ASSERT_TRUE(signature);
    EXPECT_TRUE(key.verifies(hash, message, *signature)) << name;
    EXPECT_EQ(backend.targets(), values({name, kSignWords, "RSASignatureRaw"}));
  }
}

TEST_F(RsaResolution, Pkcs1PaddingAloneTakesAnyBytes) {
  const Result<Bytes> signature = sign("RSASignatureDigestPKCS1v15Raw", bytes("anything"));
  ASSERT_TRUE(signature);
  EXPECT_EQ(backend.targets(),
            values({"RSASignatureDigestPKCS1v15Raw", kSignWords, "RSASignatureRaw"}));
  EXPECT_EQ(backend.received.data, *pad_pkcs1(bytes("anything"), 256));
}

TEST_F(RsaResolution, PssSignaturesVerifyForEveryHash) {
  for (const Hash hash : kHashes) {
    const std::string message_name = std::string("RSASignatureMessagePSS") + hash_name(hash);
    const std::string digest_name = std::string("RSASignatureDigestPSS") + hash_name(hash);
    Result<Bytes> signature = sign(message_name, message);
    ASSERT_TRUE(signature) << signature.error().description;
    EXPECT_TRUE(key.verifies(hash, message, *signature, true)) << message_name;
    EXPECT_EQ(backend.targets(),
              values({message_name, digest_name, kSignWords, "RSASignatureRaw"}));
    EXPECT_EQ(backend.received.data.size(), 256U);

    signature = sign(digest_name, digest(hash, message));
    ASSERT_TRUE(signature);
    EXPECT_TRUE(key.verifies(hash, message, *signature, true)) << digest_name;
    EXPECT_EQ(backend.targets(), values({digest_name, kSignWords, "RSASignatureRaw"}));
  }
}

TEST_F(RsaResolution, TheFirstSupportedTargetWins) {
  const auto name = "RSASignatureMessagePKCS1v15SHA256";
  ASSERT_TRUE(run_with({name, "RSASignatureRaw"}, Operation::kSign, name, Bytes(256, 1)));
  EXPECT_EQ(backend.performed, values({name}));
  EXPECT_EQ(backend.received.data, Bytes(256, 1));

  ASSERT_TRUE(
      find_road(&backend, key.facts(), Operation::kSign, algorithm_value(name))->is_direct());
}

TEST_F(RsaResolution, ATokenThatTakesWordsReceivesAndReturnsThem) {
  FakeBackend in_words({kSignWords});
  in_words.answer = [this](const Bytes& words) {
    return to_words(key.raw(*from_words(words, 256)));
  };
  const Result<Bytes> signature =
      run(&in_words, key.facts(), Operation::kSign,
          algorithm_value("RSASignatureMessagePKCS1v15SHA256"), {.data = message});
  ASSERT_TRUE(signature);
  EXPECT_TRUE(key.verifies(Hash::kSha256, message, *signature));
  EXPECT_EQ(in_words.received.data.back(), 0x00);  // the block's first byte
}

TEST_F(RsaResolution, AShortRawResultIsPaddedToTheModulus) {
  FakeBackend brief({algorithm_value("RSASignatureRaw")});
  brief.answer = [](const Bytes&) { return Bytes{1, 2}; };
  const Result<Bytes> signature =
      run(&brief, key.facts(), Operation::kSign, algorithm_value("RSASignatureMessagePSSSHA256"),
          {.data = message});
  ASSERT_TRUE(signature);
  Bytes expected(254);
  expected.insert(expected.end(), {1, 2});
  EXPECT_EQ(*signature, expected);
}

TEST_F(RsaResolution, WhatOpensslEncryptsIsDecryptedThroughTheRawOperation) {
  const Bytes ciphertext = key.encrypt_pkcs1(message);
  const Result<Bytes> plaintext = decrypt("RSAEncryptionPKCS1", ciphertext);
  ASSERT_TRUE(plaintext) << plaintext.error().description;
  EXPECT_EQ(*plaintext, message);
  EXPECT_EQ(backend.targets(), values({"RSAEncryptionPKCS1", kDecryptWords, "RSAEncryptionRaw"}));
  EXPECT_EQ(backend.received.data, ciphertext);

  for (const Hash hash : kHashes) {
    const std::string name = std::string("RSAEncryptionOAEP") + hash_name(hash);
    const Result<Bytes> opened = decrypt(name, key.encrypt_oaep(hash, message));
    ASSERT_TRUE(opened) << name;
    EXPECT_EQ(*opened, message);
    EXPECT_EQ(backend.targets(), values({name, kDecryptWords, "RSAEncryptionRaw"}));
  }
}

TEST_F(RsaResolution, TheTokenDecryptsASessionKeyAndThePlatformTheMessageItSealed) {
  const Bytes session_key(16, 9);
  Bytes sealed = key.encrypt_oaep(Hash::kSha256, session_key);
  const Bytes encrypted_key = sealed;
  const Bytes body = testing::seal_aes_gcm(session_key, Bytes(16), key.facts().public_key, message);
  sealed.insert(sealed.end(), body.begin(), body.end());

  const Result<Bytes> plaintext = decrypt("RSAEncryptionOAEPSHA256AESGCM", sealed);
  ASSERT_TRUE(plaintext) << plaintext.error().description;
  EXPECT_EQ(*plaintext, message);
  EXPECT_EQ(backend.received.data, encrypted_key);
  EXPECT_EQ(backend.targets(), values({"RSAEncryptionOAEPSHA256AESGCM", "RSAEncryptionOAEPSHA256",
                                       kDecryptWords, "RSAEncryptionRaw"}));
}

}  // namespace
}  // namespace host
