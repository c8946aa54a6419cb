#include "adapter/slots/slot_report.h"

#include <cstddef>

#include "adapter/config/text_fields.h"

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kMostSlots = 16;

// What the configuration asks of a slot, " and " between.
std::string Conditions(const Config& config) {
  std::string conditions;
  const auto add = [&](const char* key, const std::string& value) {
    if (value.empty()) return;
    if (!conditions.empty()) conditions += " and ";
    conditions += std::string(key) + " = " + Quoted(value);
  };
  add("token-label", config.token_label);
  add("token-serial", config.token_serial);
  if (!config.any_reader) add("reader-name", config.reader_name);
  return conditions;
}

std::string DescribeToken(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot) {
  CK_TOKEN_INFO info = {};
  const CK_RV result = inner.C_GetTokenInfo(slot, &info);
  if (result == CKR_TOKEN_NOT_PRESENT) return "no token";
  if (result != CKR_OK)
    return "a token that cannot be read (result " + std::to_string(result) + ")";
  if ((info.flags & CKF_TOKEN_INITIALIZED) == 0) return "a token that is not initialised";
  return "the token " + Quoted(FieldText(info.label)) + ", serial number " +
         Quoted(FieldText(info.serialNumber));
}

std::string DescribeSlot(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot) {
  CK_SLOT_INFO info = {};
  const CK_RV result = inner.C_GetSlotInfo(slot, &info);
  const std::string name = result == CKR_OK ? Quoted(FieldText(info.slotDescription))
                                            : "(result " + std::to_string(result) + ")";
  return "slot " + name + " with " + DescribeToken(inner, slot);
}

}  // namespace

std::string NoSlotReport(const CK_FUNCTION_LIST& inner, const Config& config,
                         std::span<const CK_SLOT_ID> slots) {
  const std::string conditions = Conditions(config);
  std::string report = config.file + ": no slot has an initialised token";
  if (!conditions.empty()) report += " and " + conditions;
  report += "; there is ";
  if (slots.empty()) report += "no slot at all";
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (i == kMostSlots) {
      report += ", and " + std::to_string(slots.size() - i) + " more";
      break;
    }
    if (i > 0) report += ", ";
    report += DescribeSlot(inner, slots[i]);
  }
  return report + (conditions.empty() ? "; insert a card that is initialised"
                                      : "; insert the card, or correct the configuration");
}

}  // namespace kelvrin::adapter
