// Calls that the library hands on to the module, and those of which it serves one half itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <string>

#include "adapter/testing/copies_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_ULONG kUnlimited = std::numeric_limits<CK_ULONG>::max();
constexpr std::size_t kBlock = 16;

class ForwardedTest : public CopiesTest {
 protected:
  void Start(const std::string& lines = "") {
    card_ = Card(Load("libX", lines));
    BringUp(&card_);
    CK_ULONG length = kBlock;
    CK_ATTRIBUTE attributes[] = {{CKA_VALUE_LEN, &length, sizeof(length)}};
    CK_MECHANISM mechanism = {CKM_AES_KEY_GEN, nullptr, 0};
    ASSERT_EQ(p11()->C_GenerateKey(card_.session, &mechanism, attributes, 1, &key_), CKR_OK);
  }
  CK_FUNCTION_LIST* p11() const { return card_.p11; }

  CK_RV EncryptInit() {
    CK_MECHANISM mechanism = {CKM_AES_CBC, iv_.data(), iv_.size()};
    return p11()->C_EncryptInit(card_.session, &mechanism, key_);
  }
  CK_RV DecryptInit() {
    CK_MECHANISM mechanism = {CKM_AES_CBC, iv_.data(), iv_.size()};
    return p11()->C_DecryptInit(card_.session, &mechanism, key_);
  }
  CK_RV DigestInit() {
    CK_MECHANISM mechanism = {CKM_SHA256, nullptr, 0};
    return p11()->C_DigestInit(card_.session, &mechanism);
  }
  // The whole of `text` encrypted at once.
  Bytes Encrypted(Bytes text) {
    EXPECT_EQ(EncryptInit(), CKR_OK);
    Bytes out(text.size());
    CK_ULONG size = out.size();
    EXPECT_EQ(p11()->C_Encrypt(card_.session, text.data(), text.size(), out.data(), &size), CKR_OK);
    return out;
  }
  Bytes Digest(Bytes text) {
    EXPECT_EQ(DigestInit(), CKR_OK);
    Bytes out(32);
    CK_ULONG size = out.size();
    EXPECT_EQ(p11()->C_Digest(card_.session, text.data(), text.size(), out.data(), &size), CKR_OK);
    return out;
  }

  Card card_{nullptr};
  CK_OBJECT_HANDLE key_ = 0;
  Bytes iv_ = Bytes(kBlock, 3);
  const Bytes text_ = Bytes(2 * kBlock, 5);
};

TEST_F(ForwardedTest, SmallBufferKeepsTheOperation) {
  Start();
  const Bytes expected = Encrypted(text_);
  Bytes text = text_;
  Bytes out(2 * kBlock, 0xee);
  ASSERT_EQ(EncryptInit(), CKR_OK);
  CK_ULONG size = kBlock;
  EXPECT_EQ(p11()->C_Encrypt(card_.session, text.data(), text.size(), out.data(), &size),
            CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 2 * kBlock);
  EXPECT_EQ(out, Bytes(2 * kBlock, 0xee));
  EXPECT_EQ(p11()->C_Encrypt(card_.session, text.data(), text.size(), nullptr, &size), CKR_OK);
  EXPECT_EQ(size, 2 * kBlock);
  size = kUnlimited;
  EXPECT_EQ(p11()->C_Encrypt(card_.session, text.data(), text.size(), out.data(), &size), CKR_OK);
  EXPECT_EQ(size, 2 * kBlock);
  EXPECT_EQ(out, expected);
}

