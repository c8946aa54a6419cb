// Adaptors: how the platform serves an algorithm that a token lacks through one that it may have.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/host/bytes.h"
#include "platform/linux/host/operation.h"
#include "platform/linux/host/result.h"

namespace host {

// What an operation works on.
struct Request {
  Bytes data;  // to sign or to decrypt, or the other party's public key (04 X Y)
  // Only for a key exchange: bytes that the secret shall have, and what goes into it.
  size_t requested_size = 0;
  Bytes shared_info = {};
};

// What the platform knows of a key from its keychain item.
struct KeyFacts {
  size_t bits = 0;
  Bytes public_key = {};  // PKCS#1 RSAPublicKey, or 04 X Y

  // Length in bytes of the modulus, or of a coordinate.
  size_t block_size() const { return (bits + 7) / 8; }
};

struct Adaptor {
  // Appended to the algorithms of the request; the last is the next target.
  std::vector<std::string> algorithms;
  // Makes the next target's input. Empty: as it is.
  std::function<Result<Request>(const Request&, const KeyFacts&)> input = {};
  // Makes the result from the next target's and the request as it was before `input`. Empty: as it
  // is.
  std::function<Result<Bytes>(const Bytes&, const Request&, const KeyFacts&)> output = {};
  // Keys with fewer bits are not supported.
  size_t minimum_bits = 0;
  // The operation of the next target when it is another one: a request of its own, with a list of
  // its own.
  std::optional<Operation> other_operation = {};
};

class AdaptorTable {
 public:
  void add(Operation operation, const std::string& algorithm, Adaptor adaptor) {
    adaptors_[{operation, algorithm}] = std::move(adaptor);
  }
  // The adaptor for an operation with an algorithm; null when there is none.
  const Adaptor* find(Operation operation, const std::string& algorithm) const {
    const auto found = adaptors_.find({operation, algorithm});
    return found == adaptors_.end() ? nullptr : &found->second;
  }

 private:
  std::map<std::pair<Operation, std::string>, Adaptor> adaptors_;
};

void add_rsa_adaptors(AdaptorTable* table);
void add_elliptic_curve_adaptors(AdaptorTable* table);

// All of them.
const AdaptorTable& adaptors();

}  // namespace host
