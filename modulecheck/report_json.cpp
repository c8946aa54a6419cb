// The report as one JSON document.
#include "modulecheck/report.h"

#include <nlohmann/json.hpp>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;

const char* Name(Verdict verdict) {
  switch (verdict) {
    case Verdict::kMet:
      return "met";
    case Verdict::kThroughAdapter:
      return "met-through-adapter";
    case Verdict::kNotReached:
      return "not-reached";
    case Verdict::kNotTried:
      return "not-tried";
    case Verdict::kNotConcerned:
      return "not-concerned";
    case Verdict::kNotMet:
      break;
  }
  return "not-met";
}

const char* Name(Conclusion conclusion) {
  switch (conclusion) {
    case Conclusion::kWorks:
      return "works";
    case Conclusion::kWorksWithAdapter:
      return "works-with-adapter";
    case Conclusion::kDoesNotWork:
      break;
  }
  return "does-not-work";
}

json ToJson(const ExpectationReport& report) {
  const Expectation& expectation = *report.expectation;
  json rules = json::array();
  if (report.verdict == Verdict::kThroughAdapter && report.as_it_is.outcome != Outcome::kUnknown) {
    for (const adapter::Rule rule : expectation.rules) {
      rules.push_back(adapter::kRuleNames[static_cast<std::size_t>(rule)].name);
    }
  }
  json result = {{"name", expectation.name},
                 {"topic", expectation.topic},
                 {"expects", expectation.sentence},
                 {"verdict", Name(report.verdict)},
                 {"rules", rules},
                 {"asItIs", report.as_it_is},
                 {"advice", report.advice}};
  if (report.through_adapter) result["throughAdapter"] = *report.through_adapter;
  return result;
}

json ToJson(const SlotListing& slot) {
  return {{"readerName", slot.reader_name},  {"hasToken", slot.has_token},
          {"initialised", slot.initialised}, {"label", slot.label},
          {"serial", slot.serial},           {"readerNameLeadsTo", slot.leads_to}};
}

json ToJson(const PublicKeyListing& key) {
  return {{"label", key.label},
          {"id", key.id},
          {"type", key.type},
          {"usage", key.usage},
          {"unreadable", key.unreadable},
          {"allowedMechanisms", key.mechanisms},
          {"allowedMechanismsResult", key.mechanisms_result}};
}

json ToJson(const PrivateKeyListing& key) {
  return {{"label", key.label},
          {"id", key.id},
          {"type", key.type},
          {"usage", key.usage},
          {"alwaysAuthenticate", key.always_authenticate}};
}

json ToJson(const ItemListing& item) {
  json result = {{"kind", item.kind}, {"name", item.name}, {"objectId", item.object_id}};
  if (item.kind == "key") result["capabilities"] = item.capabilities;
  return result;
}

template <typename Element>
json ToArray(const std::vector<Element>& elements) {
  json array = json::array();
  for (const Element& element : elements) array.push_back(ToJson(element));
  return array;
}

json ToJson(const Report& report, const Listing& listing) {
  json certificates = json::array();
  for (const CertificateListing& certificate : listing.certificates) {
    certificates.push_back(
        {{"label", certificate.label}, {"id", certificate.id}, {"size", certificate.size}});
  }
  const auto& shown = report.private_keys.empty() ? listing.private_keys : report.private_keys;
  return {{"of", report.behind_adapter ? "adapter" : "module"},
          {"slots", ToArray(listing.slots)},
          {"picked", listing.picked},
          {"why", listing.why},
          {"fallback", listing.is_fallback},
          {"judged", listing.judged},
          {"cardNumber", listing.card_number},
          {"mechanisms", listing.slot_mechanisms},
          {"certificates", certificates},
          {"publicKeys", ToArray(listing.public_keys)},
          {"privateKeys", ToArray(shown)},
          {"incomplete", listing.incomplete},
          {"published",
           {{"items", ToArray(listing.publication.items)},
            {"dropped", listing.publication.dropped},
            {"ended", listing.publication.ended}}}};
}

}  // namespace

std::string ToJson(const Report& report) {
  const json document = {{"module", report.module},
                         {"reader", report.reader_name},
                         {"listing", ToJson(report, report.listing)},
                         {"expectations", ToArray(report.expectations)},
                         {"warnings", report.warnings},
                         {"adapterFailed", report.adapter_failed},
                         {"conclusion", Name(report.conclusion)},
                         {"exitStatus", static_cast<int>(report.conclusion)}};
  return document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace kelvrin::modulecheck
