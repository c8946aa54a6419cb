// Attributes whose value is a template itself.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <vector>

#include "adapter/attributes.h"
#include "adapter/testing/token_objects_fixture.h"

namespace kelvrin::adapter {
namespace {

// What the module does with the first attribute that it is asked for.
std::function<CK_RV(CK_ATTRIBUTE* attribute)> answer;

class NestedTemplatesTest : public TokenObjectsTest {
 protected:
  NestedTemplatesTest() {
    functions_.C_GetAttributeValue = [](CK_SESSION_HANDLE, CK_OBJECT_HANDLE,
                                        CK_ATTRIBUTE* attributes,
                                        CK_ULONG) { return answer(attributes); };
  }
  ~NestedTemplatesTest() override { answer = nullptr; }

  CK_RV Read(CK_OBJECT_HANDLE object = 1) {
    return GetAttributes(objects_, session_, object, {&outer_, 1});
  }
  // The module gives two attributes: a class, and an id of `size` bytes.
  static CK_RV GiveTwo(CK_ATTRIBUTE* attribute, CK_ULONG size) {
    auto* const entries = static_cast<CK_ATTRIBUTE*>(attribute->pValue);
    const CK_OBJECT_CLASS object_class = CKO_SECRET_KEY;
    std::memcpy(entries[0].pValue, &object_class, sizeof(object_class));
    entries[0].type = CKA_CLASS;
    entries[0].ulValueLen = sizeof(object_class);
    entries[1].type = CKA_ID;
    entries[1].ulValueLen = size;
    attribute->ulValueLen = 2 * sizeof(CK_ATTRIBUTE);
    return CKR_OK;
  }
  void ExpectOwnPointers() const {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      EXPECT_EQ(entries_[i].pValue, rooms_[i].data()) << i;
    }
  }

