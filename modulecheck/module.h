// The module that is looked at, brought up as the extension does it.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

#include "modulecheck/slot_choice.h"

namespace kelvrin::modulecheck {

// A call that is needed and that the module refused.
struct CallFailed {
  std::string call;
  CK_RV result;
};

// A slot and its token.
struct SlotFacts {
  CK_SLOT_ID id = 0;
  CK_RV info_result = CKR_OK;   // of C_GetSlotInfo
  std::string description;      // 64 bytes, as they are
  CK_RV token_result = CKR_OK;  // of C_GetTokenInfo
  CK_TOKEN_INFO token = {};     // all zero when that failed

  bool has_card() const {
    return token_result == CKR_OK && (token.flags & CKF_TOKEN_INITIALIZED) != 0;
  }
  std::string reader_name() const;  // the description without its padding, printable
  std::string label() const;        // the token's, printable
  std::string serial() const;
};

// Lives as long as the process: nothing is unloaded.
class Module {
 public:
  // Loads the library, initialises it with C_Initialize(NULL), lists the slots and opens a session
  // on the one that the extension picks. Where the extension gets no session, and no slot has the
  // reader name that was given, the first slot with a card is looked at instead. Throws Failure
  // when the library cannot be loaded.
  Module(const std::string& library, const std::string& reader_name);
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  CK_FUNCTION_LIST* p11() const { return p11_; }
  const std::string& reader_name() const { return reader_name_; }

  // What the extension's bring-up answered: CKR_OK, a failure of C_Initialize, or one of its own.
  CK_RV bring_up_result() const { return result_; }
  // Whether C_Initialize worked.
  bool is_initialised() const;

  const std::vector<SlotFacts>& slots() const { return slots_; }
  // What the extension picks among them.
  const SlotChoice& choice() const { return choice_; }
  // The number of the slot that is judged and has the session, from 1; 0 when none has.
  std::size_t judged() const { return judged_; }
  const SlotFacts& slot() const { return slots_[judged_ - 1]; }
  // Stays open: as long as it is, so is the login.
  CK_SESSION_HANDLE session() const { return session_; }
  // Result of the C_OpenSession that the extension would make; CKR_OK when it picks no slot.
  CK_RV open_result() const { return open_result_; }

  // Why there is no card to be judged, for the user; empty when there is one, or when the module
  // does not come up.
  std::string WhyNoCard() const;

  // Whether the card that is judged is in its reader no more, or another one is.
  bool IsCardGone() const;

  // Closes all sessions, which destroys what was made in them, and finalises the module. Returns
  // C_Finalize's result.
  CK_RV Finalise();

 private:
  void ListSlots();
  void FindSession(CK_SLOT_ID slot);
  bool IsSlotNamed() const;
  bool TakeSlot(std::size_t index);

  std::string reader_name_;
  CK_FUNCTION_LIST* p11_ = nullptr;
  CK_RV result_;
  std::vector<SlotFacts> slots_;
  SlotChoice choice_;
  std::size_t judged_ = 0;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  CK_RV open_result_ = CKR_OK;
};

// A session for one probe, so that nothing that it leaves behind meets the next one. Where the
// token has no session left it is the module's own.
class Session {
 public:
  explicit Session(const Module& module);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  CK_SESSION_HANDLE handle() const { return handle_; }
  CK_FUNCTION_LIST* p11() const { return module_.p11(); }

 private:
  const Module& module_;
  CK_SESSION_HANDLE handle_;
};

}  // namespace kelvrin::modulecheck
