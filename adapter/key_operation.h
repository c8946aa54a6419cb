// Signing and decrypting for one caller's session.
#ifndef KELVRIN_ADAPTER_KEY_OPERATION_H_
#define KELVRIN_ADAPTER_KEY_OPERATION_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <thread>

#include "adapter/context_login.h"
#include "adapter/bytes.h"
#include "adapter/token_objects.h"
#include "adapter/worker_session.h"

namespace kelvrin::adapter {

enum class OperationKind { kSign, kDecrypt };

// The private-key operation of a caller's session: at most one at a time, signing or decrypting, on
// a worker session of its own. What differs from the module's own behaviour:
//  - an operation that failed leaves nothing behind, also when the caller's buffer was too small:
//    the caller may call again with a larger one, or begin anew;
//  - CKM_ECDSA and CKM_ECDSA_SHA1 take a digest, cut it to the curve's size and give DER;
//  - CKM_RSA_X_509 takes input of up to the modulus's length and pads it with zeros on the left;
//    where the module lacks it, CKM_RSA_PKCS serves PKCS#1 blocks in its place, other blocks to be
//    signed get CKR_MECHANISM_INVALID;
//  - a key that wants a login for each operation gets it;
//  - a key handle that the module refuses is replaced by what the search for it finds now;
//  - a null pointer with length 0 is empty input.
// The caller's buffer is written only here, never by the module. Not synchronised.
class KeyOperation {
 public:
  // The operation of the caller's session `session`, which was opened on the token of `objects`
  // with `flags`. The references must outlive the object.
  KeyOperation(TokenObjects& objects, ContextLogin& login, SessionHandles& handles,
               CK_SESSION_HANDLE session, CK_FLAGS flags)
      : objects_(&objects),
        login_(&login),
        inner_(&objects.inner()),
        session_(session),
        worker_(objects.inner(), handles, objects.slot(), flags, session,
                objects.rules().Has(Rule::kWorkerSessions)) {}
  ~KeyOperation() { Forget(); }
  KeyOperation(const KeyOperation&) = delete;
  KeyOperation& operator=(const KeyOperation&) = delete;

  // C_SignInit, C_DecryptInit. CKR_OPERATION_ACTIVE when an operation is under way that has not
  // failed yet.
  CK_RV Init(OperationKind kind, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key);

  // C_Sign, C_Decrypt.
  CK_RV Run(OperationKind kind, const CK_BYTE* input, CK_ULONG input_size, CK_BYTE* output,
            CK_ULONG* output_size);

  // C_SignUpdate. Like the other functions for parts it is CKR_FUNCTION_NOT_SUPPORTED and ends the
  // operation where the adapter shapes the input as a whole.
  CK_RV SignUpdate(CK_BYTE* part, CK_ULONG size);

  // C_DecryptUpdate.
  CK_RV DecryptUpdate(CK_BYTE* part, CK_ULONG size, CK_BYTE* output, CK_ULONG* output_size);

  // C_SignFinal, C_DecryptFinal.
  CK_RV Final(OperationKind kind, CK_BYTE* output, CK_ULONG* output_size);

  // Whether an operation of this kind is under way.
  bool IsUnderWay(OperationKind kind);

  // Ends the operation and closes the worker.
  void Close();

  // Closes a worker that has nothing to do; whether there was one.
  bool CloseIdleWorker();

  // The session on which an operation is under way, for a login that belongs to it.
  std::optional<CK_SESSION_HANDLE> ActiveSession() const;

  // Whether the module's part in the operation is all of it: nothing is shaped here.
  bool IsPlain() const { return form_ == Form::kPlain; }

  const WorkerSession& worker() const { return worker_; }

 private:
  enum class Form { kPlain, kEcdsaDigest, kEcdsaMessage, kRsaRaw, kRsaRawByPkcs };
  // Calls the module's function with a buffer and its size.
  using Call = std::function<CK_RV(CK_BYTE* output, CK_ULONG* size)>;

  Form FormOf(OperationKind kind, CK_MECHANISM_TYPE mechanism) const;
  CK_RV BeginWithCurrent(OperationKind kind, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key);
  CK_RV Begin(OperationKind kind, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE key);
  bool TakesParts() const { return form_ == Form::kPlain || form_ == Form::kEcdsaMessage; }
  bool IsEcdsa() const { return form_ == Form::kEcdsaDigest || form_ == Form::kEcdsaMessage; }
  void LearnKeySize(ByteView input);
  CK_RV Shape(ByteView* input, Bytes* shaped) const;
  CK_RV Finish(const Call& call, std::size_t room, CK_BYTE* output, CK_ULONG* output_size);
  CK_RV AskSize(const Call& call, CK_ULONG* output_size);
  CK_RV Collect(const Call& call, std::size_t room);
  CK_RV ShapeResult();
  CK_RV Deliver(CK_BYTE* output, CK_ULONG* output_size);
  CK_RV Fail(CK_RV result);
  void Forget();

  TokenObjects* objects_;
  ContextLogin* login_;
  const CK_FUNCTION_LIST* inner_;
  CK_SESSION_HANDLE session_;
  WorkerSession worker_;

  std::optional<OperationKind> kind_;  // nothing: no operation
  Form form_ = Form::kPlain;
  std::size_t key_size_ = 0;             // bytes of the modulus or of a coordinate; 0: not known
  bool replaceable_ = false;             // the last call met a small buffer: a new Init may follow
  std::thread::id owner_;                // who began the operation
  std::set<std::thread::id> displaced_;  // whose operation was replaced by another thread's
  bool has_result_ = false;              // the module is done, the caller has not got it yet
  Bytes result_;
  Bytes room_;  // where the module writes
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_KEY_OPERATION_H_
