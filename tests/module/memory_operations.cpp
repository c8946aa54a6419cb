// The memory module's signatures, decryptions and derivations.
#include <openssl/rsa.h>

#include <optional>
#include <utility>

#include "tests/module/memory_functions.h"
#include "tests/module/test_keys.h"

namespace kelvrin {
namespace {

using Bytes = MemoryObject::Bytes;

MemoryModule& module() { return MemoryModule::Instance(); }

bool IsRsa(CK_MECHANISM_TYPE type) { return type == CKM_RSA_PKCS || type == CKM_RSA_X_509; }

// Whether the key may be used in this way, with this mechanism; and that key.
CK_RV LookAtKey(CK_SESSION_HANDLE session, const CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key,
                CK_ATTRIBUTE_TYPE usage, const MemoryObject** found) {
  const CK_MECHANISM_TYPE type = mechanism->mechanism;
  const auto& offered = module().FindCard(module().FindSession(session)->slot)->mechanisms;
  if (std::find(offered.begin(), offered.end(), type) == offered.end())
    return CKR_MECHANISM_INVALID;
  const bool derives = type == CKM_ECDH1_DERIVE;
  if (derives != (usage == CKA_DERIVE)) return CKR_MECHANISM_INVALID;
  *found = module().FindObject(session, key);
  if (*found == nullptr || (*found)->key == nullptr) return CKR_KEY_HANDLE_INVALID;
  const bool has_rsa = EVP_PKEY_is_a((*found)->key.get(), "RSA") == 1;
  if (has_rsa != IsRsa(type)) return CKR_KEY_TYPE_INCONSISTENT;
  return (*found)->Is(usage) ? CKR_OK : CKR_KEY_FUNCTION_NOT_PERMITTED;
}

template <bool is_signature>
CK_RV Init(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  MemorySession& session = *module().FindSession(handle);
  if (session.operation) return CKR_OPERATION_ACTIVE;
  const MemoryObject* object = nullptr;
  const CK_RV result =
      LookAtKey(handle, mechanism, key, is_signature ? CKA_SIGN : CKA_DECRYPT, &object);
  if (result != CKR_OK) return result;
  session.operation = {.is_signature = is_signature, .mechanism = mechanism->mechanism, .key = key};
  return CKR_OK;
}

CK_RV RunRsa(const MemoryOperation& operation, EVP_PKEY* key, Bytes input, Bytes* output) {
  const auto modulus = static_cast<std::size_t>(EVP_PKEY_get_size(key));
  const bool is_raw = operation.mechanism == CKM_RSA_X_509;
  const CK_RV refusal = operation.is_signature ? CKR_DATA_LEN_RANGE : CKR_ENCRYPTED_DATA_LEN_RANGE;
  if (input.size() > modulus) return refusal;
  if (!operation.is_signature && !is_raw && input.size() != modulus) return refusal;
  if (is_raw) input.insert(input.begin(), modulus - input.size(), 0);
  const int padding = is_raw ? RSA_NO_PADDING : RSA_PKCS1_PADDING;
  auto done =
      operation.is_signature ? SignRsa(key, padding, input) : DecryptRsa(key, padding, input);
  if (!done) return operation.is_signature ? refusal : CKR_ENCRYPTED_DATA_INVALID;
  *output = std::move(*done);
  return CKR_OK;
}

CK_RV RunEcdsa(const MemoryOperation& operation, EVP_PKEY* key, Bytes input, Bytes* output) {
  if (operation.mechanism == CKM_ECDSA_SHA1) {
    unsigned size = 0;
    Bytes digest(EVP_MAX_MD_SIZE);
    EVP_Digest(input.data(), input.size(), digest.data(), &size, EVP_sha1(), nullptr);
    digest.resize(size);
    input = std::move(digest);
  }
  const auto signature = SignEcdsa(key, input);
  if (!signature) return CKR_DATA_LEN_RANGE;
  *output = RawEcdsa(*signature);
  return CKR_OK;
}

CK_RV RunOperation(const MemoryOperation& operation, const MemoryObject& key, const CK_BYTE* input,
                   CK_ULONG size, CK_BYTE* output, CK_ULONG* output_size) {
  if (key.Is(CKA_ALWAYS_AUTHENTICATE) && !operation.is_authenticated) {
    return CKR_USER_NOT_LOGGED_IN;
  }
  // How much room a result takes at most is known without making one.
  const bool is_rsa = IsRsa(operation.mechanism);
  const CK_ULONG most = is_rsa ? static_cast<CK_ULONG>(EVP_PKEY_get_size(key.key.get())) : 64;
  if (output == nullptr) {
    *output_size = most;
    return CKR_OK;
  }
  Bytes done;
  const Bytes data(input, input + size);
  const CK_RV result = is_rsa ? RunRsa(operation, key.key.get(), data, &done)
                              : RunEcdsa(operation, key.key.get(), data, &done);
  return result == CKR_OK ? GiveList(done, output, output_size) : result;
}

template <bool is_signature>
CK_RV Run(CK_SESSION_HANDLE handle, CK_BYTE* input, CK_ULONG size, CK_BYTE* output,
          CK_ULONG* output_size) {
  auto& operation = module().FindSession(handle)->operation;
  if (!operation || operation->is_signature != is_signature) return CKR_OPERATION_NOT_INITIALIZED;
  const MemoryObject* const key = module().FindObject(handle, operation->key);
  const CK_RV result = key == nullptr
                           ? CKR_KEY_HANDLE_INVALID
                           : RunOperation(*operation, *key, input, size, output, output_size);
  // A question for the size and a room that is too small leave the operation open.
  const bool goes_on = result == CKR_BUFFER_TOO_SMALL || (result == CKR_OK && output == nullptr);
  if (!goes_on) operation.reset();
  return result;
}

// The raw point in a raw or DER-encoded one; otherwise what is there.
Bytes RawPoint(const CK_ECDH1_DERIVE_PARAMS& parameters) {
  const Bytes point(parameters.pPublicData, parameters.pPublicData + parameters.ulPublicDataLen);
  // The size tells: both begin with 04, and a raw point's second byte may be any.
  constexpr std::size_t kRawSize = 65;
  const bool is_der = point.size() == kRawSize + 2 && point[0] == 0x04 && point[1] == kRawSize;
  return is_der ? Bytes(point.begin() + 2, point.end()) : point;
}

CK_RV DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE base_key,
                CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* key) {
  const MemoryObject* base = nullptr;
  const CK_RV result = LookAtKey(session, mechanism, base_key, CKA_DERIVE, &base);
  if (result != CKR_OK) return result;
  if (mechanism->ulParameterLen != sizeof(CK_ECDH1_DERIVE_PARAMS)) {
    return CKR_MECHANISM_PARAM_INVALID;
  }
  const auto& parameters = *static_cast<const CK_ECDH1_DERIVE_PARAMS*>(mechanism->pParameter);
  const auto secret = DeriveSecret(base->key.get(), RawPoint(parameters));
  if (!secret || parameters.kdf != CKD_NULL) return CKR_MECHANISM_PARAM_INVALID;
  MemoryObject derived;
  for (const CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
    const auto* const value = static_cast<const CK_BYTE*>(attribute.pValue);
    derived.attributes[attribute.type] = Bytes(value, value + attribute.ulValueLen);
  }
  derived.attributes.insert({{CKA_CLASS, MemoryObject::Number(CKO_SECRET_KEY)},
                             {CKA_VALUE_LEN, MemoryObject::Number(secret->size())},
                             {CKA_VALUE, *secret}});
  if (!derived.Has(CKA_VALUE_LEN, MemoryObject::Number(secret->size()))) return CKR_KEY_SIZE_RANGE;
  derived.session = session;
  *key = module().FindCard(module().FindSession(session)->slot)->Add(std::move(derived));
  return CKR_OK;
}

}  // namespace

void AddMemoryOperationFunctions(CK_FUNCTION_LIST* list) {
  list->C_SignInit = WithSession<Init<true>>::Call;
  list->C_Sign = WithSession<Run<true>>::Call;
  list->C_DecryptInit = WithSession<Init<false>>::Call;
  list->C_Decrypt = WithSession<Run<false>>::Call;
  list->C_DeriveKey = WithSession<DeriveKey>::Call;
}

}  // namespace kelvrin
