#include "modulecheck/module.h"

#include <cstdlib>

#include "p11/bringup.h"
#include "modulecheck/failure.h"

namespace kelvrin::modulecheck {
namespace {

constexpr CK_FLAGS kReadWrite = CKF_SERIAL_SESSION | CKF_RW_SESSION;
// More slots than any module has.
constexpr CK_ULONG kMaxSlots = 1024;

}  // namespace

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

void Module::FindSession(CK_SLOT_ID slot) {
  if (result_ == CKR_OK) {
    for (std::size_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i].id == slot) judged_ = i + 1;
    }
    if (judged_ != 0) return;
  }
  if (result_ == INIT_ERR_SESSION && !slots_.empty()) {
    open_result_ =
        p11_->C_OpenSession(slots_[choice_.index].id, kReadWrite, nullptr, nullptr, &session_);
  }
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    if (!slots_[i].is_initialised() ||
        p11_->C_OpenSession(slots_[i].id, kReadWrite, nullptr, nullptr, &session_) != CKR_OK) {
      continue;
    }
    judged_ = i + 1;
    return;
  }
}

ProbeSession::ProbeSession(const Module& module) : module_(module), handle_(module.session()) {
  CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
  if (module.p11()->C_OpenSession(module.slot(), kReadWrite, nullptr, nullptr, &handle) == CKR_OK) {
    handle_ = handle;
  } else {
    module.p11()->C_FindObjectsFinal(handle_);
  }
}

ProbeSession::~ProbeSession() {
  if (handle_ != module_.session()) {
    module_.p11()->C_CloseSession(handle_);
  } else {
    module_.p11()->C_FindObjectsFinal(handle_);
  }
}

}  // namespace kelvrin::modulecheck
