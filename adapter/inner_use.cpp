#include "adapter/inner_use.h"

#include <cstddef>

namespace kelvrin::adapter {

bool IsInitialised(const CK_FUNCTION_LIST& inner) {
  CK_INFO ignored = {};
  return inner.C_GetInfo(&ignored) != CKR_CRYPTOKI_NOT_INITIALIZED;
}

namespace {

// No module has more slots; one that says so has its oldest events forgotten.
constexpr std::size_t kMaxEvents = 4096;

// What the users of a module had from it before it was brought up anew.
void LoseEverything(ModuleUse* use) {
  use->sessions.LoseAll();
  for (const auto& [slot, pin] : use->pins) {
    if (const auto kept = pin.lock()) kept->Wipe();
  }
  use->pins.clear();
  use->events.clear();
}

}  // namespace

CK_RV InnerUse::Join(const CK_FUNCTION_LIST& inner, const std::function<CK_RV()>& initialise) {
  Leave();
  ModuleUse& use = (*uses_)[reinterpret_cast<const void*>(inner.C_Initialize)];
  if (use.users == 0 || !IsInitialised(inner)) {
    const CK_RV result = initialise();
    if (result != CKR_OK && result != CKR_CRYPTOKI_ALREADY_INITIALIZED) return result;
    use.users = 0;
    ++use.generation;
    LoseEverything(&use);
    use.is_ours = result == CKR_OK;
  }
  ++use.users;
  use_ = &use;
  generation_ = use.generation;
  object_changes_ = use.object_changes;
  events_told_ = use.last_event;
  return CKR_OK;
}

bool InnerUse::Leave() {
  const bool is_last = IsCurrent() && --use_->users == 0 && use_->is_ours;
  use_ = nullptr;
  return is_last;
}

std::shared_ptr<TokenPin> InnerUse::PinOf(CK_SLOT_ID slot) {
  std::weak_ptr<TokenPin>& known = use_->pins[slot];
  std::shared_ptr<TokenPin> pin = known.lock();
  if (pin == nullptr) {
    pin = std::make_shared<TokenPin>();
    known = pin;
  }
  return pin;
}

void InnerUse::WipePinOf(CK_SLOT_ID slot) {
  const auto known = use_->pins.find(slot);
  if (known == use_->pins.end()) return;
  if (const auto pin = known->second.lock()) pin->Wipe();
}

void InnerUse::NoteEvent(CK_SLOT_ID slot) {
  std::erase_if(use_->events, [&](const auto& event) { return event.second == slot; });
  if (use_->events.size() == kMaxEvents) use_->events.erase(use_->events.begin());
  use_->events.emplace(++use_->last_event, slot);
}

std::optional<CK_SLOT_ID> InnerUse::NextEvent() {
  const auto next = use_->events.upper_bound(events_told_);
  if (next == use_->events.end()) return std::nullopt;
  events_told_ = next->first;
  return next->second;
}

void InnerUse::NoteObjectChange() {
  if (!IsCurrent()) return;
  ++use_->object_changes;
  ++object_changes_;
}

bool InnerUse::HaveOthersChangedObjects() {
  if (!IsCurrent() || object_changes_ == use_->object_changes) return false;
  object_changes_ = use_->object_changes;
  return true;
}

}  // namespace kelvrin::adapter
