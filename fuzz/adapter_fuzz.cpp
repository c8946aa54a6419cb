// The fuzzer's target: a hostile module behind the adapter, and a caller in front of it.
#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <cstdint>

#include "fuzz/caller.h"
#include "fuzz/entry_for_fuzzing.h"
#include "fuzz/script.h"

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int kMostCalls = 40;
  kelvrin::fuzz::Script script(data, size);
  CK_FUNCTION_LIST* p11 = nullptr;
  if (C_GetFunctionList(&p11) != CKR_OK) return 0;
  kelvrin::fuzz::Caller caller(p11, script);
  caller.CallRoad();
  for (int i = 0; i < kMostCalls && !script.IsOver(); ++i) caller.CallOne();
  for (int copy = 0; copy < kelvrin::fuzz::kCopies; ++copy) {
    p11->C_Finalize(nullptr);
    kelvrin::fuzz::SwitchCopy();
  }
  kelvrin::fuzz::ForgetAdapters();
  return 0;
}
