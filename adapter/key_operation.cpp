#include "adapter/key_operation.h"

#include <algorithm>

#include "adapter/attributes.h"
#include "adapter/wipe.h"

namespace kelvrin::adapter {
namespace {

// Room for any signature, and for any plaintext beside its ciphertext's length.
constexpr std::size_t kResultRoom = 4096;
// No result is longer; a module that asks for more is not believed.
constexpr std::size_t kMaxResultRoom = std::size_t{1} << 26;
constexpr std::size_t kMaxModulus = 4096;
constexpr std::size_t kMaxParameters = 1024;
// Short enough for any key.
constexpr std::size_t kShortestDigest = 20;

bool IsEcdsaWithHash(CK_MECHANISM_TYPE type) {
  return type >= CKM_ECDSA_SHA224 && type <= CKM_ECDSA_SHA512;
}

}  // namespace

void KeyOperation::Forget() {
  Wipe(result_);
  result_.clear();
  has_result_ = false;
  kind_.reset();
  replaceable_ = false;
}

void KeyOperation::Close() {
  Forget();
  worker_.Close();
}

CK_RV KeyOperation::Fail(CK_RV result) {
  Close();
  return result;
}

std::optional<CK_SESSION_HANDLE> KeyOperation::ActiveSession() const {
  if (!kind_ || !worker_.is_open()) return std::nullopt;
  return worker_.handle();
}

CK_RV KeyOperation::Init(OperationKind kind, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  if (kind_ && !replaceable_) return CKR_OPERATION_ACTIVE;
  if (kind_) Close();
  if (mechanism == nullptr) return CKR_ARGUMENTS_BAD;
  CK_MECHANISM asked = *mechanism;
  Form form = Form::kPlain;
  if (asked.mechanism == CKM_RSA_X_509) {
    form = Form::kRsaRaw;
  } else if (kind == OperationKind::kSign && asked.mechanism == CKM_ECDSA) {
    form = Form::kEcdsaDigest;
  } else if (kind == OperationKind::kSign && asked.mechanism == CKM_ECDSA_SHA1) {
    // The input is a digest already: the module must not hash it again.
    asked.mechanism = CKM_ECDSA;
    form = Form::kEcdsaDigest;
  } else if (kind == OperationKind::kSign && IsEcdsaWithHash(asked.mechanism)) {
    form = Form::kEcdsaMessage;
  }
  const CK_RV result = worker_.Begin([&](CK_SESSION_HANDLE worker) {
    return kind == OperationKind::kSign ? inner_->C_SignInit(worker, &asked, key)
                                        : inner_->C_DecryptInit(worker, &asked, key);
  });
  if (result != CKR_OK) return result;
  kind_ = kind;
  form_ = form;
  key_size_ = form == Form::kPlain ? 0 : KeySize(key);
  return CKR_OK;
}

std::size_t KeyOperation::KeySize(CK_OBJECT_HANDLE key) const {
  if (IsEcdsa()) {
    const auto parameters = ReadAttribute(*inner_, session_, key, CKA_EC_PARAMS, kMaxParameters);
    return parameters ? CurveSize(*parameters) : 0;
  }
  const auto modulus = ReadAttribute(*inner_, session_, key, CKA_MODULUS, kMaxModulus);
  if (!modulus) return 0;
  const auto first =
      std::find_if(modulus->begin(), modulus->end(), [](CK_BYTE b) { return b != 0; });
  return static_cast<std::size_t>(modulus->end() - first);
}

// A module that keeps the key's parameters to itself still says how long a result will be.
void KeyOperation::LearnKeySize(ByteView input) {
  if (key_size_ != 0 || (form_ != Form::kEcdsaDigest && form_ != Form::kRsaRaw)) return;
  auto* data = const_cast<CK_BYTE*>(input.data());
  const CK_ULONG size = std::min(input.size(), kShortestDigest);
  CK_ULONG result_size = 0;
  const CK_RV result = kind_ == OperationKind::kSign
                           ? inner_->C_Sign(worker_.handle(), data, size, nullptr, &result_size)
                           : inner_->C_Decrypt(worker_.handle(), data, size, nullptr, &result_size);
  if (result != CKR_OK || result_size > kMaxModulus) return;
  key_size_ = form_ == Form::kRsaRaw ? result_size : result_size / 2;
}

CK_RV KeyOperation::Shape(ByteView* input, Bytes* padded) const {
  if (key_size_ == 0) return CKR_OK;
  if (form_ == Form::kEcdsaDigest) {
    *input = input->first(std::min(input->size(), key_size_));
  }
  if (form_ != Form::kRsaRaw) return CKR_OK;
  if (input->size() > key_size_) {
    return kind_ == OperationKind::kSign ? CKR_DATA_LEN_RANGE : CKR_ENCRYPTED_DATA_LEN_RANGE;
  }
  padded->assign(key_size_ - input->size(), 0);
  padded->insert(padded->end(), input->begin(), input->end());
  *input = *padded;
  return CKR_OK;
}

CK_RV KeyOperation::Run(OperationKind kind, const CK_BYTE* input, CK_ULONG input_size,
                        CK_BYTE* output, CK_ULONG* output_size) {
  if (!IsUnderWay(kind)) return CKR_OPERATION_NOT_INITIALIZED;
  if (output_size == nullptr || (input == nullptr && input_size != 0)) {
    return Fail(CKR_ARGUMENTS_BAD);
  }
  if (has_result_) return Deliver(output, output_size);
  const CK_BYTE nothing = 0;
  ByteView shaped = input != nullptr ? ByteView(input, input_size) : ByteView(&nothing, 0);
  Bytes padded;
  LearnKeySize(shaped);
  const CK_RV result = Shape(&shaped, &padded);
  if (result != CKR_OK) return Fail(result);
  auto* data = const_cast<CK_BYTE*>(shaped.data());
  const CK_ULONG size = shaped.size();
  const CK_RV outcome = Finish(
      [&](CK_BYTE* room, CK_ULONG* room_size) {
        return kind == OperationKind::kSign
                   ? inner_->C_Sign(worker_.handle(), data, size, room, room_size)
                   : inner_->C_Decrypt(worker_.handle(), data, size, room, room_size);
      },
      kResultRoom + size, output, output_size);
  Wipe(padded);
  return outcome;
}

CK_RV KeyOperation::Final(OperationKind kind, CK_BYTE* output, CK_ULONG* output_size) {
  if (!IsUnderWay(kind)) return CKR_OPERATION_NOT_INITIALIZED;
  if (output_size == nullptr) return Fail(CKR_ARGUMENTS_BAD);
  if (has_result_) return Deliver(output, output_size);
  return Finish(
      [&](CK_BYTE* room, CK_ULONG* room_size) {
        return kind == OperationKind::kSign
                   ? inner_->C_SignFinal(worker_.handle(), room, room_size)
                   : inner_->C_DecryptFinal(worker_.handle(), room, room_size);
      },
      kResultRoom, output, output_size);
}

CK_RV KeyOperation::Finish(const Call& call, std::size_t room, CK_BYTE* output,
                           CK_ULONG* output_size) {
  if (output == nullptr) return AskSize(call, output_size);
  const CK_RV result = Collect(call, room);
  return result == CKR_OK ? Deliver(output, output_size) : Fail(result);
}

CK_RV KeyOperation::AskSize(const Call& call, CK_ULONG* output_size) {
  CK_ULONG size = 0;
  const CK_RV result = call(nullptr, &size);
  if (result != CKR_OK) return Fail(result);
  if (size > kMaxResultRoom) return Fail(CKR_DEVICE_ERROR);
  *output_size = IsEcdsa() ? std::max<CK_ULONG>(size, MaxDerSize(size)) : size;
  return CKR_OK;
}

// Runs the operation into memory of the adapter's own, so that a module that writes what it likes
// meets room enough, and a caller with a small buffer loses nothing.
CK_RV KeyOperation::Collect(const Call& call, std::size_t room) {
  Bytes collected(std::min(room, kMaxResultRoom));
  CK_ULONG size = collected.size();
  CK_RV result = call(collected.data(), &size);
  if (result == CKR_BUFFER_TOO_SMALL && size > collected.size() && size <= kMaxResultRoom) {
    collected.assign(size, 0);
    result = call(collected.data(), &size);
  }
  if (result == CKR_OK && size > collected.size()) result = CKR_DEVICE_ERROR;
  if (result == CKR_OK) {
    result_.assign(collected.begin(), collected.begin() + static_cast<std::ptrdiff_t>(size));
    has_result_ = true;
  }
  Wipe(collected);
  if (result != CKR_OK || !IsEcdsa()) return result;

  const bool is_der = IsDerSignature(result_);
  const bool is_raw =
      key_size_ != 0 ? size == 2 * key_size_ : size != 0 && size % 2 == 0 && !is_der;
  if (!is_raw) return is_der ? CKR_OK : CKR_DEVICE_ERROR;
  result_ = EcdsaSignatureToDer(result_);
  return CKR_OK;
}

CK_RV KeyOperation::Deliver(CK_BYTE* output, CK_ULONG* output_size) {
  const CK_ULONG room = *output_size;
  *output_size = result_.size();
  if (output == nullptr) return CKR_OK;
  if (room < result_.size()) {
    replaceable_ = true;
    return CKR_BUFFER_TOO_SMALL;
  }
  std::copy(result_.begin(), result_.end(), output);
  Forget();
  return CKR_OK;
}

CK_RV KeyOperation::SignUpdate(CK_BYTE* part, CK_ULONG size) {
  if (!IsUnderWay(OperationKind::kSign)) return CKR_OPERATION_NOT_INITIALIZED;
  if (part == nullptr && size != 0) return Fail(CKR_ARGUMENTS_BAD);
  CK_BYTE nothing = 0;
  const CK_RV result =
      inner_->C_SignUpdate(worker_.handle(), part != nullptr ? part : &nothing, size);
  return result == CKR_OK ? result : Fail(result);
}

CK_RV KeyOperation::DecryptUpdate(CK_BYTE* part, CK_ULONG size, CK_BYTE* output,
                                  CK_ULONG* output_size) {
  if (!IsUnderWay(OperationKind::kDecrypt)) return CKR_OPERATION_NOT_INITIALIZED;
  if (output_size == nullptr || (part == nullptr && size != 0)) return Fail(CKR_ARGUMENTS_BAD);
  const CK_ULONG room = *output_size;
  CK_BYTE nothing = 0;
  const CK_RV result = inner_->C_DecryptUpdate(worker_.handle(), part != nullptr ? part : &nothing,
                                               size, output, output_size);
  if (result == CKR_BUFFER_TOO_SMALL) {
    replaceable_ = true;
    return result;
  }
  if (result == CKR_OK && output != nullptr && *output_size > room) {
    *output_size = 0;
    return Fail(CKR_DEVICE_ERROR);
  }
  return result == CKR_OK ? result : Fail(result);
}

}  // namespace kelvrin::adapter
