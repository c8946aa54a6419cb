// A caller that does what the script says and looks at what it gets.
#pragma once

#include <p11-kit/pkcs11.h>

#include "adapter/session/adapter.h"
#include "fuzz/script.h"

namespace kelvrin::fuzz {

class Caller {
 public:
  Caller(adapter::Adapter& adapter, Script& script) : adapter_(adapter), script_(script) {}

  // Calls one function, as the extension and modulecheck call it. Ends the process when the adapter
  // breaks its word: a length that cannot be, a buffer that was written although the call failed.
  void CallOne();

  // The extension's own way from the bring-up to a signature or a plaintext. Without it few inputs
  // get as far as a result.
  void CallRoad();

 private:
  void CallSlots();
  void CallSessions();
  void ReadAttributes();
  void Search();
  void Begin();
  void Run();
  void Derive();

  // The one that was opened last, mostly.
  CK_SESSION_HANDLE Session() { return script_.Byte() < 0xc0 ? session_ : script_.UpTo(5); }
  CK_OBJECT_HANDLE Object();
  CK_MECHANISM Mechanism();
  template <typename Entry, typename Call>
  void List(const Call& call);

  adapter::Adapter& adapter_;
  Script& script_;
  CK_SESSION_HANDLE session_ = 1;
};

}  // namespace kelvrin::fuzz
