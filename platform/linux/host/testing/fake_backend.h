// A key whose answers are scripted and that keeps what it was asked.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/host/algorithm_names.h"
#include "platform/linux/host/resolution.h"

namespace host::testing {

class FakeBackend : public Backend {
 public:
  // Supports the algorithms of these values.
  explicit FakeBackend(std::set<std::string> supported = {}) : supported_(std::move(supported)) {}

  bool supports(Operation operation, const AlgorithmList& algorithms) override {
    asked.push_back(algorithms);
    operations.insert(operation);
    return supported_.contains(algorithms.back());
  }

  Result<Bytes> perform(Operation operation, const AlgorithmList& algorithms,
                        const Request& request) override {
    performed_operation = operation;
    performed = algorithms;
    received = request;
    return answer(request.data);
  }

  // The algorithms that the key was asked about as targets, in order.
  AlgorithmList targets() const {
    AlgorithmList result;
    for (const AlgorithmList& algorithms : asked) result.push_back(algorithms.back());
    return result;
  }

  std::function<Result<Bytes>(const Bytes&)> answer = [](const Bytes& data) { return data; };
  std::vector<AlgorithmList> asked;
  std::set<Operation> operations;  // that it was asked about
  Operation performed_operation = Operation::kReadData;
  AlgorithmList performed;  // empty when nothing was
  Request received;

 private:
  std::set<std::string> supported_;
};

// The values of algorithms, most by the names of their constants; what begins with "algid:" is a
// value already.
inline AlgorithmList values(const std::vector<std::string>& names) {
  AlgorithmList result;
  for (const std::string& name : names) {
    result.push_back(name.starts_with("algid:") ? name : algorithm_value(name));
  }
  return result;
}

}  // namespace host::testing
