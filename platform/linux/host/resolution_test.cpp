// The roads from algorithms to what a token supports, and what OpenSSL makes of the results.
#include "platform/linux/host/resolution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "encoding/ecdsa_signature.h"
#include "platform/linux/host/padding.h"
#include "platform/linux/host/testing/fake_backend.h"
#include "platform/linux/host/testing/openssl_key.h"

namespace host {
namespace {

using testing::BytesOf;
using testing::FakeBackend;
using ::testing::HasSubstr;
using testing::OpensslKey;
using testing::Values;

constexpr char kSignWords[] = "algid:sign:RSA:raw-cc";
constexpr char kDecryptWords[] = "algid:encrypt:RSA:raw-cc";

// What a token is asked about on the way from an algorithm, where there is a way. An asterisk
// stands for each hash function.
const std::map<std::string, std::vector<std::string>> kRoads = {
    {"RSASignatureMessagePKCS1v15*",
     {"RSASignatureDigestPKCS1v15*", kSignWords, "RSASignatureRaw"}},
    {"RSASignatureDigestPKCS1v15*", {kSignWords, "RSASignatureRaw"}},
    {"RSASignatureDigestPKCS1v15Raw", {kSignWords, "RSASignatureRaw"}},
    {"RSASignatureMessagePSS*", {"RSASignatureDigestPSS*", kSignWords, "RSASignatureRaw"}},
    {"RSASignatureDigestPSS*", {kSignWords, "RSASignatureRaw"}},
    {"RSASignatureRaw", {kSignWords}},
    {"ECDSASignatureMessageX962*", {"ECDSASignatureDigestX962*", "ECDSASignatureDigestX962"}},
    {"ECDSASignatureDigestX962*", {"ECDSASignatureDigestX962"}},
    {"ECDSASignatureRFC4754", {"algid:sign:ECDSA:digest-RFC4754", "ECDSASignatureDigestX962"}},
    {"RSAEncryptionRaw", {kDecryptWords}},
    {"RSAEncryptionPKCS1", {kDecryptWords, "RSAEncryptionRaw"}},
    {"RSAEncryptionOAEP*", {kDecryptWords, "RSAEncryptionRaw"}},
    {"RSAEncryptionOAEP*AESGCM", {"RSAEncryptionOAEP*", kDecryptWords, "RSAEncryptionRaw"}},
};

std::string WithHash(std::string name, Hash hash) {
  const size_t asterisk = name.find('*');
  return asterisk == std::string::npos ? name : name.replace(asterisk, 1, HashName(hash));
}

class Resolution : public ::testing::Test {
 protected:
  // A token that has the raw operations and signs digests, with the keys below.
  Result<Bytes> Request(Operation operation, const std::string& name, const Bytes& data) {
    const OpensslKey& key = name.starts_with("RSA") ? rsa() : ec;
    backend = FakeBackend({"RSASignatureRaw", "RSAEncryptionRaw", "ECDSASignatureDigestX962"},
                          [&key](const Bytes& input) {
                            return key.facts().bits > 1024 ? key.Raw(input) : key.SignDigest(input);
                          });
    return Resolve(&backend, key.facts(), operation, AlgorithmValue(name), data);
  }
  Result<Bytes> Sign(const std::string& name, const Bytes& data) {
    return Request(Operation::kSign, name, data);
  }
  Result<Bytes> Decrypt(const std::string& name, const Bytes& data) {
    return Request(Operation::kDecrypt, name, data);
  }
  static const OpensslKey& rsa() {
    static const OpensslKey key = OpensslKey::Rsa();
    return key;
  }

