// A small PKCS#11 module in memory for the adapter's unit tests. It is as strict as real ones are:
// an open search or an operation that failed refuses the next. Each call is recorded and can be
// told to fail.
#ifndef KELVRIN_ADAPTER_TESTING_FAKE_MODULE_H_
#define KELVRIN_ADAPTER_TESTING_FAKE_MODULE_H_

#include <p11-kit/pkcs11.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvrin::adapter {

class FakeModule {
 public:
  using Bytes = std::vector<CK_BYTE>;
  using Object = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

  struct Slot {
    CK_SLOT_ID id = 0;
    std::string description = "Fake reader";
    std::string label = "Fake token";
    std::string serial = "0001";
    CK_FLAGS token_flags = CKF_TOKEN_INITIALIZED;
    char padding = ' ';
    std::vector<CK_MECHANISM_TYPE> mechanisms = {CKM_RSA_X_509, CKM_RSA_PKCS, CKM_ECDSA,
                                                 CKM_ECDH1_DERIVE};
  };

  struct Session {
    CK_SLOT_ID slot = 0;
    CK_FLAGS flags = 0;
    bool searching = false;
    std::deque<CK_OBJECT_HANDLE> found;
    std::optional<CK_MECHANISM_TYPE> operation;
  };

  // What an operation was given, and how it answers: the bytes to write, or a result.
  using Operation =
      std::function<CK_RV(CK_MECHANISM_TYPE mechanism, const Bytes& input, Bytes* output)>;

  // There is one at a time.
  FakeModule();
  ~FakeModule();
  FakeModule(const FakeModule&) = delete;
  FakeModule& operator=(const FakeModule&) = delete;

  // Entries that the module does not have answer CKR_FUNCTION_NOT_SUPPORTED.
  static CK_FUNCTION_LIST functions();

  // Makes the next call of `function` answer `result` without doing anything.
  void FailNext(const std::string& function, CK_RV result) {
    failures_[function].push_back(result);
  }

  // How often `function` was called.
  std::size_t Calls(const std::string& function) const;

  // Forgets its sessions and the login with them; the next session gets the handle `next`.
  void LoseSessions(CK_SESSION_HANDLE next);

  // Adds an object; returns its handle.
  CK_OBJECT_HANDLE Add(Object object);

  static Bytes Number(CK_ULONG value);
  static Bytes Flag(bool value) { return {static_cast<CK_BYTE>(value ? CK_TRUE : CK_FALSE)}; }

  // What the module is and does; tests set it as they need.
  bool initialized = false;
  std::vector<Slot> slots = {{.id = 7}};
  std::map<CK_OBJECT_HANDLE, Object> objects;
  std::map<CK_SESSION_HANDLE, Session> sessions;
  std::size_t session_limit = 1000;
  bool has_user = false;                                    // logged in
  CK_ULONG unreadable_length = CK_UNAVAILABLE_INFORMATION;  // length after a failed read
  Operation sign;
  Operation decrypt;
  std::function<CK_RV(const CK_ECDH1_DERIVE_PARAMS&)> derive;
  std::optional<CK_OBJECT_HANDLE> derive_key;  // the only one that C_DeriveKey knows; nothing: all
  bool gives_no_handle = false;                // C_DeriveKey succeeds without one
  CK_ULONG claimed_excess = 0;  // added to every length of a result and to every count

  // What it was last called with.
  std::optional<CK_C_INITIALIZE_ARGS> initialize_arguments;  // nothing: a null pointer
  std::string reserved;
  std::vector<CK_ATTRIBUTE_TYPE> derive_template;
  CK_ULONG derive_length = 0;
  bool has_derive_place = false;  // for the new handle
  Bytes derive_point;
  CK_SESSION_HANDLE login_session = 0;
  CK_USER_TYPE login_user = 0;
  std::optional<std::string> login_pin;   // nothing: a null pointer
  const CK_BYTE* login_memory = nullptr;  // where that PIN is
  CK_OBJECT_HANDLE operation_key = 0;

  // Records a call; the result that it is to fail with, or CKR_OK.
  CK_RV Enter(const std::string& function);
  Slot* FindSlot(CK_SLOT_ID id);
  CK_RV Finish(const Operation& action, CK_SESSION_HANDLE session, CK_BYTE* input, CK_ULONG size,
               CK_BYTE* output, CK_ULONG* output_size);
  CK_RV Begin(CK_SESSION_HANDLE session, const CK_MECHANISM* mechanism);
  CK_SESSION_HANDLE next_session = 100;

  // The one that there is.
  static FakeModule* current;

 private:
  static void AddTokenFunctions(CK_FUNCTION_LIST* list);
  static void AddObjectFunctions(CK_FUNCTION_LIST* list);

  std::map<std::string, std::deque<CK_RV>> failures_;
  std::map<std::string, std::size_t> calls_;
  CK_OBJECT_HANDLE next_object_ = 1000;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_FAKE_MODULE_H_
