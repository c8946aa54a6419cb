// A PKCS#11 module in memory for tests: readers, cards, real keys. By itself it behaves as the
// standard says; a test changes its state, overrides single functions, or gives it a named fault
// (faults.h), and asks what was called.
//
//   auto& module = MemoryModule::Instance();
//   module.Reset();
//   auto& card = module.AddCard({.label = "4711 0815", .serial = "0815", .pin = "123456"});
//   card.AddRsaKey({0x01});
//   module.over.C_Sign = [&](auto... arguments) { return module.standard.C_Sign(arguments...); };
//
// In process CK_FUNCTION_LIST* is module.functions(). As a library (memory_module_so) each file is
// a module of its own, reached by LoadMemoryModule(path); link memory_module to the test as well.
#pragma once

#include <openssl/evp.h>
#include <p11-kit/pkcs11.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/module/functions.h"

namespace kelvrin {

class MemoryModule;
template <typename Function>
struct MemoryEntry;

// An object on a card. Tests may change everything.
struct MemoryObject {
  using Bytes = std::vector<CK_BYTE>;
  // A value as attributes hold it.
  static Bytes Number(CK_ULONG value);
  static Bytes Flag(bool value) { return {static_cast<CK_BYTE>(value ? CK_TRUE : CK_FALSE)}; }
  static Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

  // Whether the attribute is there and is true.
  bool Is(CK_ATTRIBUTE_TYPE type) const;
  // Whether the attribute is there with this value.
  bool Has(CK_ATTRIBUTE_TYPE type, const Bytes& value) const;

  std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes;
  std::shared_ptr<EVP_PKEY> key = nullptr;  // of a private key: what it signs with
  CK_SESSION_HANDLE session = 0;            // the object ends with it; 0: it is the token's
};

struct MemoryCardOptions {
  std::string reader = "";  // put into this reader if it is there and empty; empty: a new one
  std::string label = "4711 0815";
  std::string serial = "0815";
  std::string pin = "123456";
};

struct MemoryKeyOptions {
  std::string label = "Key";         // of the key and of its certificate
  bool certificate = true;           // whether there is one
  bool public_key = true;            // whether there is a public key object
  bool always_authenticate = false;  // each operation wants a login of its own
  // The certificate's extensions by OpenSSL's short names: {"basicConstraints", "CA:TRUE"}.
  std::vector<std::pair<std::string, std::string>> extensions = {};
};

// The handles of what belongs to one key; 0 for what was not asked for.
struct MemoryKey {
  CK_OBJECT_HANDLE certificate = 0;
  CK_OBJECT_HANDLE public_key = 0;
  CK_OBJECT_HANDLE private_key = 0;
};

// A card, whether it is in its reader or not. Tests may change everything, at any time.
class MemoryCard {
 public:
  using Bytes = MemoryObject::Bytes;
  MemoryCard(MemoryModule& module, CK_SLOT_ID slot_id, const MemoryCardOptions& options);

  // Adds a key, its public key and its certificate under this CKA_ID, in the order certificate,
  // public key, private key. The n-th key of a kind that a module's cards get since the last Reset
  // is the n-th of the process, so that cards never share one.
  MemoryKey AddRsaKey(const Bytes& id, const MemoryKeyOptions& options = {});  // RSA-2048
  MemoryKey AddEcKey(const Bytes& id, const MemoryKeyOptions& options = {});   // P-256
  CK_OBJECT_HANDLE AddCertificate(const Bytes& id, const std::string& label, const Bytes& der);
  // Adds an object of any attributes; returns its handle.
  CK_OBJECT_HANDLE Add(MemoryObject object);
  // Gives an object another handle, 0 too.
  void Rehandle(CK_OBJECT_HANDLE object, CK_OBJECT_HANDLE handle);
  // The attribute of the object, made if it is not there. Throws std::out_of_range without object.
  Bytes& Attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    return objects.at(object).attributes[type];
  }
  // The key pair of a private key. Throws std::out_of_range without object.
  EVP_PKEY* KeyOf(CK_OBJECT_HANDLE private_key) const { return objects.at(private_key).key.get(); }

  CK_SLOT_ID slot;
  std::string label;
  std::string serial;
  std::string pin;
  CK_FLAGS flags = CKF_TOKEN_INITIALIZED | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
  // What the token offers and serves; the module knows CKM_ECDSA_SHA1 too, which hashes.
  std::vector<CK_MECHANISM_TYPE> mechanisms = {CKM_RSA_PKCS, CKM_RSA_X_509, CKM_ECDSA,
                                               CKM_ECDH1_DERIVE};
  std::map<CK_OBJECT_HANDLE, MemoryObject> objects;  // in the order in which searches find them
  bool is_present = true;                            // see MemoryModule::Pull
  bool is_logged_in = false;
  int tries = 3;  // left to the PIN; at 0 it is locked

 private:
  MemoryKey AddKey(std::shared_ptr<EVP_PKEY> key, const Bytes& id, const MemoryKeyOptions& options);
  MemoryModule& module_;
};

struct MemoryReader {
  CK_SLOT_ID id = 0;
  std::string description;
  char padding = ' ';  // of the description
};