TEST_F(ForwardedTest, MissingPointersAreRefusedByTheAdapter) {
  Start();
  watch_.behind = nullptr;  // any call would crash
  EXPECT_EQ(p11()->C_DigestInit(card_.session, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(p11()->C_CreateObject(card_.session, nullptr, 0, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(p11()->C_GetSessionInfo(card_.session, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(p11()->C_GenerateRandom(card_.session, nullptr, 1), CKR_ARGUMENTS_BAD);
  watch_.behind = softhsm_;
}

TEST_F(ForwardedTest, NewObjectIsFoundAtOnceAndADestroyedOneNoMore) {
  Start();
  CK_OBJECT_CLASS object_class = CKO_CERTIFICATE;
  CK_CERTIFICATE_TYPE type = CKC_X_509;
  CK_BYTE id = 2;
  Bytes value = {0x30, 0x00};
  CK_ATTRIBUTE attributes[] = {{CKA_CLASS, &object_class, sizeof(object_class)},
                               {CKA_CERTIFICATE_TYPE, &type, sizeof(type)},
                               {CKA_ID, &id, sizeof(id)},
                               {CKA_SUBJECT, value.data(), value.size()},
                               {CKA_VALUE, value.data(), value.size()}};
  const auto certificates = [&] {
    std::array<CK_OBJECT_HANDLE, 10> found = {};
    CK_ULONG count = 0;
    EXPECT_EQ(card_.FindInit(CKO_CERTIFICATE, 2), CKR_OK);
    EXPECT_EQ(p11()->C_FindObjects(card_.session, found.data(), found.size(), &count), CKR_OK);
    return count;
  };
  EXPECT_EQ(certificates(), 1u);
  CK_OBJECT_HANDLE made = 0;
  ASSERT_EQ(p11()->C_CreateObject(card_.session, attributes, 5, &made), CKR_OK);
  EXPECT_EQ(certificates(), 2u);
  CK_BYTE other_id = 0x66;
  CK_ATTRIBUTE moved = {CKA_ID, &other_id, sizeof(other_id)};
  ASSERT_EQ(p11()->C_SetAttributeValue(card_.session, made, &moved, 1), CKR_OK);
  EXPECT_EQ(certificates(), 1u);
  EXPECT_EQ(p11()->C_DestroyObject(card_.session, made), CKR_OK);
}

TEST_F(ForwardedTest, SigningAndEncryptingAtOnce) {
  Start();
  const Bytes expected = Encrypted(text_);
  ASSERT_EQ(card_.SignInit(CKM_SHA256_RSA_PKCS, card_.Find(CKO_PRIVATE_KEY, 1)), CKR_OK);
  ASSERT_EQ(EncryptInit(), CKR_OK);
  Bytes text = text_;
  Bytes out(text.size());
  CK_ULONG size = kBlock;
  EXPECT_EQ(p11()->C_SignEncryptUpdate(card_.session, text.data(), text.size(), out.data(), &size),
            CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, out.size());
  EXPECT_EQ(p11()->C_SignEncryptUpdate(card_.session, text.data(), text.size(), out.data(), &size),
            CKR_OK);
  EXPECT_EQ(out, expected);
  Bytes signature(256);
  CK_ULONG signature_size = signature.size();
  EXPECT_EQ(p11()->C_SignFinal(card_.session, signature.data(), &signature_size), CKR_OK);
  size = 0;
  EXPECT_EQ(p11()->C_EncryptFinal(card_.session, nullptr, &size), CKR_OK);
  EXPECT_EQ(p11()->C_EncryptFinal(card_.session, out.data(), &size), CKR_OK);
  const OpensslKey key = ReadPublicKey(soft_card_.File("rsa.pub.pem"));
  const Bytes block = RawRsaPublic(key.get(), signature);
  const Bytes digest = Digest(text_);
  EXPECT_EQ(Bytes(block.end() - 32, block.end()), digest);
}

TEST_F(ForwardedTest, DecryptingAndDigestingAtOnce) {
  Start();
  Bytes encrypted = Encrypted(text_);
  const Bytes expected = Digest(text_);
  ASSERT_EQ(DecryptInit(), CKR_OK);
  ASSERT_EQ(DigestInit(), CKR_OK);
  Bytes plain(encrypted.size());
  CK_ULONG size = plain.size();
  EXPECT_EQ(p11()->C_DecryptDigestUpdate(card_.session, encrypted.data(), encrypted.size(),
                                         plain.data(), &size),
            CKR_OK);
  EXPECT_EQ(plain, text_);
  Bytes digest(32);
  size = digest.size();
  EXPECT_EQ(p11()->C_DigestFinal(card_.session, digest.data(), &size), CKR_OK);
  EXPECT_EQ(digest, expected);
}

TEST_F(ForwardedTest, WithoutWorkersDualCallsAreTheModulesAffair) {
  Start("rules-off = worker-sessions\n");
  Bytes text = text_;
  CK_ULONG size = text.size();
  const CK_RV raw =
      softhsm_->C_SignEncryptUpdate(card_.session, text.data(), text.size(), text.data(), &size);
  EXPECT_NE(raw, CKR_OPERATION_NOT_INITIALIZED);  // what the adapter says for itself
  EXPECT_EQ(p11()->C_SignEncryptUpdate(card_.session, text.data(), text.size(), text.data(), &size),
            raw);
}

CK_FUNCTION_LIST* called_back = nullptr;
CK_RV answer = CKR_OK;

TEST_F(ForwardedTest, ModuleThatCallsBackIsRefusedAndTheCallGoesOn) {
  Start();
  called_back = p11();
  watch_.on_sign = [] {
    CK_INFO info = {};
    answer = called_back->C_GetInfo(&info);
  };
  EXPECT_TRUE(Signs(card_));
  EXPECT_EQ(answer, CKR_FUNCTION_FAILED);
}

CK_OBJECT_HANDLE handed_out = 0;

// The caller means by a handle what he made last, not what he once searched for.
TEST_F(ForwardedTest, HandleThatTheModuleGivesOutAgainIsTheNewObjects) {
  Start();
  CK_FUNCTION_LIST module = *softhsm_;
  module.C_CreateObject = [](CK_SESSION_HANDLE, CK_ATTRIBUTE*, CK_ULONG,
                             CK_OBJECT_HANDLE* object) -> CK_RV {
    *object = handed_out;
    return CKR_OK;
  };
  module.C_GenerateKeyPair = [](CK_SESSION_HANDLE, CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG,
                                CK_ATTRIBUTE*, CK_ULONG, CK_OBJECT_HANDLE* public_key,
                                CK_OBJECT_HANDLE* private_key) -> CK_RV {
    *public_key = 4711;
    *private_key = handed_out;
    return CKR_OK;
  };
  const auto create = [&](CK_OBJECT_HANDLE handle) {
    handed_out = handle;
    return p11()->C_CreateObject(card_.session, nullptr, 0, &handle);
  };
  const auto generate = [&](CK_OBJECT_HANDLE handle) {
    handed_out = handle;
    CK_MECHANISM mechanism = {CKM_EC_KEY_PAIR_GEN, nullptr, 0};
    CK_OBJECT_HANDLE public_key = 0;
    return p11()->C_GenerateKeyPair(card_.session, &mechanism, nullptr, 0, nullptr, 0, &public_key,
                                    &handle);
  };
  watch_.behind = &module;
  CK_BYTE id = 2;
  for (const auto& make : {std::function<CK_RV(CK_OBJECT_HANDLE)>(create),
                           std::function<CK_RV(CK_OBJECT_HANDLE)>(generate)}) {
    const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, id);
    CK_ATTRIBUTE new_id = {CKA_ID, &++id, sizeof(id)};
    ASSERT_EQ(softhsm_->C_SetAttributeValue(card_.session, key, &new_id, 1), CKR_OK);
    EXPECT_EQ(make(key_), CKR_OK);
    EXPECT_EQ(card_.SignInit(CKM_ECDSA, key), CKR_KEY_HANDLE_INVALID) << "searched for by its id";
    EXPECT_EQ(make(key), CKR_OK);
    Bytes signature;
    EXPECT_EQ(card_.SignInit(CKM_ECDSA, key), CKR_OK);
    EXPECT_EQ(card_.Sign(Bytes(32, 7), &signature), CKR_OK);
  }
  watch_.behind = softhsm_;
}

TEST_F(ForwardedTest, TemplateOfAKeyIsReadAsFromTheModule) {
  Start("rules-off = failed-lengths\n");
  CK_OBJECT_CLASS object_class = CKO_SECRET_KEY;
  Bytes label = {'a', 'b', 'c'};
  CK_ATTRIBUTE wrapped[] = {{CKA_CLASS, &object_class, sizeof(object_class)},
                            {CKA_LABEL, label.data(), label.size()}};
  CK_ULONG length = kBlock;
  CK_ATTRIBUTE attributes[] = {{CKA_VALUE_LEN, &length, sizeof(length)},
                               {CKA_WRAP_TEMPLATE, wrapped, sizeof(wrapped)}};
  CK_MECHANISM mechanism = {CKM_AES_KEY_GEN, nullptr, 0};
  CK_OBJECT_HANDLE key = 0;
  ASSERT_EQ(p11()->C_GenerateKey(card_.session, &mechanism, attributes, 2, &key), CKR_OK);
  for (const CK_ULONG room : {label.size(), label.size() - 1}) {
    std::array<Bytes, 2> values;
    std::array<CK_ULONG, 2> lengths = {};
    std::array<CK_RV, 2> results = {};
    const std::array<const CK_FUNCTION_LIST*, 2> functions = {softhsm_, p11()};
    for (std::size_t i = 0; i < functions.size(); ++i) {
      values[i] = Bytes(room);
      CK_OBJECT_CLASS read_class = 0;
      CK_ATTRIBUTE entries[] = {{CKA_CLASS, &read_class, sizeof(read_class)},
                                {CKA_LABEL, values[i].data(), room}};
      CK_ATTRIBUTE read = {CKA_WRAP_TEMPLATE, entries, sizeof(entries)};
      results[i] = functions[i]->C_GetAttributeValue(card_.session, key, &read, 1);
      lengths[i] = entries[1].ulValueLen;
      EXPECT_EQ(read_class, object_class);
    }
    EXPECT_EQ(results[0], room < label.size() ? CKR_BUFFER_TOO_SMALL : CKR_OK);
    EXPECT_EQ(results[1], results[0]);
    EXPECT_EQ(lengths[1], lengths[0]);
    EXPECT_EQ(values[1], values[0]);
  }
}

TEST_F(ForwardedTest, KeyThatGotAnotherIdFromItsCallerSigns) {
  Start();
  const CK_OBJECT_HANDLE key = card_.Find(CKO_PRIVATE_KEY, 2);
  CK_BYTE id = 9;
  CK_ATTRIBUTE attribute = {CKA_ID, &id, sizeof(id)};
  ASSERT_EQ(p11()->C_SetAttributeValue(card_.session, key, &attribute, 1), CKR_OK);
  EXPECT_EQ(card_.SignInit(CKM_ECDSA, key), CKR_OK);
}

}  // namespace
}  // namespace kelvrin::adapter
