// Elliptic curves: digests for signatures, key derivation for exchanges, and the exchange that
// hides in an encryption.
#include <string>

#include "platform/linux/host/adaptor.h"
#include "platform/linux/host/algorithm_names.h"
#include "platform/linux/host/digest_adaptors.h"
#include "platform/linux/host/ecdsa_signature.h"
#include "platform/linux/host/shared_secret.h"

namespace host {
namespace {

// Asked about by systems from macOS 14 on; no constant of ours.
constexpr char kDigestRfc4754[] = "algid:sign:ECDSA:digest-RFC4754";

// From a digest of one hash function to a digest of any.
Adaptor checked_digest_adaptor(Hash hash, const std::string& next) {
  return {.algorithms = {next},
          .input = [hash](const Request& request, const KeyFacts&) -> Result<Request> {
            if (auto error = digest_size_error(hash, request.data)) return *error;
            return request;
          }};
}

// Signatures stay as the token gives them, except under RFC 4754.
void add_signatures(AdaptorTable* table) {
  const std::string x962 = algorithm_value("ECDSASignatureDigestX962");
  for (const Hash hash : kHashes) {
    const std::string of_digest =
        algorithm_value(std::string("ECDSASignatureDigestX962") + hash_name(hash));
    table->add(Operation::kSign, of_digest, checked_digest_adaptor(hash, x962));
    table->add(Operation::kSign,
               algorithm_value(std::string("ECDSASignatureMessageX962") + hash_name(hash)),
               hashing_adaptor(hash, of_digest));
  }
  table->add(Operation::kSign, algorithm_value("ECDSASignatureRFC4754"),
             {.algorithms = {kDigestRfc4754}});
  table->add(Operation::kSign, kDigestRfc4754,
             {.algorithms = {x962},
              .output = [](const Bytes& signature, const Request&, const KeyFacts& key) {
                return der_to_rfc4754(signature, key.block_size());
              }});
}

// The token gives the bare shared coordinate; the platform derives from it.
void add_exchanges(AdaptorTable* table, const std::string& kind) {
  const std::string name = "ECDHKeyExchange" + kind;
  for (const Hash hash : kHashes) {
    table->add(Operation::kKeyExchange, algorithm_value(name + "X963" + hash_name(hash)),
               {.algorithms = {algorithm_value(name)},
                .output = [hash](const Bytes& secret, const Request& request, const KeyFacts&) {
                  return derive_x963(hash, secret, request.shared_info, request.requested_size);
                }});
  }
}

constexpr size_t kIvSize = 16;
enum class Iv { kZero, kDerived };

size_t session_key_size(const KeyFacts& key) { return key.bits <= 256 ? 16 : 32; }

// The exchange's request: the sender's public key is at the front of the message.
Result<Request> exchange_request(const Request& request, const KeyFacts& key, Iv iv) {
  const size_t point_size = 1 + 2 * key.block_size();
  if (request.data.size() < point_size + kGcmTagSize) {
    return parameter_error("the message is too short for a public key and a tag");
  }
  const Bytes point(request.data.begin(),
                    request.data.begin() + static_cast<std::ptrdiff_t>(point_size));
  const size_t size = session_key_size(key) + (iv == Iv::kDerived ? kIvSize : 0);
  return Request{.data = point, .requested_size = size, .shared_info = point};
}

// Opens what follows the sender's public key; our own is authenticated.
Result<Bytes> open_message(const Bytes& derived, const Request& request, const KeyFacts& key) {
  const size_t key_size = session_key_size(key);
  const size_t point_size = 1 + 2 * key.block_size();
  if (derived.size() < key_size) return parameter_error("the derived key is too short");
  const auto key_end = derived.begin() + static_cast<std::ptrdiff_t>(key_size);
  Bytes iv(key_end, derived.end());
  iv.resize(kIvSize);
  const auto begin = request.data.begin() + static_cast<std::ptrdiff_t>(point_size);
  return open_aes_gcm(Bytes(derived.begin(), key_end), iv, key.public_key,
                      Bytes(begin, request.data.end()));
}

// `kind`: "Standard" or "Cofactor".
void add_decryption(AdaptorTable* table, const std::string& kind, const char* variant, Iv iv,
                    Hash hash) {
  const std::string suffix = std::string("X963") + hash_name(hash);
  table->add(Operation::kDecrypt,
             algorithm_value("ECIESEncryption" + kind + variant + suffix + "AESGCM"),
             {.algorithms = {algorithm_value("ECDHKeyExchange" + kind + suffix)},
              .input = [iv](const Request& request,
                            const KeyFacts& key) { return exchange_request(request, key, iv); },
              .output = open_message,
              .other_operation = Operation::kKeyExchange});
}

}  // namespace

void add_elliptic_curve_adaptors(AdaptorTable* table) {
  add_signatures(table);
  for (const char* kind : {"Standard", "Cofactor"}) {
    add_exchanges(table, kind);
    for (const Hash hash : kHashes) {
      add_decryption(table, kind, "", Iv::kZero, hash);
      // The derived vector came later and without SHA-1.
      if (hash != Hash::kSha1) add_decryption(table, kind, "VariableIV", Iv::kDerived, hash);
    }
  }
}

}  // namespace host
