// The objects on the fault module's token.
#ifndef KELVRIN_ADAPTER_TESTING_FAULT_MODULE_TOKEN_H_
#define KELVRIN_ADAPTER_TESTING_FAULT_MODULE_TOKEN_H_

#include <openssl/evp.h>
#include <p11-kit/pkcs11.h>

#include <map>
#include <memory>
#include <vector>

#include "adapter/testing/fault_module.h"

namespace kelvrin::adapter::fault_module {

using Bytes = std::vector<CK_BYTE>;

struct Object {
  std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes;
  std::shared_ptr<EVP_PKEY> key;  // of a private key
  bool is_private = false;        // not to be seen before the login
};

// The bytes of a number and of a flag.
Bytes Number(CK_ULONG value);
Bytes Flag(bool value);

// The token's objects with that fault, in the order in which searches find them: an RSA key pair
// (CKA_ID 01) and one on P-256 (CKA_ID 02) with their certificates, and whatever the fault adds.
// Keys and certificates are new ones. Throws std::runtime_error.
std::vector<Object> MakeObjects(Fault fault);

}  // namespace kelvrin::adapter::fault_module

#endif  // KELVRIN_ADAPTER_TESTING_FAULT_MODULE_TOKEN_H_