  std::array<std::array<CK_BYTE, 8>, 3> rooms_ = {};
  std::array<CK_ATTRIBUTE, 3> entries_ = {{{0, rooms_[0].data(), rooms_[0].size()},
                                           {0, rooms_[1].data(), rooms_[1].size()},
                                           {0, rooms_[2].data(), rooms_[2].size()}}};
  CK_ATTRIBUTE outer_ = {CKA_WRAP_TEMPLATE, entries_.data(), sizeof(entries_)};
};

TEST_F(NestedTemplatesTest, TypesAndLengthsOfItsAttributesGetToTheCaller) {
  answer = [](CK_ATTRIBUTE* attribute) { return GiveTwo(attribute, 3); };
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(outer_.ulValueLen, 2 * sizeof(CK_ATTRIBUTE));
  EXPECT_EQ(entries_[0].type, CKA_CLASS);
  EXPECT_EQ(entries_[0].ulValueLen, sizeof(CK_OBJECT_CLASS));
  EXPECT_EQ(rooms_[0][0], CKO_SECRET_KEY);
  EXPECT_EQ(entries_[1].type, CKA_ID);
  EXPECT_EQ(entries_[1].ulValueLen, 3u);
  ExpectOwnPointers();
}

TEST_F(NestedTemplatesTest, LengthBeyondItsRoomIsAFailure) {
  for (const CK_ULONG claimed : {CK_ULONG{9}, CK_ULONG{1} << 30}) {
    answer = [&](CK_ATTRIBUTE* attribute) { return GiveTwo(attribute, claimed); };
    outer_.ulValueLen = sizeof(entries_);
    entries_[1].ulValueLen = rooms_[1].size();
    EXPECT_EQ(Read(), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(entries_[1].ulValueLen, 0u);
  }
}

TEST_F(NestedTemplatesTest, LengthMinusOneIsAFailureAndZero) {
  answer = [](CK_ATTRIBUTE* attribute) { return GiveTwo(attribute, CK_UNAVAILABLE_INFORMATION); };
  EXPECT_EQ(Read(), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(entries_[1].ulValueLen, 0u);
  rules_.SwitchOff(Rule::kFailedLengths);
  outer_.ulValueLen = sizeof(entries_);
  entries_[1].ulValueLen = rooms_[1].size();
  EXPECT_EQ(Read(), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(entries_[1].ulValueLen, CK_UNAVAILABLE_INFORMATION);
}

TEST_F(NestedTemplatesTest, AttributeThatDidNotFitHasNoLength) {
  answer = [](CK_ATTRIBUTE* attribute) -> CK_RV {
    GiveTwo(attribute, CK_UNAVAILABLE_INFORMATION);
    return CKR_BUFFER_TOO_SMALL;
  };
  for (const CK_ULONG no_length : {CK_ULONG{0}, CK_UNAVAILABLE_INFORMATION}) {
    outer_.ulValueLen = sizeof(entries_);
    EXPECT_EQ(Read(), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(entries_[0].ulValueLen, sizeof(CK_OBJECT_CLASS));
    EXPECT_EQ(entries_[1].ulValueLen, no_length);
    rules_.SwitchOff(Rule::kFailedLengths);
  }
}

TEST_F(NestedTemplatesTest, PointersAreTheCallersWhateverTheModuleAnswers) {
  for (const CK_RV result : {CKR_OK, CKR_BUFFER_TOO_SMALL, CKR_DEVICE_ERROR}) {
    answer = [&](CK_ATTRIBUTE* attribute) -> CK_RV {
      for (std::size_t i = 0; i < 3; ++i) {
        static_cast<CK_ATTRIBUTE*>(attribute->pValue)[i] = {
            CKA_ID, reinterpret_cast<void*>(0x41414141), CK_ULONG{1} << 30};
      }
      return result;
    };
    outer_.ulValueLen = sizeof(entries_);
    for (CK_ATTRIBUTE& entry : entries_) entry.ulValueLen = 8;
    EXPECT_EQ(Read(), result == CKR_OK ? CKR_BUFFER_TOO_SMALL : result);
    ExpectOwnPointers();
    for (const CK_ATTRIBUTE& entry : entries_) EXPECT_EQ(entry.ulValueLen, 0u);
  }
}

TEST_F(NestedTemplatesTest, AttributesBeyondTheLengthStayAsTheyWere) {
  answer = [](CK_ATTRIBUTE* attribute) {
    static_cast<CK_ATTRIBUTE*>(attribute->pValue)[2] = {CKA_ID, nullptr, 7777};
    return GiveTwo(attribute, 3);
  };
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(entries_[2].type, 0u);
  EXPECT_EQ(entries_[2].ulValueLen, 8u);
  ExpectOwnPointers();
}

TEST_F(NestedTemplatesTest, QuestionForTheLengthsIsAnswered) {
  for (CK_ATTRIBUTE& entry : entries_) entry = {};
  answer = [](CK_ATTRIBUTE* attribute) -> CK_RV {
    auto* const entries = static_cast<CK_ATTRIBUTE*>(attribute->pValue);
    entries[0].ulValueLen = 5000;
    entries[1].ulValueLen = CK_ULONG{1} << 40;
    return CKR_OK;
  };
  EXPECT_EQ(Read(), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(entries_[0].ulValueLen, 5000u);
  EXPECT_EQ(entries_[1].ulValueLen, 0u);
  outer_ = {CKA_WRAP_TEMPLATE, nullptr, 0};
  answer = [](CK_ATTRIBUTE* attribute) -> CK_RV {
    attribute->ulValueLen = 48;
    return CKR_OK;
  };
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(outer_.ulValueLen, 48u);
}

TEST_F(NestedTemplatesTest, TemplateWithinATemplateIsRefused) {
  answer = [](CK_ATTRIBUTE* attribute) {
    const CK_RV result = GiveTwo(attribute, 0);
    static_cast<CK_ATTRIBUTE*>(attribute->pValue)[1].type = CKA_DERIVE_TEMPLATE;
    return result;
  };
  EXPECT_EQ(Read(), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(entries_[1].ulValueLen, 0u);
}

TEST_F(NestedTemplatesTest, RoomForMoreThanAnyTemplateHasIsNotBelieved) {
  std::vector<CK_ATTRIBUTE> many(300);
  outer_ = {CKA_WRAP_TEMPLATE, many.data(), many.size() * sizeof(CK_ATTRIBUTE)};
  answer = [](CK_ATTRIBUTE*) -> CK_RV { return CKR_OK; };
  EXPECT_EQ(Read(), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(outer_.ulValueLen, 0u);
}

TEST_F(NestedTemplatesTest, ArrayThatLiesAnywhereIsReadThere) {
  std::array<CK_BYTE, 2 * sizeof(CK_ATTRIBUTE) + 1> odd = {};
  std::memcpy(odd.data() + 1, entries_.data(), 2 * sizeof(CK_ATTRIBUTE));
  outer_ = {CKA_WRAP_TEMPLATE, odd.data() + 1, 2 * sizeof(CK_ATTRIBUTE)};
  answer = [](CK_ATTRIBUTE* attribute) -> CK_RV {
    std::memset(attribute->pValue, 0x41, attribute->ulValueLen);
    return CKR_OK;
  };
  EXPECT_NE(Read(), CKR_OK);
  CK_ATTRIBUTE entry = {};
  std::memcpy(&entry, odd.data() + 1, sizeof(entry));
  EXPECT_EQ(entry.pValue, rooms_[0].data());
  EXPECT_EQ(entry.ulValueLen, 0u);
}

// A list of mechanisms has the same flag, and makers' own attributes have it by chance.
TEST_F(NestedTemplatesTest, OtherValuesAreLeftAlone) {
  rules_ = Rules::Standard();
  for (const CK_ATTRIBUTE_TYPE type :
       {CK_ATTRIBUTE_TYPE{CKA_ALLOWED_MECHANISMS},
        CK_ATTRIBUTE_TYPE{CKA_VENDOR_DEFINED | CKF_ARRAY_ATTRIBUTE | 1}}) {
    std::array<CK_BYTE, 48> value = {};
    std::array<CK_BYTE, 48> expected;
    expected.fill(0x41);
    outer_ = {type, value.data(), value.size()};
    answer = [](CK_ATTRIBUTE* attribute) -> CK_RV {
      std::memset(attribute->pValue, 0x41, attribute->ulValueLen);
      return CKR_OK;
    };
    EXPECT_EQ(Read(), CKR_OK);
    EXPECT_EQ(value, expected);
  }
}

// Some modules spoil the lengths for a handle that they do not know.
TEST_F(NestedTemplatesTest, UnderANewHandleThereIsTheRoomThereWas) {
  functions_.C_GetAttributeValue = FakeModule::functions().C_GetAttributeValue;
  const auto key = Add(CKO_SECRET_KEY, {1});
  Find(CKO_SECRET_KEY, {1});
  fake_.objects.erase(key);
  Add(CKO_SECRET_KEY, {1});
  functions_.C_GetAttributeValue = [](CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                      CK_ATTRIBUTE* attributes, CK_ULONG count) -> CK_RV {
    if (attributes->type != CKA_WRAP_TEMPLATE) {
      return FakeModule::functions().C_GetAttributeValue(session, object, attributes, count);
    }
    return answer(attributes);
  };
  answer = [](CK_ATTRIBUTE* attribute) -> CK_RV {
    auto& entry = static_cast<CK_ATTRIBUTE*>(attribute->pValue)[1];
    const bool is_first = entry.ulValueLen == 8 && entry.type == 0;
    if (!is_first) return CKR_GENERAL_ERROR;
    entry = {CKA_ID, nullptr, 0};
    answer = [](CK_ATTRIBUTE* again) {
      const auto& restored = static_cast<CK_ATTRIBUTE*>(again->pValue)[1];
      return restored.ulValueLen == 8 ? GiveTwo(again, 3) : CKR_GENERAL_ERROR;
    };
    return CKR_OBJECT_HANDLE_INVALID;
  };
  EXPECT_EQ(Read(key), CKR_OK);
  EXPECT_EQ(entries_[1].ulValueLen, 3u);
  ExpectOwnPointers();
}

}  // namespace
}  // namespace kelvrin::adapter
