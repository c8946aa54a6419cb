// RSA: everything comes down to the raw operation, asked for in two word orders.
#include "platform/linux/host/adaptor.h"
#include "platform/linux/host/algorithm_names.h"
#include "platform/linux/host/digest_adaptors.h"
#include "platform/linux/host/padding.h"
#include "platform/linux/host/rsa_words.h"
#include "platform/linux/host/shared_secret.h"

namespace host {
namespace {

// Private to the platform, which asks tokens about them all the same.
constexpr char kSignWords[] = "algid:sign:RSA:raw-cc";
constexpr char kDecryptWords[] = "algid:encrypt:RSA:raw-cc";

std::string named(const char* name, Hash hash) {
  return algorithm_value(std::string(name) + hash_name(hash));
}

Request with_data(Request request, Bytes data) {
  request.data = std::move(data);
  return request;
}

Result<Bytes> words_to_block(const Bytes& words, const Request&, const KeyFacts& key) {
  return from_words(words, key.block_size());
}

Result<Request> data_to_words(const Request& request, const KeyFacts&) {
  return with_data(request, to_words(request.data));
}

// An adaptor from a digest or message to the padded block in words; `pad` makes the block.
template <typename Pad>
Adaptor padding_adaptor(const std::vector<std::string>& algorithms, Pad pad) {
  return {.algorithms = algorithms,
          .input = [pad](const Request& request, const KeyFacts& key) -> Result<Request> {
            const Result<Bytes> block = pad(request.data, key);
            if (!block) return block.error();
            return with_data(request, to_words(*block));
          },
          .output = words_to_block};
}

// A finished digest has its hash function's length.
template <typename Pad>
auto for_digest(Hash hash, Pad pad) {
  return [hash, pad](const Bytes& digest, const KeyFacts& key) -> Result<Bytes> {
    if (auto error = digest_size_error(hash, digest)) return *error;
    return pad(digest, key);
  };
}

// Between the two word orders. A request that began with the raw operation ends in a cycle.
void add_raw_adaptors(AdaptorTable* table, Operation operation, const char* words,
                      const std::string& raw) {
  table->add(operation, words,
             {.algorithms = {raw},
              .input = [](const Request& request, const KeyFacts& key) -> Result<Request> {
                const Result<Bytes> block = from_words(request.data, key.block_size());
                if (!block) return block.error();
                return with_data(request, *block);
              },
              .output = [](const Bytes& result, const Request&,
                           const KeyFacts&) { return Result<Bytes>(to_words(result)); }});
  table->add(operation, raw,
             {.algorithms = {words}, .input = data_to_words, .output = words_to_block});
}

void add_pkcs1_signatures(AdaptorTable* table) {
  const std::string padded = algorithm_value("RSASignatureDigestPKCS1v15Raw");
  const auto pad = [](const Bytes& message, const KeyFacts& key) {
    return pad_pkcs1(message, key.block_size());
  };
  table->add(Operation::kSign, padded, padding_adaptor({kSignWords}, pad));
  for (const Hash hash : kHashes) {
    const auto pad_digest = [hash](const Bytes& digest, const KeyFacts& key) {
      return pad_pkcs1(digest_info(hash, digest), key.block_size());
    };
    const std::string of_digest = named("RSASignatureDigestPKCS1v15", hash);
    // The padding without DigestInfo is passed through, but never asked for.
    table->add(Operation::kSign, of_digest,
               padding_adaptor({padded, kSignWords}, for_digest(hash, pad_digest)));
    table->add(Operation::kSign, named("RSASignatureMessagePKCS1v15", hash),
               hashing_adaptor(hash, of_digest));
  }
}

void add_pss_signatures(AdaptorTable* table) {
  for (const Hash hash : kHashes) {
    const auto pad = [hash](const Bytes& digest, const KeyFacts& key) {
      return pad_pss(hash, digest, key.bits);
    };
    const std::string of_digest = named("RSASignatureDigestPSS", hash);
    Adaptor adaptor = padding_adaptor({kSignWords}, for_digest(hash, pad));
    adaptor.minimum_bits = pss_minimum_key_bits(hash);
    table->add(Operation::kSign, of_digest, std::move(adaptor));
    table->add(Operation::kSign, named("RSASignatureMessagePSS", hash),
               hashing_adaptor(hash, of_digest));
  }
}

// An adaptor that has the token decrypt a block, and takes off the padding.
template <typename Unpad>
Adaptor unpadding_adaptor(Unpad unpad) {
  return {
      .algorithms = {kDecryptWords},
      .input = data_to_words,
      .output = [unpad](const Bytes& words, const Request&, const KeyFacts& key) -> Result<Bytes> {
        const Result<Bytes> block = from_words(words, key.block_size());
        if (!block) return block.error();
        return unpad(*block);
      }};
}

// A session key under OAEP, and behind it what it sealed, the public key authenticated.
Adaptor session_key_adaptor(const std::string& next) {
  return {.algorithms = {next},
          .input = [](const Request& request, const KeyFacts& key) -> Result<Request> {
            if (request.data.size() < key.block_size() + kGcmTagSize) {
              return parameter_error("the message is too short for its session key and tag");
            }
            const auto end = request.data.begin() + static_cast<std::ptrdiff_t>(key.block_size());
            return with_data(request, Bytes(request.data.begin(), end));
          },
          .output =
              [](const Bytes& session_key, const Request& request, const KeyFacts& key) {
                const auto begin =
                    request.data.begin() + static_cast<std::ptrdiff_t>(key.block_size());
                return open_aes_gcm(session_key, Bytes(16), key.public_key,
                                    Bytes(begin, request.data.end()));
              }};
}

void add_decryption(AdaptorTable* table) {
  table->add(Operation::kDecrypt, algorithm_value("RSAEncryptionPKCS1"),
             unpadding_adaptor(unpad_pkcs1));
  for (const Hash hash : kHashes) {
    const std::string oaep = named("RSAEncryptionOAEP", hash);
    table->add(Operation::kDecrypt, oaep,
               unpadding_adaptor([hash](const Bytes& block) { return unpad_oaep(hash, block); }));
    table->add(Operation::kDecrypt,
               algorithm_value(std::string("RSAEncryptionOAEP") + hash_name(hash) + "AESGCM"),
               session_key_adaptor(oaep));
  }
}

}  // namespace

void add_rsa_adaptors(AdaptorTable* table) {
  add_raw_adaptors(table, Operation::kSign, kSignWords, algorithm_value("RSASignatureRaw"));
  add_raw_adaptors(table, Operation::kDecrypt, kDecryptWords, algorithm_value("RSAEncryptionRaw"));
  add_pkcs1_signatures(table);
  add_pss_signatures(table);
  add_decryption(table);
}

}  // namespace host
