#include "modulecheck/left_out.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxId = 255;

const char* Reason(const json& certificate) {
  if (certificate.at("id").get<std::string>().size() > 2 * kMaxId) {
    return "its CKA_ID has more than 255 bytes";
  }
  if (certificate.at("size") > kCertValueSize) return "it has more than 4096 bytes";
  if (!certificate.at("parseable").get<bool>()) return "its value is no certificate";
  return "it has no key, as a CA's";
}

}  // namespace

json LeftOut(const json& alone, const json& behind) {
  json left_out = json::array();
  if (!alone.contains("certificates") || !behind.contains("certificates")) return left_out;
  json shown = behind.at("certificates");
  for (const json& certificate : alone.at("certificates")) {
    // The adapter may change the label.
    const auto found = std::find_if(shown.begin(), shown.end(), [&](const json& one) {
      return one.at("id") == certificate.at("id") && one.at("size") == certificate.at("size");
    });
    if (found != shown.end()) {
      shown.erase(found);
      continue;
    }
    left_out.push_back({{"label", certificate.at("label")},
                        {"id", certificate.at("id")},
                        {"reason", Reason(certificate)}});
  }
  return left_out;
}

}  // namespace kelvrin::modulecheck
