// A caller that does what the script says and looks at what it gets.
#ifndef KELVRIN_FUZZ_CALLER_H_
#define KELVRIN_FUZZ_CALLER_H_

#include <p11-kit/pkcs11.h>

#include "fuzz/script.h"

namespace kelvrin::fuzz {

class Caller {
 public:
  Caller(CK_FUNCTION_LIST* p11, Script& script) : p11_(p11), script_(script) {}

  // Calls one function. Ends the process when the adapter breaks its word: a length that cannot be,
  // a buffer that was written although the call failed.
  void CallOne();

  // The extension's own way to a signature or a plaintext.
  void CallRoad();

 private:
  using BytesCall = CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*);
  using FinalCall = CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG*);

  void CallLifecycle();
  void CallSlots();
  void CallSessions();
  void CallObjects();
  void CallNewObjects();
  void CallSearch();
  void CallInit();
  void CallBytes();
  void CallFinal();
  void CallOthers();

  CK_SESSION_HANDLE Session() { return script_.UpTo(5); }
  CK_OBJECT_HANDLE Object();
  CK_MECHANISM Mechanism();
  template <typename Call>
  void Collect(const Call& call);
  template <typename Entry, typename Call>
  void List(const Call& call);

  CK_FUNCTION_LIST* p11_;
  Script& script_;
  Bytes parameter_;
  CK_ECDH1_DERIVE_PARAMS ecdh_ = {};
};

}  // namespace kelvrin::fuzz

#endif  // KELVRIN_FUZZ_CALLER_H_
