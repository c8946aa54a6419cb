// The adaptors of RSA, where everything comes down to the raw operation, asked for in two word
// orders; and of ECDSA, where it comes down to the signature of a bare digest.
#include <openssl/evp.h>

#include <map>
#include <memory>
#include <utility>

#include "encoding/ecdsa_signature.h"
#include "platform/linux/host/digest.h"
#include "platform/linux/host/key_algorithms.h"
#include "platform/linux/host/padding.h"
#include "platform/linux/host/resolution.h"

namespace host {
namespace {

using AdaptorTable = std::map<std::pair<Operation, std::string>, Adaptor>;
using Input = Adaptor::Input;

// Not constants of ours: private to the platform, and of macOS 14. Tokens are asked about them all
// the same.
constexpr char kSignWords[] = "algid:sign:RSA:raw-cc";
constexpr char kDecryptWords[] = "algid:encrypt:RSA:raw-cc";
constexpr char kDigestRfc4754[] = "algid:sign:ECDSA:digest-RFC4754";

std::string Named(const std::string& name, Hash hash) {
  return AlgorithmValue(name + HashName(hash));
}

Result<Bytes> InputToWords(const Bytes& block, const KeyFacts&) { return ToWords(block); }

Result<Bytes> OutputToBlock(const Bytes& words, const Bytes&, const KeyFacts& key) {
  return FromWords(words, key.block_size());
}

// From a message to its digest, as input of the algorithm `next`.
Adaptor Hashing(Hash hash, const std::string& next) {
  return {.algorithms = {next}, .input = [hash](const Bytes& message, const KeyFacts&) {
            return Result<Bytes>(Digest(hash, message));
          }};
}

// The step, which refuses a digest of another length than its hash function's.
Input ForDigest(Hash hash, const Input& step) {
  return [hash, step](const Bytes& digest, const KeyFacts& key) -> Result<Bytes> {
    if (digest.size() == DigestSize(hash)) return step(digest, key);
    return ParameterError(std::string("a digest of ") + HashName(hash) + " has " +
                          std::to_string(DigestSize(hash)) + " bytes, not " +
                          std::to_string(digest.size()));
  };
}

// From a digest or message to the padded block in words; `pad` makes the block.
Adaptor Padding(AlgorithmList algorithms, const Input& pad, size_t minimum_bits = 0) {
  return {.algorithms = std::move(algorithms),
          .input = [pad](const Bytes& data, const KeyFacts& key) -> Result<Bytes> {
            Result<Bytes> block = pad(data, key);
            if (!block) return block;
            return ToWords(*block);
          },
          .output = OutputToBlock,
          .minimum_bits = minimum_bits};
}

// Has the token decrypt a block, and takes off the padding.
Adaptor Unpadding(const std::function<Result<Bytes>(const Bytes&)>& unpad) {
  return {
      .algorithms = {kDecryptWords},
      .input = InputToWords,
      .output = [unpad](const Bytes& words, const Bytes&, const KeyFacts& key) -> Result<Bytes> {
        Result<Bytes> block = FromWords(words, key.block_size());
        if (!block) return block;
        return unpad(*block);
      }};
}

// Length of the tag that ends a message sealed by AES-GCM.
constexpr size_t kGcmTagSize = 16;

// Opens a ciphertext under a vector of 16 zeros, with its tag at the end. `key`: 16 or 32 bytes.
Result<Bytes> OpenAesGcm(const Bytes& key, const Bytes& authenticated, const Bytes& sealed) {
  const Error failure = ParameterError("the message cannot be opened with the session key");
  if (sealed.size() < kGcmTagSize || (key.size() != 16 && key.size() != 32)) return failure;
  const int size = static_cast<int>(sealed.size() - kGcmTagSize);
  Bytes tag(sealed.end() - kGcmTagSize, sealed.end());
  Bytes message(static_cast<size_t>(size) + 1);  // one more: an empty vector has no address
  const unsigned char iv[16] = {};
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EVP_CIPHER_CTX* c = context.get();
  const EVP_CIPHER* cipher = key.size() == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
  int written = 0;
  const bool opened = EVP_DecryptInit_ex(c, cipher, nullptr, nullptr, nullptr) == 1 &&
                      EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_AEAD_SET_IVLEN, sizeof(iv), nullptr) == 1 &&
                      EVP_DecryptInit_ex(c, nullptr, nullptr, key.data(), iv) == 1 &&
                      EVP_DecryptUpdate(c, nullptr, &written, authenticated.data(),
                                        static_cast<int>(authenticated.size())) == 1 &&
                      EVP_DecryptUpdate(c, message.data(), &written, sealed.data(), size) == 1 &&
                      EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_AEAD_SET_TAG, kGcmTagSize, tag.data()) == 1 &&
                      EVP_DecryptFinal_ex(c, message.data() + size, &written) == 1;
  if (!opened) return failure;
  message.pop_back();
  return message;
}

