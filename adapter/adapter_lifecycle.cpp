// Initialising and finalising the adapter and the module behind it.
#include <cstdio>
#include <utility>

#include "adapter/adapter.h"
#include "adapter/setup_error.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_VERSION kCryptokiVersion = {2, 40};

// The standard's conditions for C_Initialize. The adapter locks by the system's means whatever the
// caller offers.
bool AreValid(const CK_C_INITIALIZE_ARGS* arguments) {
  if (arguments == nullptr) return true;
  const int functions = (arguments->CreateMutex != nullptr) + (arguments->DestroyMutex != nullptr) +
                        (arguments->LockMutex != nullptr) + (arguments->UnlockMutex != nullptr);
  return arguments->pReserved == nullptr && (functions == 0 || functions == 4);
}

bool RefusesLocking(CK_RV result) {
  return result == CKR_CANT_LOCK || result == CKR_NEED_TO_CREATE_THREADS;
}

}  // namespace

CK_RV Adapter::Initialize(CK_C_INITIALIZE_ARGS* arguments) {
  if (backend_ && IsInitialised(backend_->functions)) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  // The login went with the module, for all who used it.
  for (auto& [slot, token] : tokens_) token.login.Wipe();
  Reset();
  std::unique_ptr<Backend> backend;
  try {
    backend = std::make_unique<Backend>(open_());
  } catch (const SetupError& error) {
    std::fprintf(stderr, "Kelvrin adapter: %s\n", error.what());
    return error.result();
  }
  // Without the rule the module judges them.
  if (backend->config.rules.Has(Rule::kInitialisation) && !AreValid(arguments)) {
    return CKR_ARGUMENTS_BAD;
  }
  const CK_RV result =
      use_.Join(backend->functions, [&] { return InitializeInner(*backend, arguments); });
  if (result != CKR_OK) return result;
  backend_ = std::move(backend);
  slots_ = std::make_unique<Slots>(backend_->functions, backend_->config,
                                   [this](CK_SLOT_ID slot) { return HasSessionsOn(slot); });
  return CKR_OK;
}

CK_RV Adapter::InitializeInner(Backend& backend, CK_C_INITIALIZE_ARGS* caller) {
  if (!backend.config.rules.Has(Rule::kInitialisation)) {
    return backend.functions.C_Initialize(caller);
  }
  CK_C_INITIALIZE_ARGS arguments = {};
  if (!backend.config.reserved.empty()) arguments.pReserved = backend.config.reserved.data();
  CK_FLAGS threads = caller != nullptr ? caller->flags & CKF_LIBRARY_CANT_CREATE_OS_THREADS : 0;
  arguments.flags = CKF_OS_LOCKING_OK | threads;
  CK_RV result = backend.functions.C_Initialize(&arguments);
  if (result == CKR_NEED_TO_CREATE_THREADS && threads != 0) {
    threads = 0;
    arguments.flags = CKF_OS_LOCKING_OK;
    result = backend.functions.C_Initialize(&arguments);
  }
  if (!RefusesLocking(result)) return result;
  // Without locking; only what is left to say still needs a record to travel in.
  arguments.flags = threads;
  const bool says_something = threads != 0 || arguments.pReserved != nullptr;
  return backend.functions.C_Initialize(says_something ? &arguments : nullptr);
}

CK_RV Adapter::Finalize(const void* reserved) {
  if (!backend_) return CKR_CRYPTOKI_NOT_INITIALIZED;
  if (reserved != nullptr) return CKR_ARGUMENTS_BAD;
  CK_RV result = CKR_OK;
  if (use_.IsAlone()) {
    result = backend_->functions.C_Finalize(nullptr);
  } else {
    CloseSessions();
  }
  Reset();
  return result;
}

void Adapter::CloseSessions() {
  for (auto& [handle, session] : sessions_) {
    session.operation.Close();
    backend_->functions.C_CloseSession(handle);
  }
}

void Adapter::CatchUp() {
  if (!backend_) return;
  if (!use_.IsCurrent()) return Reset();
  if (use_.sessions().losses() != losses_) DropLostSessions();
  if (use_.HaveOthersChangedObjects()) ForgetOwnObjects();
}

void Adapter::DropLostSessions() {
  losses_ = use_.sessions().losses();
  for (auto entry = sessions_.begin(); entry != sessions_.end();) {
    Session& session = entry->second;
    if (session.held.is_held()) {
      ++entry;
      continue;
    }
    // Whoever got its handle has seen to the login.
    session.token.objects.Forget();
    entry = sessions_.erase(entry);
  }
}

void Adapter::Reset() {
  sessions_.clear();
  for (auto& [slot, token] : tokens_) ForgetClosed(slot, token);
  tokens_.clear();
  slots_.reset();
  use_.Leave();
  backend_.reset();
}

CK_RV Adapter::GetInfo(CK_INFO* info) const {
  if (!backend_) return CKR_CRYPTOKI_NOT_INITIALIZED;
  if (info == nullptr) return CKR_ARGUMENTS_BAD;
  CK_INFO answer = {};
  const CK_RV result = backend_->functions.C_GetInfo(&answer);
  if (result != CKR_OK) return result;
  answer.cryptokiVersion = kCryptokiVersion;
  *info = answer;
  return CKR_OK;
}

}  // namespace kelvrin::adapter
