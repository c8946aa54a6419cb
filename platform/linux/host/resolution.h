// Serves an algorithm that an application asks for through what its token supports, as Security
// does: the token is asked about ever more basic algorithms, and the first that it supports is it.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/host/adaptor.h"
#include "platform/linux/host/operation.h"
#include "platform/linux/host/result.h"

namespace host {

// The algorithm asked for, those passed through on the way, and last the target. Values, not names.
using AlgorithmList = std::vector<std::string>;

// One key of a token.
class Backend {
 public:
  virtual ~Backend() = default;
  // Whether the key performs the operation with the list's last algorithm.
  virtual bool supports(Operation operation, const AlgorithmList& algorithms) = 0;
  // Performs it.
  virtual Result<Bytes> perform(Operation operation, const AlgorithmList& algorithms,
                                const Request& request) = 0;
};

// How a request reaches what the token supports.
struct Road {
  Operation operation;                   // that the token performs
  AlgorithmList algorithms;              // that it is asked with; the last is the target
  std::vector<const Adaptor*> adaptors;  // passed on the way; none when it is served directly

  bool is_direct() const { return adaptors.empty(); }
};

// Asks for the way from an algorithm (its value) to a supported one. Fails with errSecParam when
// there is none: no adaptor, a cycle, or a key too small.
Result<Road> find_road(Backend* backend, const KeyFacts& key, Operation operation,
                       const std::string& algorithm);

// Finds the way and performs the operation, transforming input and result.
Result<Bytes> run(Backend* backend, const KeyFacts& key, Operation operation,
                  const std::string& algorithm, Request request);

}  // namespace host
