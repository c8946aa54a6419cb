// Counting who has initialised the module behind.
#ifndef KELVRIN_ADAPTER_INNER_USE_H_
#define KELVRIN_ADAPTER_INNER_USE_H_

#include <p11-kit/pkcs11.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "adapter/context_login.h"
#include "adapter/session_handles.h"

namespace kelvrin::adapter {

// One module's users in this process.
struct ModuleUse {
  unsigned users = 0;           // adapters that are initialised over it
  unsigned generation = 0;      // how often it was brought up; what is older is gone
  bool is_ours = false;         // brought up by an adapter, and so finalised by the last one
  unsigned object_changes = 0;  // what any of them did to the objects, or to who sees them
  SessionHandles sessions;      // that they have opened
  // The slots that something has happened in, each under the number of its last event.
  std::map<unsigned, CK_SLOT_ID> events;
  unsigned last_event = 0;
  // The PINs of the tokens in the slots, owned by those who use them.
  std::map<CK_SLOT_ID, std::weak_ptr<TokenPin>> pins;
};

// By the address of the module's C_Initialize.
using ModuleUses = std::map<const void*, ModuleUse>;

// Whether the module is initialised, as far as it tells.
bool IsInitialised(const CK_FUNCTION_LIST& inner);

// One adapter's part in the counts: the first to join initialises the module, the last to leave is
// told to finalise it. A module that somebody else has initialised is used and never finalised.
// Not synchronised: whoever shares the counts calls under one lock.
class InnerUse {
 public:
  // Counts in `uses`, which outlives the object, or alone when that is null.
  explicit InnerUse(ModuleUses* uses) : uses_(uses != nullptr ? uses : &alone_) {}
  InnerUse(const InnerUse&) = delete;
  InnerUse& operator=(const InnerUse&) = delete;

  // Joins the users of `inner`. Calls `initialise`, which calls the module's C_Initialize, when
  // there are none or the module has been finalised behind their back; all others have lost it
  // then. Returns what `initialise` did, with CKR_OK for CKR_CRYPTOKI_ALREADY_INITIALIZED; after
  // any other failure nothing is joined.
  CK_RV Join(const CK_FUNCTION_LIST& inner, const std::function<CK_RV()>& initialise);

  // Whether it has joined and nobody has brought the module up anew since: sessions and objects
  // from before that are gone, and their handles may name somebody else's.
  bool IsCurrent() const { return use_ != nullptr && use_->generation == generation_; }

  // Whether nobody else counts on the module that was joined.
  bool IsAlone() const { return IsCurrent() && use_->is_ours && use_->users == 1; }

  // Leaves; true when the module is to be finalised now.
  bool Leave();

  // The rest is for those who have joined.

  // The sessions that all who use the module have opened. Stays valid as long as the counts.
  SessionHandles& sessions() { return use_->sessions; }

  // The PIN of the token in the slot, the same for all who use the module: so is the login.
  std::shared_ptr<TokenPin> PinOf(CK_SLOT_ID slot);

  // Wipes it, whoever has it.
  void WipePinOf(CK_SLOT_ID slot);

  // Keeps a slot event for all who use the module, since the module tells each but once. Of each
  // slot the last one is kept.
  void NoteEvent(CK_SLOT_ID slot);

  // The slot of the next event that this user has not been told yet; nothing when there is none.
  std::optional<CK_SLOT_ID> NextEvent();

  // Tells the others that objects may be others now, or others may be seen.
  void NoteObjectChange();

  // Whether one of the others has noted that since this was last asked.
  bool HaveOthersChangedObjects();

 private:
  ModuleUses alone_;
  ModuleUses* uses_;
  ModuleUse* use_ = nullptr;
  unsigned generation_ = 0;
  unsigned object_changes_ = 0;  // own ones, and others' as far as they are known
  unsigned events_told_ = 0;     // the number of the last one
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_INNER_USE_H_
