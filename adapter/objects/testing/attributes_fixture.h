// Reading attributes of a card's objects through the adapter.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "adapter/objects/attributes.h"
#include "adapter/testing/card_fixture.h"
#include "encoding/testing/certificates.h"
#include "tests/module/faults.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {

using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

class AttributesTest : public CardTest {
 protected:
  CK_OBJECT_HANDLE AddKey(CK_OBJECT_CLASS object_class, CK_KEY_TYPE type,
                          decltype(MemoryObject::attributes) more = {}) {
    more[CKA_KEY_TYPE] = MemoryObject::Number(type);
    return Add(object_class, {1}, std::move(more));
  }
  // A public key that only the adapter has.
  CK_OBJECT_HANDLE MakeVirtual(EVP_PKEY* key, const std::string& label = "x") {
    card_.AddCertificate({7}, label, encoding::MakeCertificateOf(key, {}));
    CK_OBJECT_CLASS object_class = CKO_PUBLIC_KEY;
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    Handles found;
    EXPECT_EQ(objects_.Find(session_, {&wanted, 1}, &found), CKR_OK);
    return found.at(0);
  }
  CK_RV Get(CK_OBJECT_HANDLE object, std::span<CK_ATTRIBUTE> attributes) {
    return GetAttributes(objects_, session_, object, attributes);
  }
  // One attribute, read into `room` bytes; the length is kept.
  CK_RV Get(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, std::size_t room = 1024) {
    value_.assign(room + 1, 0xee);
    CK_ATTRIBUTE attribute = {type, value_.data(), room};
    const CK_RV result = Get(object, {&attribute, 1});
    EXPECT_EQ(value_.back(), 0xee) << "written past the end";
    length_ = attribute.ulValueLen;
    value_.resize(std::min<std::size_t>(length_, room));
    return result;
  }
  Bytes Value(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    EXPECT_EQ(Get(object, type), CKR_OK);
    return value_;
  }
  std::string Label(CK_OBJECT_HANDLE object) {
    const Bytes value = Value(object, CKA_LABEL);
    return {value.begin(), value.end()};
  }
  Mechanisms Allowed(CK_OBJECT_HANDLE object) {
    const Bytes value = Value(object, CKA_ALLOWED_MECHANISMS);
    Mechanisms list(value.size() / sizeof(CK_MECHANISM_TYPE));
    if (!value.empty()) std::memcpy(list.data(), value.data(), value.size());
    return list;
  }
  static Bytes List(const Mechanisms& mechanisms) {
    Bytes bytes(mechanisms.size() * sizeof(CK_MECHANISM_TYPE));
    if (!bytes.empty()) std::memcpy(bytes.data(), mechanisms.data(), bytes.size());
    return bytes;
  }
  // The slot's mechanisms change, as with another token.
  void Offer(const Mechanisms& mechanisms) {
    card_.mechanisms = mechanisms;
    objects_.Forget();
  }
  // The module claims this length of every attribute that it reads, whatever comes of it.
  void Claim(CK_ULONG length) {
    faults::Spoils(module, [=](auto*, CK_ATTRIBUTE& attribute, CK_ULONG, CK_RV result) {
      attribute.ulValueLen = length;
      return result;
    });
  }

  TokenObjects objects_{inner_, rules_, slot_};
  Bytes value_;
  CK_ULONG length_ = 0;
};

}  // namespace kelvrin::adapter
