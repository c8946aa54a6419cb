#include "modulecheck/judgement.h"

#include <nlohmann/json.hpp>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {

NLOHMANN_JSON_SERIALIZE_ENUM(Outcome, {{Outcome::kUnknown, "unknown"},
                                       {Outcome::kMet, "met"},
                                       {Outcome::kUnmet, "unmet"},
                                       {Outcome::kNotConcerned, "not-concerned"},
                                       {Outcome::kNotTried, "not-tried"}})

std::string Seen(const Judgement& judgement) {
  std::string text;
  if (judgement.result) text = judgement.call + " gave " + ResultText(*judgement.result);
  if (judgement.detail.empty()) return text;
  return text.empty() ? judgement.detail : text + ", " + judgement.detail;
}

void to_json(nlohmann::json& json, const Judgement& judgement) {
  json = {{"outcome", judgement.outcome}};
  if (!judgement.call.empty()) json["call"] = judgement.call;
  if (judgement.result) {
    json["result"] = *judgement.result;
    json["resultName"] = ResultText(*judgement.result);
  }
  if (!judgement.detail.empty()) json["detail"] = judgement.detail;
}

void from_json(const nlohmann::json& json, Judgement& judgement) {
  judgement = {};
  json.at("outcome").get_to(judgement.outcome);
  judgement.call = json.value("call", "");
  judgement.detail = json.value("detail", "");
  if (json.contains("result")) judgement.result = json.at("result").get<CK_RV>();
}

}  // namespace kelvrin::modulecheck