  const OpensslKey ec = OpensslKey::EllipticCurve();
  const Bytes message = BytesOf("A message.");
  FakeBackend backend{{}};
};

TEST_F(Resolution, TheTokenIsAskedFromTheMostSpecificAlgorithmToTheMostBasic) {
  std::map<std::string, std::vector<std::string>> roads;  // of every algorithm with an adaptor
  for (const auto& [name, targets] : kRoads) {
    for (const Hash hash : kHashes) {
      std::vector<std::string>& road = roads[WithHash(name, hash)];
      road = {WithHash(name, hash)};
      for (const std::string& target : targets) road.push_back(WithHash(target, hash));
    }
  }
  for (const Algorithm& algorithm : Algorithms()) {
    const std::string name(algorithm.name);
    FakeBackend none({});
    const Result<Road> road =
        FindRoad(&none, {.bits = 4096}, algorithm.operation(), std::string(algorithm.value));
    ASSERT_FALSE(road);
    EXPECT_EQ(road.error().domain, kOsStatusDomain);
    EXPECT_EQ(road.error().code, kParameterStatus);
    EXPECT_THAT(road.error().description,
                HasSubstr("kSecKeyAlgorithm" + name + " is not supported by the key"));
    EXPECT_EQ(none.targets,
              Values(roads.contains(name) ? roads[name] : std::vector<std::string>{name}));
  }
}

TEST_F(Resolution, AnAlgorithmOfAnotherOperationHasNoAdaptor) {
  EXPECT_FALSE(Request(Operation::kKeyExchange, "RSASignatureMessagePSSSHA256", message));
  EXPECT_EQ(backend.targets.size(), 1U);
}

TEST_F(Resolution, ADigestOfAnotherLengthNeverReachesTheToken) {
  for (const char* name : {"RSASignatureDigestPKCS1v15SHA256", "RSASignatureDigestPSSSHA256",
                           "ECDSASignatureDigestX962SHA256"}) {
    const Result<Bytes> result = Sign(name, Bytes(31));
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, kParameterStatus);
    EXPECT_THAT(result.error().description, HasSubstr("32 bytes, not 31"));
    EXPECT_TRUE(backend.performed.empty());
  }
}

TEST_F(Resolution, AKeyTooSmallForPssDoesNotSupportIt) {
  for (const auto& [name, found] : {std::pair("RSASignatureMessagePSSSHA512", false),
                                    std::pair("RSASignatureMessagePSSSHA384", true)}) {
    FakeBackend raw({"RSASignatureRaw"});
    EXPECT_EQ(bool(FindRoad(&raw, {.bits = 1024}, Operation::kSign, AlgorithmValue(name))), found);
  }
}

TEST_F(Resolution, ATokensErrorIsPassedOnUnchanged) {
  FakeBackend failing({"RSASignatureRaw"},
                      [](const Bytes&) { return Error{"CryptoTokenKit", -3, "broken"}; });
  const Result<Bytes> result = Resolve(&failing, rsa().facts(), Operation::kSign,
                                       AlgorithmValue("RSASignatureMessagePKCS1v15SHA1"), message);
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, -3);
  EXPECT_EQ(result.error().description, "broken");
}

TEST_F(Resolution, ARawResultIsPaddedToTheModulusAndNeverLonger) {
  const auto sign_with = [this](const Bytes& answer) {
    FakeBackend raw({"RSASignatureRaw"}, [&answer](const Bytes&) { return answer; });
    return Resolve(&raw, rsa().facts(), Operation::kSign,
                   AlgorithmValue("RSASignatureMessagePSSSHA256"), message);
  };
  EXPECT_FALSE(sign_with(Bytes(257, 1)));
  Bytes expected(254);
  expected.insert(expected.end(), {1, 2});
  EXPECT_EQ(*sign_with({1, 2}), expected);
}

TEST_F(Resolution, WhatIsNotEncryptedAsTheAlgorithmAsksIsRefused) {
  EXPECT_FALSE(Decrypt("RSAEncryptionPKCS1", Bytes(256, 1)));
  EXPECT_FALSE(Decrypt("RSAEncryptionOAEPSHA256", rsa().EncryptOaep(Hash::kSha1, message)));
  EXPECT_FALSE(Decrypt("RSAEncryptionOAEPSHA256AESGCM", Bytes(271)));
  EXPECT_FALSE(Decrypt("RSAEncryptionPKCS1", Bytes(257, 1)));
  EXPECT_TRUE(backend.performed.empty());
}

TEST_F(Resolution, ASignatureThatIsNoDerCannotBecomeAnRfc4754One) {
  FakeBackend raw({"ECDSASignatureDigestX962"}, [](const Bytes&) { return Bytes(64, 0x11); });
  const Result<Bytes> result = Resolve(&raw, ec.facts(), Operation::kSign,
                                       AlgorithmValue("ECDSASignatureRFC4754"), Bytes(32));
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, kDecodeStatus);
  // Elsewhere it is passed on as it is.
  EXPECT_EQ(*Resolve(&raw, ec.facts(), Operation::kSign,
                     AlgorithmValue("ECDSASignatureMessageX962SHA256"), message),
            Bytes(64, 0x11));
}

TEST_F(Resolution, SignaturesOfMessagesAndDigestsVerifyForEveryHash) {
  for (const Hash hash : kHashes) {
    for (const std::string scheme : {"PKCS1v15", "PSS", "X962"}) {
      const std::string family = scheme == "X962" ? "ECDSASignature" : "RSASignature";
      const OpensslKey& key = scheme == "X962" ? ec : rsa();
      for (const std::string what : {"Message", "Digest"}) {
        const std::string name = family + what + scheme + HashName(hash);
        const Result<Bytes> signature =
            Sign(name, what == "Message" ? message : Digest(hash, message));
        ASSERT_TRUE(signature) << name << ": " << signature.error().description;
        EXPECT_TRUE(key.Verifies(hash, message, *signature, scheme == "PSS")) << name;
      }
    }
  }
}

