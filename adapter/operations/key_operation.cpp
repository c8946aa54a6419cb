#include "adapter/operations/key_operation.h"

#include <algorithm>

#include "encoding/ecdsa_signature.h"
#include "encoding/rsa_padding.h"
#include "encoding/wipe.h"

namespace kelvrin::adapter {
namespace {

// Room for any signature, and for any plaintext beside its ciphertext's length.
constexpr std::size_t kResultRoom = 4096;
// No input or result is longer; a module that asks for more is not believed.
constexpr std::size_t kMaxResultRoom = std::size_t{1} << 26;
// Short enough for any key.
constexpr std::size_t kShortestDigest = 20;
// What a null pointer of length 0 becomes.
constexpr CK_BYTE kNothing = 0;

bool IsEcdsa(CK_MECHANISM_TYPE type) { return type == CKM_ECDSA || type == CKM_ECDSA_SHA1; }

void WipeBytes(Bytes* bytes) { encoding::Wipe(bytes->data(), bytes->size()); }

// Whether the module knows no logins for one operation, and so has not looked at the PIN.
bool IsUnknownLogin(CK_RV result) {
  return result == CKR_USER_TYPE_INVALID || result == CKR_USER_ALREADY_LOGGED_IN;
}

}  // namespace

void KeyOperation::Forget() {
  WipeBytes(&result_);
  result_.clear();
  has_result_ = false;
  kind_.reset();
}

void KeyOperation::Close() {
  Forget();
  worker_.Close();
}

void KeyOperation::Drop() {
  Forget();
  worker_.Drop();
}

bool KeyOperation::CloseIdleWorker() {
  // With its result here the module has nothing of the operation any more.
  const bool is_idle = worker_.is_open() && (!kind_ || has_result_);
  if (is_idle) worker_.Close();
  return is_idle;
}

CK_RV KeyOperation::Fail(CK_RV result) {
  // The module has lost the worker alone where the caller's session answers.
  const bool is_lost = result == CKR_SESSION_HANDLE_INVALID || result == CKR_SESSION_CLOSED;
  if (is_lost && worker_.CallerAnswers()) result = CKR_DEVICE_ERROR;
  Close();
  objects_->Forget();
  return result;
}

std::optional<CK_SESSION_HANDLE> KeyOperation::ActiveSession() const {
  return kind_ ? std::optional(worker_.handle()) : std::nullopt;
}

KeyOperation::Form KeyOperation::FormOf(CK_MECHANISM_TYPE mechanism) const {
  const Rules& rules = objects_->rules();
  if (mechanism == CKM_RSA_X_509) return rules.Has(Rule::kRawRsa) ? Form::kRsaRaw : Form::kPlain;
  if (kind_ != OperationKind::kSign) return Form::kPlain;
  if (mechanism == CKM_RSA_PKCS) return Form::kRsa;
  return IsEcdsa(mechanism) && rules.Has(Rule::kEcdsa) ? Form::kEcdsa : Form::kPlain;
}

CK_RV KeyOperation::Init(OperationKind kind, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key) {
  if (kind_) Close();
  kind_ = kind;
  const CK_RV result = objects_->WithCurrent(
      session_, key, [&](CK_OBJECT_HANDLE current) { return Begin(mechanism, current); });
  return result == CKR_OK ? result : Fail(result);
}

CK_RV KeyOperation::Begin(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key) {
  const Rules& rules = objects_->rules();
  key_ = key;
  mechanism_ = mechanism;
  form_ = FormOf(mechanism.mechanism);
  const KeyFacts facts = objects_->Facts(session_, key, !IsEcdsa(mechanism.mechanism));
  if (mechanism.mechanism == CKM_RSA_X_509 && rules.Has(Rule::kMissingRawRsa) &&
      facts.lacks_raw_rsa) {
    mechanism_.mechanism = CKM_RSA_PKCS;
    form_ = Form::kRsaRawByPkcs;
  }
  // The input is a digest already: the module must not hash it again.
  if (form_ == Form::kEcdsa) mechanism_.mechanism = CKM_ECDSA;
  key_size_ = facts.size;
  wants_login_ = facts.wants_login && rules.Has(Rule::kContextLogin);
  return Start();
}

// Starts the operation on the worker.
CK_RV KeyOperation::Start() {
  const CK_RV result = worker_.Begin([&](CK_SESSION_HANDLE worker) {
    return kind_ == OperationKind::kSign ? inner_->C_SignInit(worker, &mechanism_, key_)
                                         : inner_->C_DecryptInit(worker, &mechanism_, key_);
  });
  return result == CKR_OK && wants_login_ ? LogIn() : result;
}

// Gives the PIN for one operation. A PIN is never tried twice: after a failed login it is wiped.
CK_RV KeyOperation::LogIn() {
  CK_RV result = CKR_USER_NOT_LOGGED_IN;
  if (pin_->has_pin()) {
    result = inner_->C_Login(worker_.handle(), CKU_CONTEXT_SPECIFIC, pin_->data(), pin_->size());
  }
  if (result == CKR_OK || IsUnknownLogin(result)) return CKR_OK;
  pin_->Wipe();
  wants_logout_ = true;
  return result;
}

CK_RV KeyOperation::CallModule(CK_BYTE* input, CK_ULONG size, CK_BYTE* output,
                               CK_ULONG* output_size) {
  return kind_ == OperationKind::kSign
             ? inner_->C_Sign(worker_.handle(), input, size, output, output_size)
             : inner_->C_Decrypt(worker_.handle(), input, size, output, output_size);
}

// A module that keeps the key's parameters to itself still says how long a result will be. One that
// refuses to has ended the operation, which is started again.
CK_RV KeyOperation::LearnKeySize(ByteView input) {
  if (key_size_ != 0 || form_ == Form::kPlain) return CKR_OK;
  if (form_ == Form::kRsaRawByPkcs && kind_ == OperationKind::kDecrypt) {
    key_size_ = input.size();
    return CKR_OK;
  }
  const bool is_ecdsa = form_ == Form::kEcdsa;
  auto* data = const_cast<CK_BYTE*>(input.data());
  CK_ULONG size = is_ecdsa ? std::min(input.size(), kShortestDigest) : input.size();
  CK_ULONG result_size = 0;
  if (CallModule(data, size, nullptr, &result_size) != CKR_OK) {
    worker_.Close();
    return Start();
  }
  if (result_size > kMaxModulus) return CKR_OK;
  key_size_ = is_ecdsa ? result_size / 2 : result_size;
  objects_->LearnSize(key_, key_size_);
  return CKR_OK;
}

// Brings the input into the shape that the module takes; `shaped` holds it where it is a new one.
CK_RV KeyOperation::Shape(ByteView* input, Bytes* shaped) const {
  const bool is_signing = kind_ == OperationKind::kSign;
  if (form_ == Form::kRsaRawByPkcs && is_signing) {
    std::optional<Bytes> message = encoding::UnpadSignatureBlock(*input, key_size_);
    // Another padding's block cannot be made by the module.
    if (!message) return CKR_MECHANISM_INVALID;
    *shaped = std::move(*message);
    *input = shaped->empty() ? ByteView(&kNothing, 0) : ByteView(*shaped);
    return CKR_OK;
  }
  if (key_size_ == 0) return CKR_OK;
  if (form_ == Form::kEcdsa) *input = input->first(std::min(input->size(), key_size_));
  if (form_ != Form::kRsaRaw && form_ != Form::kRsaRawByPkcs) return CKR_OK;
  if (input->size() > key_size_) {
    return is_signing ? CKR_DATA_LEN_RANGE : CKR_ENCRYPTED_DATA_LEN_RANGE;
  }
  shaped->assign(key_size_ - input->size(), 0);
  shaped->insert(shaped->end(), input->begin(), input->end());
  *input = *shaped;
  return CKR_OK;
}

CK_RV KeyOperation::Run(OperationKind kind, const CK_BYTE* input, CK_ULONG input_size,
                        CK_BYTE* output, CK_ULONG* output_size) {
  if (kind_ != kind) return CKR_OPERATION_NOT_INITIALIZED;
  if (has_result_) return Deliver(output, output_size);
  if (input_size > kMaxResultRoom) return Fail(CKR_DATA_LEN_RANGE);
  ByteView shaped = input != nullptr ? ByteView(input, input_size) : ByteView(&kNothing, 0);
  Bytes padded;
  CK_RV result = LearnKeySize(shaped);
  if (result == CKR_OK) result = Shape(&shaped, &padded);
  if (result == CKR_OK) result = Collect(shaped);
  WipeBytes(&padded);
  return result == CKR_OK ? Deliver(output, output_size) : Fail(result);
}

// Runs the operation into memory of the adapter's own, so that a module that writes what it likes
// meets room enough, and a caller with a small buffer loses nothing.
CK_RV KeyOperation::Collect(ByteView input) {
  auto* data = const_cast<CK_BYTE*>(input.data());
  const std::size_t room = kResultRoom + input.size();
  if (room_.size() < room) room_.resize(room);
  result_.reserve(room_.size());
  CK_ULONG size = room_.size();
  const CK_RV result = CallModule(data, input.size(), room_.data(), &size);
  const bool is_believable = result == CKR_OK && size <= room_.size();
  if (is_believable) {
    result_.assign(room_.begin(), room_.begin() + static_cast<std::ptrdiff_t>(size));
    has_result_ = true;
  }
  // A signature is no secret; a plaintext is, also where the module says that it failed.
  if (kind_ == OperationKind::kDecrypt) WipeBytes(&room_);
  if (room_.size() > 2 * kResultRoom) room_ = Bytes();
  if (result != CKR_OK) return result;
  return is_believable ? ShapeResult() : CKR_DEVICE_ERROR;
}

CK_RV KeyOperation::ShapeResult() {
  const bool is_signing = kind_ == OperationKind::kSign;
  if (form_ == Form::kRsaRawByPkcs && !is_signing) {
    Bytes block = encoding::PadDecryptedMessage(result_, key_size_);
    WipeBytes(&result_);
    result_ = std::move(block);
    return result_.empty() ? CKR_DEVICE_ERROR : CKR_OK;
  }
  if (form_ == Form::kPlain) return CKR_OK;
  if (form_ != Form::kEcdsa) return FillModulus();
  const std::size_t size = result_.size();
  const bool is_der = encoding::IsDerSignature(result_);
  const bool is_raw =
      key_size_ != 0 ? size == 2 * key_size_ : size != 0 && size % 2 == 0 && !is_der;
  if (!is_raw) return is_der ? CKR_OK : CKR_DEVICE_ERROR;
  result_ = encoding::EcdsaSignatureToDer(result_);
  return CKR_OK;
}

// Gives the result the modulus's length, which some modules leave zeros off.
CK_RV KeyOperation::FillModulus() {
  if (result_.empty() || (key_size_ != 0 && result_.size() > key_size_)) return CKR_DEVICE_ERROR;
  if (result_.size() >= key_size_) return CKR_OK;
  Bytes filled(key_size_ - result_.size(), 0);
  filled.insert(filled.end(), result_.begin(), result_.end());
  WipeBytes(&result_);
  result_ = std::move(filled);
  return CKR_OK;
}

CK_RV KeyOperation::Deliver(CK_BYTE* output, CK_ULONG* output_size) {
  const CK_ULONG room = *output_size;
  *output_size = result_.size();
  if (output == nullptr) return CKR_OK;
  if (room < result_.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(result_.begin(), result_.end(), output);
  Forget();
  return CKR_OK;
}

}  // namespace kelvrin::adapter
