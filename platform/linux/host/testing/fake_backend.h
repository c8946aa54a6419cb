// A key whose answers are scripted and that keeps what it was asked.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/host/key_algorithms.h"
#include "platform/linux/host/resolution.h"

namespace host::testing {

// The values of algorithms, most by the names of their constants; what begins with "algid:" is a
// value already.
inline AlgorithmList Values(const std::vector<std::string>& names) {
  AlgorithmList result;
  for (const std::string& name : names) {
    result.push_back(name.starts_with("algid:") ? name : AlgorithmValue(name));
  }
  return result;
}

class FakeBackend : public Backend {
 public:
  using Answer = std::function<Result<Bytes>(const Bytes&)>;

  // Supports these algorithms.
  explicit FakeBackend(
      const std::vector<std::string>& supported,
      Answer answer = [](const Bytes& data) { return data; })
      : answer_(std::move(answer)) {
    for (const std::string& value : Values(supported)) supported_.insert(value);
  }

  bool Supports(Operation, const AlgorithmList& algorithms) override {
    targets.push_back(algorithms.back());
    return supported_.contains(algorithms.back());
  }

  Result<Bytes> Perform(Operation, const AlgorithmList& algorithms, const Bytes& data) override {
    performed = algorithms;
    received = data;
    return answer_(data);
  }

  AlgorithmList targets;    // that the key was asked about, in order
  AlgorithmList performed;  // empty when nothing was
  Bytes received;

 private:
  std::set<std::string> supported_;
  Answer answer_;
};

}  // namespace host::testing
