// The extension's road over a module, made of the calls that the extension makes, in its order.
#ifndef KELVRIN_ADAPTER_TESTING_FAULT_MODULE_ROAD_H_
#define KELVRIN_ADAPTER_TESTING_FAULT_MODULE_ROAD_H_

#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "adapter/testing/openssl_check.h"

namespace kelvrin::adapter {

// One journey from the module's path to signatures, plain texts and secrets, all of them checked by
// OpenSSL with the public keys of the certificates that were read on the way. What the module must
// hold is what the fault module holds. The journey goes on after a failure where the extension
// would.
class Road {
 public:
  using Bytes = std::vector<unsigned char>;

  explicit Road(std::filesystem::path module) : path_(std::move(module)) {}
  // Finalises and unloads the module.
  ~Road();
  Road(const Road&) = delete;
  Road& operator=(const Road&) = delete;

  // The whole journey: what failed, one line each, beginning with the step's name.
  std::vector<std::string> Walk();

  // Its parts, in their order. The first and the third tell whether the next may follow.
  bool SetUp();
  void AskForSupport();
  bool LogIn();
  void Sign();
  void Decrypt();
  void Agree();
  void ReadWhatCannotBeRead();
  void FailAndGoOn();

  // A signature, as the extension makes one.
  CK_RV SignWith(CK_BYTE id, CK_MECHANISM_TYPE mechanism, const Bytes& data, Bytes* signature,
                 CK_ULONG room = 1024);
  const std::vector<std::string>& failures() const { return failures_; }

 private:
  struct Usage;

  void Note(const std::string& step, const std::string& what);
  bool Succeeded(const std::string& step, CK_RV result);
  bool ReadCertificate(CK_OBJECT_HANDLE certificate, Usage* usage, std::string* listed);
  void AskForSupport(CK_BYTE id, CK_ATTRIBUTE_TYPE usage, CK_MECHANISM_TYPE mechanism,
                     const char* name);
  CK_RV FindPrivateKey(CK_BYTE id, CK_OBJECT_HANDLE* key);
  void SignBlock(const std::string& step, const Bytes& block);
  void SignDigest(CK_MECHANISM_TYPE mechanism, std::size_t size);
  CK_RV DecryptWith(CK_MECHANISM_TYPE mechanism, const Bytes& sealed, Bytes* opened);
  void DecryptText(const std::string& step, CK_MECHANISM_TYPE mechanism, bool drops_zero);
  void AgreeOnce(const std::string& step, bool is_der);

  std::filesystem::path path_;
  void* module_ = nullptr;
  CK_FUNCTION_LIST* p11_ = nullptr;
  CK_SLOT_ID slot_ = 0;
  CK_SESSION_HANDLE session_ = 0;
  std::map<CK_BYTE, OpensslKey> public_keys_;
  std::vector<std::string> failures_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_FAULT_MODULE_ROAD_H_
