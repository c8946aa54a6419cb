// Signing and decrypting for one caller's session.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <optional>
#include <utility>

#include "adapter/objects/token_objects.h"
#include "adapter/operations/locked_pin.h"
#include "adapter/operations/worker_session.h"

namespace kelvrin::adapter {

enum class OperationKind { kSign, kDecrypt };

// The private-key operation of a caller's session: at most one at a time, signing or decrypting, on
// a worker session of its own. What differs from the module's own behaviour:
//  - an operation that failed leaves nothing behind, also when the caller's buffer was too small:
//    the caller may call again with a larger one, or begin anew at any time;
//  - CKM_ECDSA and CKM_ECDSA_SHA1 take a digest, cut it to the curve's size and give DER;
//  - CKM_RSA_X_509 takes input of up to the modulus's length and pads it with zeros on the left;
//    where the module lacks it, CKM_RSA_PKCS serves PKCS#1 blocks in its place, other blocks to be
//    signed get CKR_MECHANISM_INVALID;
//  - RSA signatures and raw RSA decryptions have the modulus's length: shorter ones are padded on
//    the left, empty and longer ones are CKR_DEVICE_ERROR;
//  - a key that wants a login for each operation gets it, with the PIN that the token has accepted;
//  - a key handle that the module refuses is replaced by what the search for it finds now;
//  - a null pointer with length 0 is empty input.
// The caller's buffer is written only here, never by the module. Not synchronised.
class KeyOperation {
 public:
  // The operation of the caller's session `session`, which was opened on the token of `objects`
  // with `flags`; `pin` is what that token has accepted. The references must outlive the object.
  KeyOperation(TokenObjects& objects, LockedPin& pin, CK_SESSION_HANDLE session, CK_FLAGS flags,
               NewHandle note)
      : objects_(&objects),
        pin_(&pin),
        inner_(&objects.inner()),
        session_(session),
        worker_(objects.inner(), objects.slot(), flags, session, std::move(note)) {}
  ~KeyOperation() { Forget(); }
  KeyOperation(const KeyOperation&) = delete;
  KeyOperation& operator=(const KeyOperation&) = delete;

  // C_SignInit, C_DecryptInit.
  CK_RV Init(OperationKind kind, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key);

  // C_Sign, C_Decrypt.
  CK_RV Run(OperationKind kind, const CK_BYTE* input, CK_ULONG input_size, CK_BYTE* output,
            CK_ULONG* output_size);

  // Ends the operation and closes the worker.
  void Close();

  // Ends the operation and forgets the worker without a call.
  void Drop();

  bool HasWorker(CK_SESSION_HANDLE handle) const {
    return worker_.is_open() && worker_.handle() == handle;
  }

  // Closes a worker that has nothing to do; whether there was one.
  bool CloseIdleWorker();

  // The session on which an operation is under way, for a login that belongs to it.
  std::optional<CK_SESSION_HANDLE> ActiveSession() const;

  // Whether the token is to be logged out, so that its user is asked for the PIN again: a key found
  // none that it could use. True once after each such operation.
  bool TakeLogoutRequest() { return std::exchange(wants_logout_, false); }

 private:
  enum class Form { kPlain, kEcdsa, kRsa, kRsaRaw, kRsaRawByPkcs };

  Form FormOf(CK_MECHANISM_TYPE mechanism) const;
  CK_RV Begin(CK_MECHANISM mechanism, CK_OBJECT_HANDLE key);
  CK_RV Start();
  CK_RV LogIn();
  CK_RV CallModule(CK_BYTE* input, CK_ULONG size, CK_BYTE* output, CK_ULONG* output_size);
  CK_RV LearnKeySize(ByteView input);
  CK_RV Shape(ByteView* input, Bytes* shaped) const;
  CK_RV Collect(ByteView input);
  CK_RV ShapeResult();
  CK_RV FillModulus();
  CK_RV Deliver(CK_BYTE* output, CK_ULONG* output_size);
  CK_RV Fail(CK_RV result);
  void Forget();

  TokenObjects* objects_;
  LockedPin* pin_;
  const CK_FUNCTION_LIST* inner_;
  CK_SESSION_HANDLE session_;
  WorkerSession worker_;

  std::optional<OperationKind> kind_;  // nothing: no operation
  Form form_ = Form::kPlain;
  CK_MECHANISM mechanism_ = {};  // that the module is asked for
  CK_OBJECT_HANDLE key_ = CK_INVALID_HANDLE;
  bool wants_login_ = false;  // the key does, for each operation
  std::size_t key_size_ = 0;  // bytes of the modulus or of a coordinate; 0: not known
  bool wants_logout_ = false;
  bool has_result_ = false;  // the module is done, the caller has not got it yet
  Bytes result_;
  Bytes room_;  // where the module writes
};

}  // namespace kelvrin::adapter
