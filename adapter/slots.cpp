#include "adapter/slots.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <span>
#include <string>

#include "adapter/slot_report.h"
#include "adapter/text_fields.h"

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

bool Slots::Fits(CK_SLOT_ID slot) const {
  CK_TOKEN_INFO token = {};
  if (inner_.C_GetTokenInfo(slot, &token) != CKR_OK) return false;
  if ((token.flags & CKF_TOKEN_INITIALIZED) == 0) return false;
  if (!HasText(token.label, config_.token_label)) return false;
  if (!HasText(token.serialNumber, config_.token_serial)) return false;
  return config_.slot_reader.empty() || IsDescribed(slot, config_.slot_reader);
}

bool Slots::IsDescribed(CK_SLOT_ID slot, const std::string& text) const {
  CK_SLOT_INFO info = {};
  if (inner_.C_GetSlotInfo(slot, &info) != CKR_OK) return false;
  return FieldText(info.slotDescription).find(text) != std::string::npos;
}

CK_RV Slots::Choose() {
  std::vector<CK_SLOT_ID> slots;
  const CK_RV result = ReadSlots(inner_, CK_TRUE, &slots);
  if (result != CKR_OK) return result;
  asked_ = true;
  chosen_.reset();
  std::vector<CK_SLOT_ID> fitting;
  std::copy_if(slots.begin(), slots.end(), std::back_inserter(fitting),
               [&](CK_SLOT_ID slot) { return Fits(slot); });
  if (fitting.empty()) {
    TellThatNoneOf(slots);
    return CKR_OK;
  }
  chosen_ = fitting.front();
  if (fitting.size() == 1 || config_.reader_name.empty()) return CKR_OK;
  // Of several the reader that has the name already is the one that is meant.
  const auto named = std::find_if(fitting.begin(), fitting.end(), [&](CK_SLOT_ID slot) {
    return IsDescribed(slot, config_.reader_name);
  });
  if (named != fitting.end()) chosen_ = *named;
  return CKR_OK;
}

void Slots::TellThatNoneOf(const std::vector<CK_SLOT_ID>& slots) {
  if (told_) return;
  told_ = true;
  std::vector<CK_SLOT_ID> all;  // the slots without a token too
  const bool has_all = ReadSlots(inner_, CK_FALSE, &all) == CKR_OK;
  const std::string report = NoSlotReport(inner_, config_, has_all ? all : slots);
  std::fprintf(stderr, "Kelvrin adapter: %s\n", report.c_str());
}

// Asks in the caller's own steps: the number that the module told must hold for the list.
CK_RV Slots::ListAll(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count) const {
  std::vector<CK_SLOT_ID> slots(list == nullptr ? 0 : std::min(*count, kMaxEntries));
  // A list of no room still needs an address.
  CK_SLOT_ID none = 0;
  CK_ULONG told = slots.size();
  CK_SLOT_ID* const place = slots.empty() ? &none : slots.data();
  const CK_RV result =
      inner_.C_GetSlotList(token_present, list == nullptr ? nullptr : place, &told);
  if (result != CKR_OK && result != CKR_BUFFER_TOO_SMALL) return result;
  if (told > kMaxEntries) return CKR_DEVICE_ERROR;
  if (result == CKR_OK && list != nullptr) {
    if (told > slots.size()) return CKR_DEVICE_ERROR;
    std::copy_n(slots.begin(), told, list);
  }
  *count = told;
  return result;
}

CK_RV Slots::GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count) {
  if (count == nullptr) return CKR_ARGUMENTS_BAD;
  if (ShowsAll()) return ListAll(token_present, list, count);
  if (list == nullptr || !asked_) {
    const CK_RV result = Choose();
    if (result != CKR_OK) return result;
  }
  std::vector<CK_SLOT_ID> shown;
  if (chosen_) shown.push_back(*chosen_);
  return Deliver(shown, list, count);
}

CK_RV Slots::Check(CK_SLOT_ID slot) {
  if (ShowsAll()) return CKR_OK;
  if (!asked_) {
    const CK_RV result = Choose();
    if (result != CKR_OK) return result;
  }
  // A choice made anew does not take the slot away from those who have sessions there.
  return chosen_ == slot || is_in_use_(slot) ? CKR_OK : CKR_SLOT_ID_INVALID;
}

CK_RV Slots::CheckEvent(CK_SLOT_ID slot) {
  const CK_RV result = Check(slot);
  const bool is_answered = result != CKR_OK && result != CKR_SLOT_ID_INVALID;
  if (is_answered || ShowsAll() || chosen_ == slot) return result;
  if (!Fits(slot) || (chosen_ && Fits(*chosen_))) return result;
  const CK_RV chosen = Choose();
  return chosen == CKR_OK ? Check(slot) : chosen;
}

CK_RV Slots::GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  if (info == nullptr) return CKR_ARGUMENTS_BAD;
  CK_RV result = Check(slot);
  if (result != CKR_OK) return result;
  CK_SLOT_INFO answer = {};
  result = inner_.C_GetSlotInfo(slot, &answer);
  if (result != CKR_OK) return result;
  if (!ShowsAll()) {
    const std::string description =
        config_.reader_name.empty() ? FieldText(answer.slotDescription) : config_.reader_name;
    SetField(answer.slotDescription, description);
    SetField(answer.manufacturerID, FieldText(answer.manufacturerID));
  }
  *info = answer;
  return CKR_OK;
}

CK_RV Slots::GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
  if (info == nullptr) return CKR_ARGUMENTS_BAD;
  CK_RV result = Check(slot);
  if (result != CKR_OK) return result;
  CK_TOKEN_INFO answer = {};
  result = inner_.C_GetTokenInfo(slot, &answer);
  if (result != CKR_OK) return result;
  if (!ShowsAll() && (config_.serial_in_label || FirstWordIsEmpty(answer))) {
    PutSerialInFront(&answer);
  }
  *info = answer;
  return CKR_OK;
}

CK_RV Slots::GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  if (count == nullptr) return CKR_ARGUMENTS_BAD;
  CK_RV result = Check(slot);
  if (result != CKR_OK) return result;
  std::vector<CK_MECHANISM_TYPE> mechanisms;
  result = ReadMechanisms(inner_, slot, &mechanisms);
  return result == CKR_OK ? Deliver(mechanisms, list, count) : result;
}

}  // namespace kelvrin::adapter
