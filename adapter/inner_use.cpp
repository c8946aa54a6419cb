#include "adapter/inner_use.h"

namespace kelvrin::adapter {

bool IsInitialised(const CK_FUNCTION_LIST& inner) {
  CK_INFO ignored = {};
  return inner.C_GetInfo(&ignored) != CKR_CRYPTOKI_NOT_INITIALIZED;
}

CK_RV InnerUse::Join(const CK_FUNCTION_LIST& inner, const std::function<CK_RV()>& initialise) {
  Leave();
  ModuleUse& use = (*uses_)[reinterpret_cast<const void*>(inner.C_Initialize)];
  if (use.users == 0 || !IsInitialised(inner)) {
    const CK_RV result = initialise();
    if (result != CKR_OK && result != CKR_CRYPTOKI_ALREADY_INITIALIZED) return result;
    use.users = 0;
    ++use.generation;
    use.is_ours = result == CKR_OK;
  }
  ++use.users;
  use_ = &use;
  generation_ = use.generation;
  return CKR_OK;
}

bool InnerUse::Leave() {
  const bool is_last = IsCurrent() && --use_->users == 0 && use_->is_ours;
  use_ = nullptr;
  return is_last;
}

}  // namespace kelvrin::adapter
