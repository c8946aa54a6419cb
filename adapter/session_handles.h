// Whose the module's session handles are.
#ifndef KELVRIN_ADAPTER_SESSION_HANDLES_H_
#define KELVRIN_ADAPTER_SESSION_HANDLES_H_

#include <p11-kit/pkcs11.h>

#include <set>
#include <unordered_map>
#include <utility>

namespace kelvrin::adapter {

class HeldSession;

// All sessions that adapters have opened on one module. A module that loses its sessions, as when
// the card is taken out, may give their handles out again: who held one before must not use or
// close what is somebody else's now. Not synchronised.
class SessionHandles {
 public:
  // How often a holder has lost its session to another so far.
  unsigned losses() const { return losses_; }

  // Whoever holds the handle holds none from here on: the module has just given it out anew.
  void Lose(CK_SESSION_HANDLE handle);

  // The slots of the sessions that were lost to others since this was last asked. Whoever opens a
  // session asks before anybody else gets a turn.
  std::set<CK_SLOT_ID> TakeSlotsOfLosses() { return std::exchange(slots_of_losses_, {}); }

  bool HasLosses() const { return !slots_of_losses_.empty(); }

  // Whether anybody holds a session on the slot.
  bool AreOn(CK_SLOT_ID slot) const;

  // Takes all sessions from their holders: the module has been brought up anew.
  void LoseAll();

 private:
  friend class HeldSession;

  std::unordered_map<CK_SESSION_HANDLE, HeldSession*> holders_;
  unsigned losses_ = 0;
  std::set<CK_SLOT_ID> slots_of_losses_;
};

// One session or none. Never closes it: it may be gone with the module.
class HeldSession {
 public:
  // For a session on the slot. `all` must outlive the object.
  HeldSession(SessionHandles& all, CK_SLOT_ID slot) : all_(&all), slot_(slot) {}
  ~HeldSession() { Release(); }
  HeldSession(const HeldSession&) = delete;
  HeldSession& operator=(const HeldSession&) = delete;

  // Holds, in place of the one before, a session that the module has opened just now. Whoever held
  // one of that handle holds none from here on.
  void Take(CK_SESSION_HANDLE handle);

  // Holds none.
  void Release();

  bool is_held() const { return handle_ != CK_INVALID_HANDLE; }
  // CK_INVALID_HANDLE when there is none, or none any more.
  CK_SESSION_HANDLE handle() const { return handle_; }

 private:
  friend class SessionHandles;

  SessionHandles* all_;
  CK_SLOT_ID slot_;
  CK_SESSION_HANDLE handle_ = CK_INVALID_HANDLE;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SESSION_HANDLES_H_
