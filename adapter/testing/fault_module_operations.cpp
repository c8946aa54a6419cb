// The fault module's signatures, decryptions and derivations.
#include <openssl/rsa.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "adapter/testing/fault_module_crypto.h"
#include "adapter/testing/fault_module_state.h"

namespace kelvrin::adapter::fault_module {
namespace {

constexpr std::size_t kModulus = 256;
constexpr std::size_t kCurve = 32;
// How the process ends with kDiesOfLongBlocks.
constexpr int kDeath = 5;

CK_RV Init(bool is_signature, CK_SESSION_HANDLE session, const CK_MECHANISM* mechanism,
           CK_OBJECT_HANDLE key) {
  Session* const state = FindSession(session);
  if (state == nullptr) return CKR_SESSION_HANDLE_INVALID;
  const auto has_search = [](const auto& entry) { return entry.second.search.has_value(); };
  if (Has(Fault::kNoOperationDuringSearch) &&
      std::any_of(TheState().sessions.begin(), TheState().sessions.end(), has_search)) {
    return CKR_OPERATION_ACTIVE;
  }
  if (state->is_stuck) return CKR_OPERATION_ACTIVE;
  const Object* const object = FindObject(key);
  if (object == nullptr || object->key == nullptr) return CKR_KEY_HANDLE_INVALID;
  const std::vector<CK_MECHANISM_TYPE> offered = OfferedMechanisms();
  const bool is_rsa = EVP_PKEY_is_a(object->key.get(), "RSA") == 1;
  const bool wants_rsa =
      mechanism->mechanism == CKM_RSA_X_509 || mechanism->mechanism == CKM_RSA_PKCS;
  if (std::find(offered.begin(), offered.end(), mechanism->mechanism) == offered.end()) {
    return CKR_MECHANISM_INVALID;
  }
  if (is_rsa != wants_rsa) return CKR_KEY_TYPE_INCONSISTENT;
  ++Control().operations;
  state->operation =
      Operation{.is_signature = is_signature, .mechanism = mechanism->mechanism, .key = key};
  return CKR_OK;
}

CK_RV RunRsa(const Operation& operation, EVP_PKEY* key, Bytes input, Bytes* output) {
  const bool is_raw = operation.mechanism == CKM_RSA_X_509;
  const CK_RV too_long = operation.is_signature ? CKR_DATA_LEN_RANGE : CKR_ENCRYPTED_DATA_LEN_RANGE;
  if (is_raw && input.size() > kModulus) {
    if (Has(Fault::kDiesOfLongBlocks)) _exit(kDeath);
    return too_long;
  }
  if (is_raw && input.size() < kModulus) {
    if (Has(Fault::kRefusesShortBlocks)) return CKR_FUNCTION_FAILED;
    input.insert(input.begin(), kModulus - input.size(), 0);
  }
  if (!operation.is_signature && input.size() != kModulus) return too_long;
  const int padding = is_raw ? RSA_NO_PADDING : RSA_PKCS1_PADDING;
  const std::optional<Bytes> done =
      operation.is_signature ? SignRsa(key, padding, input) : DecryptRsa(key, padding, input);
  if (!done) return operation.is_signature ? CKR_DATA_LEN_RANGE : CKR_ENCRYPTED_DATA_INVALID;
  *output = *done;
  return CKR_OK;
}

CK_RV RunEcdsa(const Operation& operation, EVP_PKEY* key, const Bytes& input, Bytes* output) {
  if (Has(Fault::kRefusesLongDigests) && input.size() > kCurve) return CKR_DATA_LEN_RANGE;
  const bool hashes = operation.mechanism == CKM_ECDSA_SHA1 && Has(Fault::kHashesDigests);
  const std::optional<Bytes> signature = SignEcdsa(key, hashes ? Sha1(input) : input);
  if (!signature) return CKR_FUNCTION_FAILED;
  *output = Has(Fault::kRawEcdsa) ? RawSignature(*signature) : *signature;
  return CKR_OK;
}

CK_RV RunOperation(const Operation& operation, const CK_BYTE* input, CK_ULONG size, CK_BYTE* output,
                   CK_ULONG* output_size) {
  if (Has(Fault::kKeysWantLogin) && !operation.is_logged_in) return CKR_USER_NOT_LOGGED_IN;
  if (input == nullptr) {
    ++Control().null_inputs;
    if (Has(Fault::kRefusesNullInput)) return CKR_ARGUMENTS_BAD;
  }
  const Object* const key = FindObject(operation.key);
  if (key == nullptr) return CKR_KEY_HANDLE_INVALID;
  const Bytes data(input, input + size);
  Bytes done;
  const bool is_ecdsa = operation.mechanism == CKM_ECDSA || operation.mechanism == CKM_ECDSA_SHA1;
  const CK_RV result = is_ecdsa ? RunEcdsa(operation, key->key.get(), data, &done)
                                : RunRsa(operation, key->key.get(), data, &done);
  if (result != CKR_OK) return result;
  const CK_ULONG room = *output_size;
  *output_size = done.size();
  if (output == nullptr) return CKR_OK;
  if (room < done.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(done.begin(), done.end(), output);
  return CKR_OK;
}

void RenewHandles() {
  State& state = TheState();
  std::vector<CK_OBJECT_HANDLE> old;
  for (const auto& [handle, object] : state.objects) {
    if (object.is_private) old.push_back(handle);
  }
  for (const CK_OBJECT_HANDLE handle : old) {
    auto object = state.objects.extract(handle);
    object.key() = state.next_handle++;
    state.objects.insert(std::move(object));
  }
}

CK_RV Run(bool is_signature, CK_SESSION_HANDLE session, const CK_BYTE* input, CK_ULONG size,
          CK_BYTE* output, CK_ULONG* output_size) {
  Session* const state = FindSession(session);
  if (state == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (!state->operation || state->operation->is_signature != is_signature) {
    return CKR_OPERATION_NOT_INITIALIZED;
  }
  const CK_RV result = RunOperation(*state->operation, input, size, output, output_size);
  if (result != CKR_OK) state->is_stuck = Has(Fault::kStuckAfterFailure);
  // The question for the size leaves the operation open.
  if (result == CKR_OK && output == nullptr) return result;
  state->operation.reset();
  if (Has(Fault::kRenewsHandles)) RenewHandles();
  return result;
}

CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  return Init(true, session, mechanism, key);
}
CK_RV DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  return Init(false, session, mechanism, key);
}
CK_RV Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* signature,
           CK_ULONG* signature_size) {
  return Run(true, session, data, size, signature, signature_size);
}
CK_RV Decrypt(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* plain,
              CK_ULONG* plain_size) {
  return Run(false, session, data, size, plain, plain_size);
}

// The raw point in what the caller gave; nothing where the module does not take it.
std::optional<Bytes> RawPoint(const CK_MECHANISM& mechanism) {
  constexpr std::size_t kRawSize = 65;
  constexpr std::size_t kDerSize = kRawSize + 2;
  const auto& parameters = *static_cast<const CK_ECDH1_DERIVE_PARAMS*>(mechanism.pParameter);
  Bytes given(parameters.pPublicData, parameters.pPublicData + parameters.ulPublicDataLen);
  if (given.size() == kRawSize && !Has(Fault::kDerPointsOnly)) return given;
  if (given.size() != kDerSize || Has(Fault::kRawPointsOnly)) return std::nullopt;
  return Bytes(given.begin() + 2, given.end());
}

CK_RV DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE base_key,
                CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* key) {
  if (FindSession(session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  const Object* const base = FindObject(base_key);
  if (base == nullptr || base->key == nullptr) return CKR_KEY_HANDLE_INVALID;
  if (mechanism->mechanism != CKM_ECDH1_DERIVE) return CKR_MECHANISM_INVALID;
  if (Has(Fault::kWantsDeriveTemplate) && count == 0) return CKR_ARGUMENTS_BAD;
  const std::optional<Bytes> point = RawPoint(*mechanism);
  if (!point) return CKR_MECHANISM_PARAM_INVALID;
  if (Has(Fault::kFewObjects) && Control().derived_keys == static_cast<int>(kObjectLimit)) {
    return CKR_DEVICE_MEMORY;
  }
  const std::optional<Bytes> secret = DeriveSecret(base->key.get(), *point);
  if (!secret) return CKR_MECHANISM_PARAM_INVALID;
  Object derived = {.attributes = {{CKA_SENSITIVE, Flag(Has(Fault::kSecretsAreSensitive))}},
                    .key = nullptr};
  for (CK_ULONG i = 0; i < count; ++i) {
    const auto* const value = static_cast<const CK_BYTE*>(attributes[i].pValue);
    derived.attributes[attributes[i].type] = Bytes(value, value + attributes[i].ulValueLen);
  }
  derived.attributes[CKA_CLASS] = Number(CKO_SECRET_KEY);
  derived.attributes[CKA_VALUE] = *secret;
  *key = TheState().next_handle++;
  TheState().objects[*key] = std::move(derived);
  ++Control().derived_keys;
  return CKR_OK;
}

}  // namespace

void AddOperationFunctions(CK_FUNCTION_LIST* list) {
  list->C_SignInit = SignInit;
  list->C_Sign = Sign;
  list->C_DecryptInit = DecryptInit;
  list->C_Decrypt = Decrypt;
  list->C_DeriveKey = DeriveKey;
}

}  // namespace kelvrin::adapter::fault_module
