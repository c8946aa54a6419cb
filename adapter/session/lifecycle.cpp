// Bringing the adapter and the module behind it up and down.
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "adapter/config/setup_error.h"
#include "adapter/session/adapter.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_VERSION kCryptokiVersion = {2, 40};

// Whether the module wants to be told of locks before it is initialised.
bool WantsLocking(CK_RV result) {
  return result == CKR_ARGUMENTS_BAD || result == CKR_CANT_LOCK ||
         result == CKR_NEED_TO_CREATE_THREADS;
}

}  // namespace

CK_RV Adapter::Initialize(bool is_setup) {
  CK_RV result = CKR_CRYPTOKI_ALREADY_INITIALIZED;
  if (!backend_) {
    try {
      backend_ = std::make_unique<Backend>(open_());
    } catch (const SetupError& error) {
      std::fprintf(stderr, "Kelvrin adapter: %s\n", error.what());
      return error.result();
    }
    result = InitializeInner();
    if (result != CKR_OK) {
      backend_.reset();
      return result;
    }
  }
  slots_ = std::make_unique<Slots>(backend_->functions, backend_->config,
                                   is_setup ? std::nullopt : meant_);
  return result;
}

// One call at a time reaches the module, which therefore needs no locks: some wait for ever on
// their own when a card is pulled in the middle of a call.
CK_RV Adapter::InitializeInner() {
  const CK_FUNCTION_LIST& inner = backend_->functions;
  if (unfinished_ && unfinished_->C_Finalize(nullptr) == CKR_OK) unfinished_.reset();
  CK_C_INITIALIZE_ARGS arguments = {};
  std::string& reserved = backend_->config.reserved;
  if (!reserved.empty()) arguments.pReserved = reserved.data();
  CK_RV result = inner.C_Initialize(reserved.empty() ? nullptr : &arguments);
  if (WantsLocking(result)) {
    arguments.flags = CKF_OS_LOCKING_OK;
    result = inner.C_Initialize(&arguments);
  }
  const bool was_up = result == CKR_CRYPTOKI_ALREADY_INITIALIZED;
  if (result != CKR_OK && !was_up) return result;
  // Another user of the module has initialised it and finalises it, unless it was this adapter.
  is_ours_ = !was_up || unfinished_;
  unfinished_.reset();
  return CKR_OK;
}

CK_RV Adapter::Finalize() {
  if (!backend_) return CKR_CRYPTOKI_NOT_INITIALIZED;
  const CK_FUNCTION_LIST& inner = backend_->functions;
  for (auto& [handle, session] : sessions_) {
    if (session.inner == CK_INVALID_HANDLE) continue;
    TokenLife& life = *session.token;
    // A login that outlived this would let a later insertion sign without a PIN.
    if (is_ours_ && life.has_login && inner.C_Logout(session.inner) == CKR_OK) {
      life.has_login = false;
    }
    session.operation.Close();
    inner.C_CloseSession(session.inner);
  }
  const CK_RV result = is_ours_ ? inner.C_Finalize(nullptr) : CKR_OK;
  if (result != CKR_OK && result != CKR_CRYPTOKI_NOT_INITIALIZED) unfinished_ = inner;
  sessions_.clear();
  slots_.reset();
  backend_.reset();
  return result;
}

CK_RV Adapter::GetInfo(CK_INFO* info) const {
  if (!backend_) return CKR_CRYPTOKI_NOT_INITIALIZED;
  CK_INFO answer = {};
  const CK_RV result = backend_->functions.C_GetInfo(&answer);
  if (result != CKR_OK) return result;
  answer.cryptokiVersion = kCryptokiVersion;
  *info = answer;
  return CKR_OK;
}

}  // namespace kelvrin::adapter
