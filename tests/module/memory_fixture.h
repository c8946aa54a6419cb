// Calls to the memory module as a well-behaved caller makes them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/module/memory_module.h"

namespace kelvrin {

class MemoryModuleTest : public testing::Test {
 protected:
  using Bytes = MemoryObject::Bytes;

  MemoryModuleTest() { module.Reset(); }
  ~MemoryModuleTest() override { module.Reset(); }

  CK_SESSION_HANDLE Open(const MemoryCard& on) {
    CK_SESSION_HANDLE session = 0;
    const CK_FLAGS flags = CKF_SERIAL_SESSION | CKF_RW_SESSION;
    EXPECT_EQ(p11->C_OpenSession(on.slot, flags, nullptr, nullptr, &session), CKR_OK);
    return session;
  }
  CK_RV LogIn(CK_SESSION_HANDLE session, std::string pin = "123456", CK_USER_TYPE user = CKU_USER) {
    return p11->C_Login(session, user, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
  }
  // All of this class; the search is finished.
  std::vector<CK_OBJECT_HANDLE> Find(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class) {
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    EXPECT_EQ(p11->C_FindObjectsInit(session, &wanted, 1), CKR_OK);
    std::vector<CK_OBJECT_HANDLE> found(20);
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_FindObjects(session, found.data(), found.size(), &count), CKR_OK);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
    found.resize(count);
    return found;
  }
  CK_RV Read(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
             Bytes* value, CK_ULONG* length) {
    CK_ATTRIBUTE attribute = {type, value->data(), value->size()};
    const CK_RV result = p11->C_GetAttributeValue(session, object, &attribute, 1);
    *length = attribute.ulValueLen;
    if (result == CKR_OK && *length <= value->size()) value->resize(*length);
    return result;
  }
  CK_RV Sign(CK_SESSION_HANDLE session, CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key, Bytes input,
             Bytes* output) {
    CK_MECHANISM mechanism = {type, nullptr, 0};
    const CK_RV begun = p11->C_SignInit(session, &mechanism, key);
    if (begun != CKR_OK) return begun;
    return Finish(p11->C_Sign, session, std::move(input), output);
  }
  CK_RV Decrypt(CK_SESSION_HANDLE session, CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key,
                Bytes input, Bytes* output) {
    CK_MECHANISM mechanism = {type, nullptr, 0};
    const CK_RV begun = p11->C_DecryptInit(session, &mechanism, key);
    if (begun != CKR_OK) return begun;
    return Finish(p11->C_Decrypt, session, std::move(input), output);
  }
  CK_RV Derive(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, Bytes point,
               std::vector<CK_ATTRIBUTE> attributes, CK_OBJECT_HANDLE* derived) {
    CK_ECDH1_DERIVE_PARAMS parameters = {};
    parameters.kdf = CKD_NULL;
    parameters.pPublicData = point.data();
    parameters.ulPublicDataLen = point.size();
    CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
    return p11->C_DeriveKey(session, &mechanism, key, attributes.data(), attributes.size(),
                            derived);
  }

  MemoryModule& module = MemoryModule::Instance();
  CK_FUNCTION_LIST* const p11 = module.functions();

 private:
  static CK_RV Finish(decltype(CK_FUNCTION_LIST::C_Sign) function, CK_SESSION_HANDLE session,
                      Bytes input, Bytes* output) {
    output->resize(1024);
    CK_ULONG size = output->size();
    const CK_RV result = function(session, input.data(), input.size(), output->data(), &size);
    output->resize(result == CKR_OK && size <= output->size() ? size : 0);
    return result;
  }
};

}  // namespace kelvrin