// A session key under OAEP, and behind it what it sealed, the public key authenticated.
Adaptor SessionKey(const std::string& oaep) {
  return {.algorithms = {oaep},
          .input = [](const Bytes& data, const KeyFacts& key) -> Result<Bytes> {
            if (data.size() >= key.block_size() + kGcmTagSize) {
              return Bytes(data.begin(), data.begin() + std::ptrdiff_t(key.block_size()));
            }
            return ParameterError("the message is too short for its session key and tag");
          },
          .output =
              [](const Bytes& session_key, const Bytes& data, const KeyFacts& key) {
                return OpenAesGcm(
                    session_key, key.public_key,
                    Bytes(data.begin() + std::ptrdiff_t(key.block_size()), data.end()));
              }};
}

// Between the two word orders. A request that began with the raw operation ends in a cycle.
void AddRaw(AdaptorTable* table, Operation operation, const std::string& words,
            const std::string& raw) {
  (*table)[{operation, words}] = {
      .algorithms = {raw},
      .input = [](const Bytes& data,
                  const KeyFacts& key) { return FromWords(data, key.block_size()); },
      .output = [](const Bytes& block, const Bytes&,
                   const KeyFacts&) { return Result<Bytes>(ToWords(block)); }};
  (*table)[{operation, raw}] = {
      .algorithms = {words}, .input = InputToWords, .output = OutputToBlock};
}

void AddRsaSignatures(AdaptorTable* table, Hash hash) {
  const std::string padded = AlgorithmValue("RSASignatureDigestPKCS1v15Raw");
  const std::string pkcs1 = Named("RSASignatureDigestPKCS1v15", hash);
  const std::string pss = Named("RSASignatureDigestPSS", hash);
  const Input pad_pkcs1 = [hash](const Bytes& digest, const KeyFacts& key) {
    return PadPkcs1(DigestInfo(hash, digest), key.block_size());
  };
  const Input pad_pss = [hash](const Bytes& digest, const KeyFacts& key) {
    return PadPss(hash, digest, key.bits);
  };
  (*table)[{Operation::kSign, pkcs1}] = Padding({padded, kSignWords}, ForDigest(hash, pad_pkcs1));
  (*table)[{Operation::kSign, Named("RSASignatureMessagePKCS1v15", hash)}] = Hashing(hash, pkcs1);
  (*table)[{Operation::kSign, pss}] =
      Padding({kSignWords}, ForDigest(hash, pad_pss), PssMinimumKeyBits(hash));
  (*table)[{Operation::kSign, Named("RSASignatureMessagePSS", hash)}] = Hashing(hash, pss);
}

// Signatures stay as the token gives them, except under RFC 4754.
void AddEcdsaSignatures(AdaptorTable* table) {
  const std::string x962 = AlgorithmValue("ECDSASignatureDigestX962");
  const Input as_it_is = [](const Bytes& digest, const KeyFacts&) { return digest; };
  for (const Hash hash : kHashes) {
    const std::string digest = Named("ECDSASignatureDigestX962", hash);
    (*table)[{Operation::kSign, digest}] = {.algorithms = {x962},
                                            .input = ForDigest(hash, as_it_is)};
    (*table)[{Operation::kSign, Named("ECDSASignatureMessageX962", hash)}] = Hashing(hash, digest);
  }
  (*table)[{Operation::kSign, AlgorithmValue("ECDSASignatureRFC4754")}] = {
      .algorithms = {kDigestRfc4754}};
  (*table)[{Operation::kSign, kDigestRfc4754}] = {
      .algorithms = {x962},
      .output = [](const Bytes& signature, const Bytes&, const KeyFacts& key) -> Result<Bytes> {
        auto raw = kelvrin::encoding::EcdsaSignatureToRaw(signature, key.block_size());
        if (raw) return *raw;
        return Error{kOsStatusDomain, kDecodeStatus,
                     "the token's signature is no DER sequence of two integers"};
      }};
}

AdaptorTable MakeAdaptors() {
  AdaptorTable table;
  AddRaw(&table, Operation::kSign, kSignWords, AlgorithmValue("RSASignatureRaw"));
  AddRaw(&table, Operation::kDecrypt, kDecryptWords, AlgorithmValue("RSAEncryptionRaw"));
  table[{Operation::kSign, AlgorithmValue("RSASignatureDigestPKCS1v15Raw")}] =
      Padding({kSignWords}, [](const Bytes& message, const KeyFacts& key) {
        return PadPkcs1(message, key.block_size());
      });
  table[{Operation::kDecrypt, AlgorithmValue("RSAEncryptionPKCS1")}] = Unpadding(UnpadPkcs1);
  for (const Hash hash : kHashes) {
    AddRsaSignatures(&table, hash);
    const std::string oaep = Named("RSAEncryptionOAEP", hash);
    table[{Operation::kDecrypt, oaep}] =
        Unpadding([hash](const Bytes& block) { return UnpadOaep(hash, block); });
    table[{Operation::kDecrypt, AlgorithmValue(std::string("RSAEncryptionOAEP") + HashName(hash) +
                                               "AESGCM")}] = SessionKey(oaep);
  }
  AddEcdsaSignatures(&table);
  return table;
}

}  // namespace

const Adaptor* FindAdaptor(Operation operation, const std::string& algorithm) {
  static const auto* const table = new AdaptorTable(MakeAdaptors());
  const auto found = table->find({operation, algorithm});
  return found == table->end() ? nullptr : &found->second;
}

}  // namespace host
