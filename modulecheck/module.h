// The module that is looked at, brought up as the extension does it.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

#include "modulecheck/slot_choice.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {

// A slot and its token.
struct SlotFacts {
  CK_SLOT_ID id = 0;
  CK_RV info_result = CKR_OK;   // of C_GetSlotInfo
  std::string description;      // 64 bytes, as they are
  CK_RV token_result = CKR_OK;  // of C_GetTokenInfo
  CK_TOKEN_INFO token = {};     // all zero when that failed

  bool is_initialised() const {
    return token_result == CKR_OK && (token.flags & CKF_TOKEN_INITIALIZED) != 0;
  }
};

// Lives as long as the process: nothing is unloaded, and finalised only by Finalise.
class Module {
 public:
  // Loads the library, initialises it with C_Initialize(NULL), lists the slots and opens a session
  // on the one that the extension picks. Where the extension gets no session, the first slot with
  // an initialised token is looked at instead. Throws Failure when the library cannot be loaded.
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
  // The number of the slot that has the session, from 1; 0 when none has.
  std::size_t judged() const { return judged_; }
  // That slot.
  CK_SLOT_ID slot() const { return slots_[judged_ - 1].id; }
  // Stays open: as long as it is, so is the login.
  CK_SESSION_HANDLE session() const { return session_; }
  // Result of the C_OpenSession that the extension would make; CKR_OK when it picks no slot.
  CK_RV open_result() const { return open_result_; }

  CK_RV Finalise() { return p11_->C_Finalize(nullptr); }

 private:
  void ListSlots();
  void FindSession(CK_SLOT_ID slot);

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
class ProbeSession {
 public:
  explicit ProbeSession(const Module& module);
  ~ProbeSession();
  ProbeSession(const ProbeSession&) = delete;
  ProbeSession& operator=(const ProbeSession&) = delete;

  CK_SESSION_HANDLE handle() const { return handle_; }

 private:
  const Module& module_;
  CK_SESSION_HANDLE handle_;
};

}  // namespace kelvrin::modulecheck
