#include "platform/linux/host/resolution.h"

#include <algorithm>
#include <utility>

#include "platform/linux/host/algorithm_names.h"

namespace host {
namespace {

AdaptorTable make_adaptors() {
  AdaptorTable table;
  add_rsa_adaptors(&table);
  add_elliptic_curve_adaptors(&table);
  return table;
}

// Takes the road one adaptor further. Returns whether that leads to an algorithm not seen before.
bool go_on(Road* road, const Adaptor& adaptor) {
  if (adaptor.other_operation) {
    road->operation = *adaptor.other_operation;
    road->algorithms.clear();
  }
  for (const std::string& algorithm : adaptor.algorithms) {
    if (std::ranges::find(road->algorithms, algorithm) != road->algorithms.end()) return false;
    road->algorithms.push_back(algorithm);
  }
  road->adaptors.push_back(&adaptor);
  return true;
}

}  // namespace

const AdaptorTable& adaptors() {
  static const auto* const table = new AdaptorTable(make_adaptors());
  return *table;
}

Result<Road> find_road(Backend* backend, const KeyFacts& key, Operation operation,
                       const std::string& algorithm) {
  Road road = {operation, {algorithm}, {}};
  while (!backend->supports(road.operation, road.algorithms)) {
    const Adaptor* adaptor = adaptors().find(road.operation, road.algorithms.back());
    if (adaptor == nullptr || key.bits < adaptor->minimum_bits || !go_on(&road, *adaptor)) {
      return parameter_error("the algorithm " + constant_name(algorithm) +
                             " is not supported by the key");
    }
  }
  return road;
}

Result<Bytes> run(Backend* backend, const KeyFacts& key, Operation operation,
                  const std::string& algorithm, Request request) {
  const Result<Road> road = find_road(backend, key, operation, algorithm);
  if (!road) return road.error();
  std::vector<Request> requests;  // as each adaptor received it
  for (const Adaptor* adaptor : road->adaptors) {
    requests.push_back(request);
    if (!adaptor->input) continue;
    Result<Request> next = adaptor->input(request, key);
    if (!next) return next.error();
    request = std::move(*next);
  }
  Result<Bytes> result = backend->perform(road->operation, road->algorithms, request);
  for (size_t i = road->adaptors.size(); i-- > 0 && result;) {
    if (road->adaptors[i]->output) result = road->adaptors[i]->output(*result, requests[i], key);
  }
  return result;
}

}  // namespace host