TEST_F(Resolution, TheListHoldsWhatWasPassedThroughThoughNeverAskedAbout) {
  ASSERT_TRUE(Sign("RSASignatureMessagePKCS1v15SHA256", message));
  EXPECT_EQ(backend.performed,
            Values({"RSASignatureMessagePKCS1v15SHA256", "RSASignatureDigestPKCS1v15SHA256",
                    "RSASignatureDigestPKCS1v15Raw", kSignWords, "RSASignatureRaw"}));
  EXPECT_EQ(backend.received,
            *PadPkcs1(DigestInfo(Hash::kSha256, Digest(Hash::kSha256, message)), 256));
  ASSERT_TRUE(Sign("RSASignatureDigestPKCS1v15Raw", BytesOf("anything")));
  EXPECT_EQ(backend.received, *PadPkcs1(BytesOf("anything"), 256));
}

TEST_F(Resolution, TheFirstSupportedTargetWins) {
  const auto* name = "RSASignatureMessagePKCS1v15SHA256";
  FakeBackend direct({name, "RSASignatureRaw"});
  ASSERT_TRUE(
      Resolve(&direct, rsa().facts(), Operation::kSign, AlgorithmValue(name), Bytes(256, 1)));
  EXPECT_EQ(direct.performed, Values({name}));
  EXPECT_EQ(direct.received, Bytes(256, 1));
}

TEST_F(Resolution, ATokenThatTakesWordsReceivesAndReturnsThem) {
  FakeBackend in_words(
      {kSignWords}, [](const Bytes& words) { return ToWords(rsa().Raw(*FromWords(words, 256))); });
  const Result<Bytes> signature =
      Resolve(&in_words, rsa().facts(), Operation::kSign,
              AlgorithmValue("RSASignatureMessagePKCS1v15SHA256"), message);
  ASSERT_TRUE(signature);
  EXPECT_TRUE(rsa().Verifies(Hash::kSha256, message, *signature));
  EXPECT_EQ(in_words.received.back(), 0x00);  // the block's first byte
}

TEST_F(Resolution, AnRfc4754SignatureIsMadeFromADerOne) {
  const Bytes hash = Digest(Hash::kSha256, message);
  const Result<Bytes> signature = Sign("ECDSASignatureRFC4754", hash);
  ASSERT_TRUE(signature) << signature.error().description;
  EXPECT_EQ(signature->size(), 64U);
  EXPECT_TRUE(ec.VerifiesDigest(hash, kelvrin::encoding::EcdsaSignatureToDer(*signature)));
}

TEST_F(Resolution, WhatOpensslEncryptsIsDecryptedThroughTheRawOperation) {
  const Bytes ciphertext = rsa().EncryptPkcs1(message);
  const Result<Bytes> plaintext = Decrypt("RSAEncryptionPKCS1", ciphertext);
  ASSERT_TRUE(plaintext) << plaintext.error().description;
  EXPECT_EQ(*plaintext, message);
  EXPECT_EQ(backend.received, ciphertext);
  for (const Hash hash : kHashes) {
    const std::string name = std::string("RSAEncryptionOAEP") + HashName(hash);
    const Result<Bytes> opened = Decrypt(name, rsa().EncryptOaep(hash, message));
    ASSERT_TRUE(opened) << name;
    EXPECT_EQ(*opened, message);
  }
}

TEST_F(Resolution, TheTokenDecryptsASessionKeyAndThePlatformTheMessageItSealed) {
  for (const size_t key_size : {16U, 32U}) {
    const Bytes session_key(key_size, 9);
    Bytes sealed = rsa().EncryptOaep(Hash::kSha256, session_key);
    const Bytes body = testing::SealAesGcm(session_key, rsa().facts().public_key, message);
    sealed.insert(sealed.end(), body.begin(), body.end());
    const Result<Bytes> plaintext = Decrypt("RSAEncryptionOAEPSHA256AESGCM", sealed);
    ASSERT_TRUE(plaintext) << plaintext.error().description;
    EXPECT_EQ(*plaintext, message);
    sealed.back() ^= 1;
    EXPECT_FALSE(Decrypt("RSAEncryptionOAEPSHA256AESGCM", sealed));
  }
}

TEST(KeyAlgorithms, AreFoundByTheirNamesWithAndWithoutThePrefix) {
  const Algorithm* algorithm = FindAlgorithm("kSecKeyAlgorithmRSASignatureRaw");
  ASSERT_NE(algorithm, nullptr);
  EXPECT_EQ(algorithm, FindAlgorithm("RSASignatureRaw"));
  EXPECT_EQ(algorithm->value, "algid:sign:RSA:raw");
  EXPECT_EQ(Algorithms().size(), 76U);
  for (const char* name :
       {"", "kSecKeyAlgorithm", "RSASignatureRaw ", "rsasignatureraw", "algid:sign:RSA:raw",
        "kSecKeyAlgorithmkSecKeyAlgorithmRSASignatureRaw"}) {
    EXPECT_EQ(FindAlgorithm(name), nullptr) << name;
  }
  EXPECT_EQ(ConstantName("algid:sign:RSA:raw"), "kSecKeyAlgorithmRSASignatureRaw");
  EXPECT_EQ(ConstantName(kSignWords), kSignWords);
}

}  // namespace
}  // namespace host
