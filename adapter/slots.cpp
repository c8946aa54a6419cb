#include "adapter/slots.h"

#include <algorithm>
#include <cstddef>
#include <string>

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

// The first word ends at a blank or a tab; a NUL ends the text as a whole.
bool FirstWordIsEmpty(const CK_TOKEN_INFO& info) {
  return info.label[0] == ' ' || info.label[0] == '\t' || info.label[0] == 0;
}

}  // namespace

CK_RV ReadMechanisms(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot,
                     std::vector<CK_MECHANISM_TYPE>* mechanisms) {
  return ReadList([&](CK_MECHANISM_TYPE* list,
                      CK_ULONG* count) { return inner.C_GetMechanismList(slot, list, count); },
                  mechanisms);
}

bool Slots::Fits(CK_SLOT_ID slot) const {
  CK_TOKEN_INFO info = {};
  if (inner_.C_GetTokenInfo(slot, &info) != CKR_OK) return false;
  if ((info.flags & CKF_TOKEN_INITIALIZED) == 0) return false;
  if (!config_.token_label.empty() && FieldText(info.label) != config_.token_label) return false;
  return config_.token_serial.empty() || FieldText(info.serialNumber) == config_.token_serial;
}

CK_RV Slots::Choose() {
  std::vector<CK_SLOT_ID> slots;
  const CK_RV result = ReadList(
      [&](CK_SLOT_ID* list, CK_ULONG* count) { return inner_.C_GetSlotList(CK_TRUE, list, count); },
      &slots);
  if (result != CKR_OK) return result;
  asked_ = true;
  chosen_.reset();
  const auto found =
      std::find_if(slots.begin(), slots.end(), [&](CK_SLOT_ID slot) { return Fits(slot); });
  if (found != slots.end()) chosen_ = *found;
  return CKR_OK;
}

CK_RV Slots::GetSlotList(CK_SLOT_ID* list, CK_ULONG* count) {
  if (count == nullptr) return CKR_ARGUMENTS_BAD;
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
  return chosen_ == slot ? CKR_OK : CKR_SLOT_ID_INVALID;
}

CK_RV Slots::GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  if (info == nullptr) return CKR_ARGUMENTS_BAD;
  CK_RV result = Check(slot);
  if (result != CKR_OK) return result;
  CK_SLOT_INFO answer = {};
  result = inner_.C_GetSlotInfo(slot, &answer);
  if (result != CKR_OK) return result;
  const std::string description =
      config_.reader_name.empty() ? FieldText(answer.slotDescription) : config_.reader_name;
  SetField(answer.slotDescription, description);
  SetField(answer.manufacturerID, FieldText(answer.manufacturerID));
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
  if (FirstWordIsEmpty(answer)) {
    const std::string old_label = FieldText(answer.label);
    const std::size_t word = std::min(old_label.find_first_not_of(" \t"), old_label.size());
    std::string label = FieldText(answer.serialNumber);
    if (word < old_label.size()) label += " " + old_label.substr(word);
    SetField(answer.label, label);
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