struct MemoryOperation {
  bool is_signature = false;
  CK_MECHANISM_TYPE mechanism = 0;
  CK_OBJECT_HANDLE key = 0;
  bool is_authenticated = false;  // by a login of its own
};

struct MemorySession {
  CK_SLOT_ID slot = 0;
  CK_FLAGS flags = 0;
  std::optional<std::deque<CK_OBJECT_HANDLE>> search = {};  // what is still to be found
  std::optional<MemoryOperation> operation = {};
};

// One function for each entry of the function list; an empty one leaves the standard behaviour.
struct MemoryEntries {
// NOLINTNEXTLINE(bugprone-macro-parentheses): the name of a member
#define KELVRIN_MEMORY_ENTRY(name) std::function<std::remove_pointer_t<CK_##name>> name;
  SCRIPTED_FUNCTIONS(KELVRIN_MEMORY_ENTRY)
#undef KELVRIN_MEMORY_ENTRY
};

// Calls may come on several threads only one at a time, as every module's that was initialised
// without locks; `overlaps` counts those that did not.
class MemoryModule {
 public:
  using Bytes = MemoryObject::Bytes;

  // The module of this process or, inside the library, of the library.
  static MemoryModule& Instance();
  MemoryModule(const MemoryModule&) = delete;
  MemoryModule& operator=(const MemoryModule&) = delete;

  // The function list, the same from the first call to the end of the process.
  CK_FUNCTION_LIST* functions() { return &list_; }

  // Not initialised, no readers, nothing overridden, nothing recorded.
  void Reset();

  // --- readers and cards ---

  // Adds an empty reader; returns its slot.
  CK_SLOT_ID AddReader(const std::string& description);
  // Makes a card and puts it in: into the empty reader of that name, else into a new one. The card
  // lives until Reset.
  MemoryCard& AddCard(const MemoryCardOptions& options = {});
  // Takes the card out: its login and, unless keeps_sessions, its sessions are gone.
  void Pull(MemoryCard& card);
  // Puts it back, in place of a card that is in its reader now.
  void Insert(MemoryCard& card);
  MemoryReader* FindReader(CK_SLOT_ID slot);
  // The card in the reader; null when there is none.
  MemoryCard* FindCard(CK_SLOT_ID slot);
  MemorySession* FindSession(CK_SESSION_HANDLE session);
  // The object with this handle, if the card of the session is in and shows it now; null otherwise.
  MemoryObject* FindObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);
  // Closes a session, with its objects, and with the login when it was the card's last.
  void EndSession(CK_SESSION_HANDLE session);

  // --- what the functions do ---

  // Called before each call, with its name and outside of all locks, on the caller's thread: a
  // result other than CKR_OK is given in place of the call. It may pull a card, move a clock,
  // block.
  std::function<CK_RV(std::string_view function)> before;
  // Called in place of the standard behaviour, which they may call on to.
  MemoryEntries over;
  // The standard behaviour of each function; nothing is recorded here. What the module does not do
  // answers CKR_FUNCTION_NOT_SUPPORTED.
  const CK_FUNCTION_LIST standard;
  // The next call of `function` that has not been told its result answers `result` and does
  // nothing; queues up.
  void FailNext(const std::string& function, CK_RV result);
  // The n-th call from now on (1 is the next), of whatever function, and all calls after it answer
  // `result` and do nothing, until Heal.
  void FailFrom(std::size_t n, CK_RV result);
  void Heal();

  // --- what was called ---

  // The names of the functions called since the last ForgetCalls, oldest first.
  std::vector<std::string> Calls() const;
  // How often this function was called since then.
  std::size_t Count(std::string_view function) const;
  // How many calls there were since then.
  std::size_t Count() const;
  void ForgetCalls();
  bool is_recording = true;  // of benchmarks: without it nothing is counted nor told to fail

  // --- state; changed by tests as they like ---

  bool is_initialized = false;
  std::optional<CK_C_INITIALIZE_ARGS> initialize_arguments;  // of the last C_Initialize; none: NULL
  std::string reserved;                                      // its pReserved as text
  std::vector<MemoryReader> readers;
  std::deque<MemoryCard> cards;
  std::map<CK_SESSION_HANDLE, MemorySession> sessions;
  bool keeps_sessions = false;         // over a removal; calls that need the card fail with
                                       // CKR_DEVICE_REMOVED until a card is in again
  CK_SLOT_ID next_slot = 7;            // what the next reader,
  CK_SESSION_HANDLE next_session = 1;  // session
  CK_OBJECT_HANDLE next_object = 1;    // and object gets
  int rsa_keys = 0;                    // given out since Reset
  int ec_keys = 0;
  std::atomic<int> overlaps = 0;  // calls that found another one under way

 private:
  template <typename>
  friend struct MemoryEntry;
  MemoryModule();
  CK_RV Enter(const char* function);

  CK_FUNCTION_LIST list_;
  std::atomic<int> inside_ = 0;
  mutable std::mutex mutex_;  // of what follows
  std::vector<const char*> calls_;
  std::map<std::string, std::deque<CK_RV>, std::less<>> failures_;
  std::optional<std::pair<std::size_t, CK_RV>> failing_from_;
};

// The module of a library, which stays loaded. Throws std::runtime_error.
MemoryModule& LoadMemoryModule(const std::filesystem::path& library);

}  // namespace kelvrin
