#include "modulecheck/module.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "modulecheck/conclusion.h"
#include "modulecheck/text.h"
#include "p11/bringup.h"

namespace kelvrin::modulecheck {
namespace {

// More slots than any module has.
constexpr CK_ULONG kMaxSlots = 1024;

constexpr CK_FLAGS kReadWrite = CKF_SERIAL_SESSION | CKF_RW_SESSION;

// Opens a session as the extension does, or a read-only one where the module has no other.
CK_RV Open(CK_FUNCTION_LIST* p11, CK_SLOT_ID slot, CK_SESSION_HANDLE* session) {
  const CK_RV result = p11->C_OpenSession(slot, kReadWrite, nullptr, nullptr, session);
  if (result == CKR_OK) return result;
  const bool is_open =
      p11->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, session) == CKR_OK;
  return is_open ? CKR_OK : result;
}

}  // namespace

std::string SlotFacts::reader_name() const {
  const auto* const bytes = reinterpret_cast<const CK_BYTE*>(description.data());
  return Printable(Field({bytes, description.size()}));
}
std::string SlotFacts::label() const { return Printable(Field(token.label)); }
std::string SlotFacts::serial() const { return Printable(Field(token.serialNumber)); }

Module::Module(const std::string& library, const std::string& reader_name)
    : reader_name_(reader_name) {
  void* handle = nullptr;
  CK_SLOT_ID slot = 0;
  result_ = init(library.c_str(), &handle, &p11_, &slot, &session_, reader_name.c_str());
  if (result_ == INIT_ERR_MODULE) throw Failure("it has no C_GetFunctionList");
  if (!is_initialised()) return;
  ListSlots();
  FindSession(slot);
}

bool Module::is_initialised() const {
  return result_ == CKR_OK || result_ == INIT_ERR_NO_SLOTS || result_ == INIT_ERR_SESSION ||
         result_ == INIT_ERR_READER_NAME;
}

void Module::ListSlots() {
  CK_ULONG count = 0;
  CK_SLOT_ID* const ids = list_slots(p11_, CK_FALSE, &count);
  std::vector<std::string> descriptions;
  // What no slot has is an answer that the module did not mean.
  for (CK_ULONG i = 0; ids != nullptr && count <= kMaxSlots && i < count; ++i) {
    SlotFacts slot;
    slot.id = ids[i];
    slot.description.resize(kSlotDescriptionSize);
    slot.info_result = get_reader_name(p11_, slot.id, slot.description.data());
    slot.token_result = p11_->C_GetTokenInfo(slot.id, &slot.token);
    if (slot.token_result != CKR_OK) slot.token = {};
    descriptions.push_back(slot.description);
    slots_.push_back(slot);
  }
  std::free(ids);
  choice_ = ChooseSlot(descriptions, reader_name_);
}

// Judges the slot that the bring-up took, which may be another one than a second look would pick.
void Module::FindSession(CK_SLOT_ID slot) {
  if (slots_.empty()) return;
  if (result_ == CKR_OK) {
    const auto taken =
        std::ranges::find_if(slots_, [&](const SlotFacts& known) { return known.id == slot; });
    if (taken == slots_.end()) return;
    choice_.index = static_cast<std::size_t>(taken - slots_.begin());
    if (taken->has_card()) {
      judged_ = choice_.index + 1;
      return;
    }
    p11_->C_CloseSession(session_);
  }
  if (result_ == INIT_ERR_SESSION) {
    open_result_ =
        p11_->C_OpenSession(slots_[choice_.index].id, kReadWrite, nullptr, nullptr, &session_);
    if (open_result_ == CKR_OK) p11_->C_CloseSession(session_);
  }
  if (IsSlotNamed()) {
    TakeSlot(choice_.index);
    return;
  }
  for (std::size_t i = 0; i < slots_.size() && !TakeSlot(i); ++i) {
  }
}

bool Module::IsSlotNamed() const {
  return choice_.choice == Choice::kMatch || choice_.choice == Choice::kOnlySlot;
}

std::string Module::WhyNoCard() const {
  if (!is_initialised() || judged_ != 0) return "";
  if (slots_.empty()) return "the module shows no slot, as without a reader";
  if (!IsSlotNamed()) {
    const bool has_any = std::ranges::any_of(slots_, &SlotFacts::has_card);
    return has_any ? "" : "no slot has a card, or none that is initialised";
  }
  const SlotFacts& named = slots_[choice_.index];
  if (named.has_card()) return "";
  return "slot " + std::to_string(choice_.index + 1) + ", \"" + named.reader_name() +
         "\", has no card, or none that is initialised";
}

bool Module::TakeSlot(std::size_t index) {
  const bool is_taken =
      slots_[index].has_card() && Open(p11_, slots_[index].id, &session_) == CKR_OK;
  if (is_taken) judged_ = index + 1;
  return is_taken;
}

bool Module::IsCardGone() const {
  CK_TOKEN_INFO token = {};
  return p11_->C_GetTokenInfo(slot().id, &token) != CKR_OK ||
         std::memcmp(token.serialNumber, slot().token.serialNumber, sizeof(token.serialNumber)) !=
             0;
}

CK_RV Module::Finalise() {
  if (judged_ != 0) p11_->C_CloseSession(session_);
  return p11_->C_Finalize(nullptr);
}

Session::Session(const Module& module) : module_(module), handle_(module.session()) {
  CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
  if (Open(module.p11(), module.slot().id, &handle) == CKR_OK) {
    handle_ = handle;
  } else {
    module.p11()->C_FindObjectsFinal(handle_);
  }
}

Session::~Session() {
  if (handle_ != module_.session()) {
    module_.p11()->C_CloseSession(handle_);
  } else {
    module_.p11()->C_FindObjectsFinal(handle_);
  }
}

}  // namespace kelvrin::modulecheck
