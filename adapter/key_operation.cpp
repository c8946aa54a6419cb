#include "adapter/key_operation.h"

#include <algorithm>
#include <utility>

#include "encoding/rsa_padding.h"
#include "adapter/bytes.h"

namespace kelvrin::adapter {
namespace {

// Room for any signature, and for any plaintext beside its ciphertext's length.
constexpr std::size_t kResultRoom = 4096;
// No result is longer; a module that asks for more is not believed.
constexpr std::size_t kMaxResultRoom = std::size_t{1} << 26;
constexpr std::size_t kMaxModulus = 4096;
// Short enough for any key.
constexpr std::size_t kShortestDigest = 20;
// What a null pointer of length 0 becomes.
constexpr CK_BYTE kNothing = 0;

bool IsEcdsaWithHash(CK_MECHANISM_TYPE type) {
  return type >= CKM_ECDSA_SHA224 && type <= CKM_ECDSA_SHA512;
}

bool IsEcdsaMechanism(CK_MECHANISM_TYPE type) {
  return type == CKM_ECDSA || type == CKM_ECDSA_SHA1 || IsEcdsaWithHash(type);
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

bool KeyOperation::CloseIdleWorker() {
  // With its result here the module has nothing of the operation any more.
  const bool is_idle = worker_.is_own() && (!kind_ || has_result_);
  if (is_idle) worker_.Close();
  return is_idle;
}

CK_RV KeyOperation::Fail(CK_RV result) {
  Close();
  // The card may be another one by now.
  objects_->Forget();
  return result;
}

std::optional<CK_SESSION_HANDLE> KeyOperation::ActiveSession() const {
  if (!kind_ || !worker_.is_open()) return std::nullopt;
  return worker_.handle();
}

// A thread whose operation another one has replaced must not run that one in its place.
bool KeyOperation::IsUnderWay(OperationKind kind) {
  const auto self = std::this_thread::get_id();
  if (owner_ != self && displaced_.erase(self) != 0) return false;
  return kind_ == kind;
}

KeyOperation::Form KeyOperation::FormOf(OperationKind kind, CK_MECHANISM_TYPE mechanism) const {
  const Rules& rules = objects_->rules();
  if (mechanism == CKM_RSA_X_509) return rules.Has(Rule::kRawRsa) ? Form::kRsaRaw : Form::kPlain;
  if (kind != OperationKind::kSign || !rules.Has(Rule::kEcdsa)) return Form::kPlain;
  if (mechanism == CKM_ECDSA || mechanism == CKM_ECDSA_SHA1) return Form::kEcdsaDigest;
  return IsEcdsaWithHash(mechanism) ? Form::kEcdsaMessage : Form::kPlain;
}

CK_RV KeyOperation::Init(OperationKind kind, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  if (kind_ && !replaceable_) return CKR_OPERATION_ACTIVE;
  if (mechanism == nullptr) return CKR_ARGUMENTS_BAD;
  const auto self = std::this_thread::get_id();
  if (kind_ && owner_ != self) displaced_.insert(owner_);
  if (kind_) Close();
  const CK_RV result = BeginWithCurrent(kind, *mechanism, key);
  if (result != CKR_OK) return Fail(result);
  kind_ = kind;
  owner_ = self;
  displaced_.erase(self);
  return CKR_OK;
}

// Begins with the key that the caller means, which may have another handle by now.
CK_RV KeyOperation::BeginWithCurrent(OperationKind kind, const CK_MECHANISM& mechanism,
                                     CK_OBJECT_HANDLE key) {
  return objects_->WithCurrent(
      session_, key, [&](CK_OBJECT_HANDLE current) { return Begin(kind, mechanism, current); });
}

CK_RV KeyOperation::Begin(OperationKind kind, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key) {
  const Rules& rules = objects_->rules();
  CK_MECHANISM asked = mechanism;
  form_ = FormOf(kind, asked.mechanism);
  const bool may_lack = asked.mechanism == CKM_RSA_X_509 && rules.Has(Rule::kMissingRawRsa);
  const bool may_log_in = rules.Has(Rule::kContextLogin);
  KeyFacts facts;
  if (form_ != Form::kPlain || may_lack || may_log_in) {
    facts = objects_->Facts(session_, key, !IsEcdsaMechanism(asked.mechanism));
  }
  if (may_lack && facts.lacks_raw_rsa) {
    asked.mechanism = CKM_RSA_PKCS;
    form_ = Form::kRsaRawByPkcs;
  }
  // The input is a digest already: the module must not hash it again.
  if (form_ == Form::kEcdsaDigest) asked.mechanism = CKM_ECDSA;
  key_size_ = facts.size;
  const CK_RV result = worker_.Begin([&](CK_SESSION_HANDLE worker) {
    return kind == OperationKind::kSign ? inner_->C_SignInit(worker, &asked, key)
                                        : inner_->C_DecryptInit(worker, &asked, key);
  });
  if (result != CKR_OK || !may_log_in || !facts.wants_login) return result;
  return login_->LogIn(worker_.handle());
}

// A module that keeps the key's parameters to itself still says how long a result will be.
void KeyOperation::LearnKeySize(ByteView input) {
  if (key_size_ != 0 || form_ == Form::kPlain || form_ == Form::kEcdsaMessage) return;
  if (form_ == Form::kRsaRawByPkcs && kind_ == OperationKind::kDecrypt) {
    key_size_ = input.size();
    return;
  }
  auto* data = const_cast<CK_BYTE*>(input.data());
  const CK_ULONG size = std::min(input.size(), kShortestDigest);
  CK_ULONG result_size = 0;
  const CK_RV result = kind_ == OperationKind::kSign
                           ? inner_->C_Sign(worker_.handle(), data, size, nullptr, &result_size)
                           : inner_->C_Decrypt(worker_.handle(), data, size, nullptr, &result_size);
  if (result != CKR_OK || result_size > kMaxModulus) return;
  key_size_ = form_ == Form::kEcdsaDigest ? result_size / 2 : result_size;
}

// Brings the input into the shape that the module takes; `shaped` holds it where it is a new one.
CK_RV KeyOperation::Shape(ByteView* input, Bytes* shaped) const {
  if (form_ == Form::kRsaRawByPkcs && kind_ == OperationKind::kSign) {
    std::optional<Bytes> message = UnpadSignatureBlock(*input, key_size_);
    // Another padding's block cannot be made by the module.
    if (!message) return CKR_MECHANISM_INVALID;
    *shaped = std::move(*message);
    *input = shaped->empty() ? ByteView(&kNothing, 0) : ByteView(*shaped);
    return CKR_OK;
  }
  if (key_size_ == 0) return CKR_OK;
  if (form_ == Form::kEcdsaDigest) {
    *input = input->first(std::min(input->size(), key_size_));
  }
  if (form_ != Form::kRsaRaw && form_ != Form::kRsaRawByPkcs) return CKR_OK;
  if (input->size() > key_size_) {
    return kind_ == OperationKind::kSign ? CKR_DATA_LEN_RANGE : CKR_ENCRYPTED_DATA_LEN_RANGE;
  }
  shaped->assign(key_size_ - input->size(), 0);
  shaped->insert(shaped->end(), input->begin(), input->end());
  *input = *shaped;
  return CKR_OK;
}

CK_RV KeyOperation::Run(OperationKind kind, const CK_BYTE* input, CK_ULONG input_size,
                        CK_BYTE* output, CK_ULONG* output_size) {
  if (!IsUnderWay(kind)) return CKR_OPERATION_NOT_INITIALIZED;
  if (output_size == nullptr || (input == nullptr && input_size != 0)) {
    return Fail(CKR_ARGUMENTS_BAD);
  }
  if (has_result_) return Deliver(output, output_size);
  const bool may_be_null = !objects_->rules().Has(Rule::kRawRsa);
  ByteView shaped =
      input != nullptr || may_be_null ? ByteView(input, input_size) : ByteView(&kNothing, 0);
  Bytes padded;
  LearnKeySize(shaped);
  const CK_RV result = Shape(&shaped, &padded);
  if (result != CKR_OK) return Fail(result);
  auto* data = const_cast<CK_BYTE*>(shaped.data());
  const CK_ULONG size = shaped.size();
  const auto call = [&](CK_BYTE* room, CK_ULONG* room_size) {
    return kind == OperationKind::kSign
               ? inner_->C_Sign(worker_.handle(), data, size, room, room_size)
               : inner_->C_Decrypt(worker_.handle(), data, size, room, room_size);
  };
  // By reference: a copy would be allocated.
  const CK_RV outcome = Finish(std::cref(call), kResultRoom + size, output, output_size);
  Wipe(padded);
  return outcome;
}

CK_RV KeyOperation::Final(OperationKind kind, CK_BYTE* output, CK_ULONG* output_size) {
  if (!IsUnderWay(kind)) return CKR_OPERATION_NOT_INITIALIZED;
  if (output_size == nullptr) return Fail(CKR_ARGUMENTS_BAD);
  if (has_result_) return Deliver(output, output_size);
  if (!TakesParts()) return Fail(CKR_FUNCTION_NOT_SUPPORTED);
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
  if (form_ == Form::kRsaRawByPkcs) size = std::max<CK_ULONG>(size, key_size_);
  *output_size = IsEcdsa() ? std::max<CK_ULONG>(size, MaxDerSignatureSize(size)) : size;
  return CKR_OK;
}

// Runs the operation into memory of the adapter's own, so that a module that writes what it likes
// meets room enough, and a caller with a small buffer loses nothing.
CK_RV KeyOperation::Collect(const Call& call, std::size_t room) {
  if (room_.size() < room) room_.resize(std::min(room, kMaxResultRoom));
  CK_ULONG size = room_.size();
  CK_RV result = call(room_.data(), &size);
  if (result == CKR_BUFFER_TOO_SMALL && size > room_.size() && size <= kMaxResultRoom) {
    // A part of a plaintext may stand there already.
    if (kind_ == OperationKind::kDecrypt) Wipe(room_);
    room_.resize(size);
    result = call(room_.data(), &size);
  }
  if (result == CKR_OK && size > room_.size()) result = CKR_DEVICE_ERROR;
  if (result == CKR_OK) {
    result_.assign(room_.begin(), room_.begin() + static_cast<std::ptrdiff_t>(size));
    has_result_ = true;
  }
  // A signature is no secret; a plaintext is, also where the module says that it failed.
  if (kind_ == OperationKind::kDecrypt) Wipe(room_);
  if (room_.size() > 2 * kResultRoom) room_ = Bytes();
  return result == CKR_OK ? ShapeResult() : result;
}

CK_RV KeyOperation::ShapeResult() {
  if (form_ == Form::kRsaRawByPkcs && kind_ == OperationKind::kDecrypt) {
    Bytes block = PadDecryptedMessage(result_, key_size_);
    Wipe(result_);
    result_ = std::move(block);
    return result_.empty() ? CKR_DEVICE_ERROR : CKR_OK;
  }
  if (!IsEcdsa()) return CKR_OK;
  const std::size_t size = result_.size();
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
  if (!TakesParts()) return Fail(CKR_FUNCTION_NOT_SUPPORTED);
  CK_BYTE nothing = 0;
  const CK_RV result =
      inner_->C_SignUpdate(worker_.handle(), part != nullptr ? part : &nothing, size);
  return result == CKR_OK ? result : Fail(result);
}

CK_RV KeyOperation::DecryptUpdate(CK_BYTE* part, CK_ULONG size, CK_BYTE* output,
                                  CK_ULONG* output_size) {
  if (!IsUnderWay(OperationKind::kDecrypt)) return CKR_OPERATION_NOT_INITIALIZED;
  if (output_size == nullptr || (part == nullptr && size != 0)) return Fail(CKR_ARGUMENTS_BAD);
  if (!TakesParts()) return Fail(CKR_FUNCTION_NOT_SUPPORTED);
  const CK_ULONG room = *output_size;
  CK_BYTE nothing = 0;
  const CK_RV result = inner_->C_DecryptUpdate(worker_.handle(), part != nullptr ? part : &nothing,
                                               size, output, output_size);
  replaceable_ = result == CKR_BUFFER_TOO_SMALL;
  if (replaceable_) return result;
  if (result == CKR_OK && output != nullptr && *output_size > room) {
    *output_size = 0;
    return Fail(CKR_DEVICE_ERROR);
  }
  return result == CKR_OK ? result : Fail(result);
}

}  // namespace kelvrin::adapter
