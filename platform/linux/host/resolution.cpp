#include "platform/linux/host/resolution.h"

#include <algorithm>
#include <utility>

#include "platform/linux/host/key_algorithms.h"

namespace host {
namespace {

// Takes the road one adaptor further. Returns whether that leads to an algorithm not seen before.
bool GoOn(Road* road, const Adaptor& adaptor) {
  for (const std::string& algorithm : adaptor.algorithms) {
    if (std::ranges::find(road->algorithms, algorithm) != road->algorithms.end()) return false;
    road->algorithms.push_back(algorithm);
  }
  road->adaptors.push_back(&adaptor);
  return true;
}

}  // namespace

Result<Road> FindRoad(Backend* backend, const KeyFacts& key, Operation operation,
                      const std::string& algorithm) {
  Road road = {{algorithm}, {}};
  while (!backend->Supports(operation, road.algorithms)) {
    const Adaptor* adaptor = FindAdaptor(operation, road.algorithms.back());
    if (adaptor == nullptr || key.bits < adaptor->minimum_bits || !GoOn(&road, *adaptor)) {
      return ParameterError("the algorithm " + ConstantName(algorithm) +
                            " is not supported by the key");
    }
  }
  return road;
}

Result<Bytes> Resolve(Backend* backend, const KeyFacts& key, Operation operation,
                      const std::string& algorithm, Bytes data) {
  const Result<Road> road = FindRoad(backend, key, operation, algorithm);
  if (!road) return road.error();
  std::vector<Bytes> inputs;  // as each adaptor received them
  for (const Adaptor* adaptor : road->adaptors) {
    inputs.push_back(data);
    if (!adaptor->input) continue;
    Result<Bytes> next = adaptor->input(data, key);
    if (!next) return next;
    data = std::move(*next);
  }
  Result<Bytes> result = backend->Perform(operation, road->algorithms, data);
  for (size_t i = road->adaptors.size(); i-- > 0 && result;) {
    if (road->adaptors[i]->output) result = road->adaptors[i]->output(*result, inputs[i], key);
  }
  return result;
}

}  // namespace host
