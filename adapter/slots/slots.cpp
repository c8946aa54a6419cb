#include "adapter/slots/slots.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <span>
#include <string>

#include "adapter/config/text_fields.h"
#include "adapter/slots/slot_report.h"

namespace kelvrin::adapter {
namespace {

// No module has more slots or mechanisms; one that says so is not believed.
constexpr CK_ULONG kMaxEntries = 4096;
constexpr int kMaxAttempts = 4;

// Reads a list of the module in the usual two steps; again when it grew in between. `read` is
// called with a list (null for the number alone) and a count.
template <typename Entry, typename Read>
CK_RV ReadList(const Read& read, std::vector<Entry>* entries) {
  CK_RV result = CKR_BUFFER_TOO_SMALL;
  for (int attempt = 0; attempt < kMaxAttempts && result == CKR_BUFFER_TOO_SMALL; ++attempt) {
    CK_ULONG count = 0;
    result = read(nullptr, &count);
    if (result != CKR_OK) return result;
    if (count > kMaxEntries) return CKR_DEVICE_ERROR;
    entries->assign(count, 0);
    if (count == 0) return CKR_OK;
    result = read(entries->data(), &count);
    if (result != CKR_OK) continue;
    if (count > entries->size()) return CKR_DEVICE_ERROR;
    entries->resize(count);
  }
  return result;
}

// Hands a list to a caller as the list functions do.
template <typename Entry>
CK_RV Deliver(const std::vector<Entry>& entries, Entry* list, CK_ULONG* count) {
  const CK_ULONG room = *count;
  *count = entries.size();
  if (list == nullptr) return CKR_OK;
  if (room < entries.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(entries.begin(), entries.end(), list);
  return CKR_OK;
}

CK_RV ReadSlots(const CK_FUNCTION_LIST& inner, CK_BBOOL token_present,
                std::vector<CK_SLOT_ID>* slots) {
  return ReadList([&](CK_SLOT_ID* list,
                      CK_ULONG* count) { return inner.C_GetSlotList(token_present, list, count); },
                  slots);
}

// The first word ends at a blank or a tab; a NUL ends the text as a whole.
bool FirstWordIsEmpty(const CK_TOKEN_INFO& info) {
  return info.label[0] == ' ' || info.label[0] == '\t' || info.label[0] == 0;
}

void PutSerialInFront(CK_TOKEN_INFO* info) {
  const std::string serial = WithoutLeadingBlanks(FieldText(info->serialNumber));
  if (serial.empty()) return;
  SetField(info->label, serial + " " + WithoutLeadingBlanks(FieldText(info->label)));
}

// Whether a field has the text that was asked for, if any was. Some cards pad in front.
bool HasText(std::span<const CK_UTF8CHAR> field, const std::string& asked) {
  return asked.empty() || WithoutLeadingBlanks(FieldText(field)) == asked;
}

}  // namespace

CK_RV ReadMechanisms(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot,
                     std::vector<CK_MECHANISM_TYPE>* mechanisms) {
  return ReadList([&](CK_MECHANISM_TYPE* list,
                      CK_ULONG* count) { return inner.C_GetMechanismList(slot, list, count); },
                  mechanisms);
}

// Whether the configuration allows the slot, and its token is the one that is meant. The reader's
// name is looked at first: it costs no card a round trip.
bool Slots::Fits(CK_SLOT_ID slot) {
  if (!config_.any_reader && !config_.reader_name.empty() &&
      !IsDescribed(slot, config_.reader_name)) {
    return false;
  }
  CK_TOKEN_INFO token = {};
  if (inner_.C_GetTokenInfo(slot, &token) != CKR_OK) return false;
  const TokenIdentity& identity = look_.tokens[slot] = IdentityOf(token);
  if (meant_ && identity != *meant_) return false;
  return (token.flags & CKF_TOKEN_INITIALIZED) != 0 && HasText(token.label, config_.token_label) &&
         HasText(token.serialNumber, config_.token_serial);
}

bool Slots::IsDescribed(CK_SLOT_ID slot, const std::string& text) const {
  CK_SLOT_INFO info = {};
  if (inner_.C_GetSlotInfo(slot, &info) != CKR_OK) return false;
  return FieldText(info.slotDescription).find(text) != std::string::npos;
}

CK_RV Slots::Choose() {
  std::vector<CK_SLOT_ID> present;
  const CK_RV result = ReadSlots(inner_, CK_TRUE, &present);
  // Without its reader a re-initialisation finds its card absent like without the card.
  if (result != CKR_OK && !meant_) return result;
  if (result != CKR_OK) present.clear();
  asked_ = true;
  look_ = {.present = present, .tokens = {}};
  const auto fitting =
      std::find_if(present.begin(), present.end(), [&](CK_SLOT_ID slot) { return Fits(slot); });
  chosen_.reset();
  if (fitting != present.end()) {
    chosen_ = *fitting;
  } else if (meant_) {
    chosen_ = kAbsent;
  } else if (!std::exchange(told_, true)) {
    TellThatNoneFits();
  }
  return CKR_OK;
}

void Slots::TellThatNoneFits() const {
  std::vector<CK_SLOT_ID> all;  // the slots without a token too
  const bool has_all = ReadSlots(inner_, CK_FALSE, &all) == CKR_OK;
  const std::string report = NoSlotReport(inner_, config_, has_all ? all : look_.present);
  std::fprintf(stderr, "Kelvrin adapter: %s\n", report.c_str());
}

CK_RV Slots::GetSlotList(CK_SLOT_ID* list, CK_ULONG* count) {
  if (list == nullptr || !asked_) {
    const CK_RV result = Choose();
    if (result != CKR_OK) return result;
  }
  std::vector<CK_SLOT_ID> shown;
  if (chosen_) shown.push_back(*chosen_);
  return Deliver(shown, list, count);
}

CK_RV Slots::Check(CK_SLOT_ID slot) {
  if (!asked_) {
    const CK_RV result = Choose();
    if (result != CKR_OK) return result;
  }
  if (chosen_ != slot) return CKR_SLOT_ID_INVALID;
  return slot == kAbsent ? CKR_TOKEN_NOT_PRESENT : CKR_OK;
}

CK_RV Slots::GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  CK_RV result = Check(slot);
  const bool is_absent = result == CKR_TOKEN_NOT_PRESENT;
  if (result != CKR_OK && !is_absent) return result;
  CK_SLOT_INFO answer = {};
  if (!is_absent) result = inner_.C_GetSlotInfo(slot, &answer);
  if (!is_absent && result != CKR_OK) return result;
  const bool has_name = is_absent || config_.any_reader;
  SetField(answer.slotDescription, has_name && !config_.reader_name.empty()
                                       ? config_.reader_name
                                       : FieldText(answer.slotDescription));
  *info = answer;
  return CKR_OK;
}

CK_RV Slots::GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info, TokenIdentity* identity) {
  CK_RV result = Check(slot);
  if (result != CKR_OK) return result;
  CK_TOKEN_INFO answer = {};
  result = inner_.C_GetTokenInfo(slot, &answer);
  if (result != CKR_OK) return result;
  *identity = IdentityOf(answer);
  if (config_.serial_in_label || FirstWordIsEmpty(answer)) PutSerialInFront(&answer);
  *info = answer;
  return CKR_OK;
}

CK_RV Slots::GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  CK_RV result = Check(slot);
  if (result != CKR_OK) return result;
  std::vector<CK_MECHANISM_TYPE> mechanisms;
  result = ReadMechanisms(inner_, slot, &mechanisms);
  return result == CKR_OK ? Deliver(mechanisms, list, count) : result;
}

CK_RV Slots::GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO* info) {
  const CK_RV result = Check(slot);
  return result == CKR_OK ? inner_.C_GetMechanismInfo(slot, type, info) : result;
}

}  // namespace kelvrin::adapter
