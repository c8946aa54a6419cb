// Serves an algorithm that an application asks for through what its token supports, as Security
// does: the token is asked about ever more basic algorithms, and the first that it supports is it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/linux/host/operation.h"
#include "platform/linux/host/result.h"

namespace host {

// What the platform knows of a key from its keychain item.
struct KeyFacts {
  size_t bits = 0;
  Bytes public_key = {};  // PKCS#1 RSAPublicKey, or 04 X Y

  // Length in bytes of the modulus, or of a coordinate.
  size_t block_size() const { return (bits + 7) / 8; }
};

// The algorithm asked for, those passed through on the way, and last the target. Values, not names.
using AlgorithmList = std::vector<std::string>;

// One key of a token.
class Backend {
 public:
  virtual ~Backend() = default;
  // Whether the key performs the operation with the list's last algorithm.
  virtual bool Supports(Operation operation, const AlgorithmList& algorithms) = 0;
  // Performs it.
  virtual Result<Bytes> Perform(Operation operation, const AlgorithmList& algorithms,
                                const Bytes& data) = 0;
};

// How the platform serves an algorithm that a token lacks through one that it may have.
struct Adaptor {
  using Input = std::function<Result<Bytes>(const Bytes& data, const KeyFacts& key)>;
  // `data`: as `input` received it.
  using Output =
      std::function<Result<Bytes>(const Bytes& result, const Bytes& data, const KeyFacts& key)>;

  AlgorithmList algorithms;  // appended to those of the request; the last is the next target
  Input input = {};          // makes the next target's input; empty: as it is
  Output output = {};        // makes the result from the next target's; empty: as it is
  size_t minimum_bits = 0;   // keys with fewer bits are not supported
};

// The adaptor for an operation with an algorithm; null when there is none. There are those alone
// that can end at an algorithm which the extension reports as supported.
const Adaptor* FindAdaptor(Operation operation, const std::string& algorithm);

// How a request reaches what the token supports.
struct Road {
  AlgorithmList algorithms;              // that the token is asked with; the last is the target
  std::vector<const Adaptor*> adaptors;  // passed on the way; none when it is served directly
};

// Asks for the way from an algorithm (its value) to a supported one. Fails with errSecParam when
// there is none: no adaptor, a cycle, or a key too small.
Result<Road> FindRoad(Backend* backend, const KeyFacts& key, Operation operation,
                      const std::string& algorithm);

// Finds the way and performs the operation, transforming input and result.
Result<Bytes> Resolve(Backend* backend, const KeyFacts& key, Operation operation,
                      const std::string& algorithm, Bytes data);

}  // namespace host
