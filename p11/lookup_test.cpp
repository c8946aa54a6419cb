// Reading certificates, flags and allowed mechanisms.
#include "p11/lookup.h"

#include <cstddef>
#include <cstring>
#include <memory>

#include "tests/module/p11_fixture.h"

namespace {

using scripted::Bytes;
using scripted::Function;
using scripted::Object;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class CertInfoTest : public scripted::P11Test {
 protected:
  CertInfoTest() : info_(std::make_unique<CertInfo>()) { memset(info_.get(), 0xEE, sizeof *info_); }

  CK_RV Read() { return get_cert_info(p11_, kSession, object_.handle, info_.get()); }
  bool InfoIsZero() const {
    static const CertInfo kZero = {};
    return memcmp(info_.get(), &kZero, sizeof kZero) == 0;
  }
  Bytes Raw(size_t offset, size_t length) const {
    const CK_BYTE* start = reinterpret_cast<const CK_BYTE*>(info_.get()) + offset;
    return Bytes(start, start + length);
  }

  Object& object_ = card_.AddCertificate({1, 2}, "Name", {0x30, 0x82, 0x01});
  std::unique_ptr<CertInfo> info_;
};

TEST(CertInfoLayout, FieldsFollowEachOther) {
  EXPECT_EQ(offsetof(CertInfo, label), 0u);
  EXPECT_EQ(offsetof(CertInfo, id), 512u);
  EXPECT_EQ(offsetof(CertInfo, id_len), 1024u);
  EXPECT_EQ(offsetof(CertInfo, value), 1032u);
  EXPECT_EQ(offsetof(CertInfo, value_len), 5128u);
  EXPECT_EQ(sizeof(CertInfo), 5136u);
}

TEST_F(CertInfoTest, FailedReadLeavesTheRecordZeroed) {
  module_.Return(Function::C_GetAttributeValue, CKR_DEVICE_ERROR, scripted::Effect::kPerform);
  EXPECT_EQ(Read(), CKR_DEVICE_ERROR);
  EXPECT_TRUE(InfoIsZero());
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetAttributeValue: cert_info failed: rv "
                                 "= CKR_DEVICE_ERROR (0x30)"));
}

TEST_F(CertInfoTest, ValueLongerThan4096BytesFailsAsTheModuleSays) {
  object_.Set(CKA_VALUE, Bytes(4097, 1));
  EXPECT_EQ(Read(), CKR_BUFFER_TOO_SMALL);
  EXPECT_TRUE(InfoIsZero());
}

TEST_F(CertInfoTest, ReadsThreeAttributesWithOneCall) {
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_GetAttributeValue(77, 1, {0x3[1024], 0x102[1024], 0x11[4096]})"));
  const scripted::Call call = module_.At(Function::C_GetAttributeValue);
  for (const scripted::AttributeCopy& attribute : call.arguments[2].attributes) {
    EXPECT_THAT(attribute.bytes, Each(0));
  }
  EXPECT_STREQ(reinterpret_cast<const char*>(info_->label), "Name");
  EXPECT_EQ(info_->id_len, 2u);
  EXPECT_THAT(Raw(512, 3), ElementsAre(1, 2, 0));
  EXPECT_EQ(info_->value_len, 3u);
  EXPECT_THAT(Raw(1032, 4), ElementsAre(0x30, 0x82, 0x01, 0));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(CertInfoTest, ReusedRecordKeepsNothingOfTheCertificateBefore) {
  EXPECT_EQ(Read(), CKR_OK);
  object_.SetText(CKA_LABEL, "").Set(CKA_ID, {}).Set(CKA_VALUE, {});
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_TRUE(InfoIsZero());
}

TEST_F(CertInfoTest, LabelOf512BytesFillsItsFieldWithoutTerminator) {
  object_.Set(CKA_LABEL, Bytes(512, 'a'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_THAT(Raw(0, 512), Each('a'));
  EXPECT_THAT(Raw(512, 3), ElementsAre(1, 2, 0));
}

TEST_F(CertInfoTest, LongLabelRunsOnIntoTheIdWhichIsThenOverwritten) {
  object_.Set(CKA_LABEL, Bytes(600, 'a'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_THAT(Raw(0, 512), Each('a'));
  EXPECT_THAT(Raw(512, 2), ElementsAre(1, 2));
  EXPECT_THAT(Raw(514, 86), Each('a'));
  EXPECT_THAT(Raw(600, 424), Each(0));
  EXPECT_EQ(info_->id_len, 2u);
}

TEST_F(CertInfoTest, LabelOf1024BytesFillsTheWholeIdField) {
  object_.Set(CKA_LABEL, Bytes(1024, 'a'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_THAT(Raw(514, 510), Each('a'));
  EXPECT_EQ(info_->id_len, 2u);
  EXPECT_THAT(Raw(1032, 3), ElementsAre(0x30, 0x82, 0x01));
}

TEST_F(CertInfoTest, LongIdRunsOnIntoTheValueWhichIsThenOverwritten) {
  object_.Set(CKA_ID, Bytes(1024, 'i'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_THAT(Raw(512, 512), Each('i'));
  EXPECT_EQ(info_->id_len, 1024u);
  EXPECT_THAT(Raw(1032, 3), ElementsAre(0x30, 0x82, 0x01));
  EXPECT_THAT(Raw(1035, 501), Each('i'));  // 1024 bytes from the ID's start
  EXPECT_THAT(Raw(1536, 8), Each(0));
  EXPECT_EQ(info_->value_len, 3u);
}

TEST_F(CertInfoTest, ValueOf4096BytesFillsItsField) {
  object_.Set(CKA_VALUE, Bytes(4096, 'v'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(info_->value_len, 4096u);
  EXPECT_THAT(Raw(1032, 4096), Each('v'));
}

TEST_F(CertInfoTest, LyingLengthsAreKeptWithinTheReadBuffers) {
  object_.Claim(CKA_LABEL, 1025).Claim(CKA_ID, ~CK_ULONG{0}).Claim(CKA_VALUE, 1 << 20);
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(info_->id_len, 1024u);
  EXPECT_EQ(info_->value_len, 4096u);
  EXPECT_STREQ(reinterpret_cast<const char*>(info_->label), "Name");
}

class AttributeTest : public scripted::P11Test {
 protected:
  Object& key_ = card_.AddPublicKey({1});
};

TEST_F(AttributeTest, MissingFlagLeavesTheCallersAlone) {
  CK_BBOOL supported = 0xAB;
  EXPECT_EQ(is_attr_supported(p11_, kSession, key_.handle, CKA_WRAP, &supported),
            CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(supported, 0xAB);
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetAttributeValue: is_attr_supported "
                                 "failed: rv = CKR_ATTRIBUTE_TYPE_INVALID (0x12)"));
}

TEST_F(AttributeTest, ReadsAFlagIntoAZeroedRoomOf1024Bytes) {
  key_.SetFlag(CKA_VERIFY, true).SetFlag(CKA_ENCRYPT, false);
  CK_BBOOL supported = 0xAB;
  EXPECT_EQ(is_attr_supported(p11_, kSession, key_.handle, CKA_VERIFY, &supported), CKR_OK);
  EXPECT_EQ(supported, CK_TRUE);
  EXPECT_EQ(is_attr_supported(p11_, kSession, key_.handle, CKA_ENCRYPT, &supported), CKR_OK);
  EXPECT_EQ(supported, CK_FALSE);
  EXPECT_THAT(module_.Texts(), ElementsAre("C_GetAttributeValue(77, 1, {0x10a[1024]})",
                                           "C_GetAttributeValue(77, 1, {0x104[1024]})"));
  EXPECT_THAT(module_.At(Function::C_GetAttributeValue).arguments[2].attributes[0].bytes, Each(0));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(AttributeTest, FlagIsTheFirstByteWhateverTheLength) {
  CK_BBOOL supported = 0xAB;
  key_.Set(CKA_VERIFY, {});
  EXPECT_EQ(is_attr_supported(p11_, kSession, key_.handle, CKA_VERIFY, &supported), CKR_OK);
  EXPECT_EQ(supported, 0);
  key_.Set(CKA_VERIFY, {7, 1, 1});
  EXPECT_EQ(is_attr_supported(p11_, kSession, key_.handle, CKA_VERIFY, &supported), CKR_OK);
  EXPECT_EQ(supported, 7);
  key_.Set(CKA_VERIFY, {1}).Claim(CKA_VERIFY, 99999);
  EXPECT_EQ(is_attr_supported(p11_, kSession, key_.handle, CKA_VERIFY, &supported), CKR_OK);
  EXPECT_EQ(supported, 1);
}

class MechanismListTest : public AttributeTest {
 protected:
  static constexpr CK_ULONG kUntouched = 0xEEEE;

  CK_RV Read(CK_ULONG capacity) {
    count_ = capacity;
    mechanisms_.assign(200, kUntouched);
    return get_mechanism_list(p11_, kSession, key_.handle, mechanisms_.data(), &count_);
  }

  std::vector<CK_MECHANISM_TYPE> mechanisms_;
  CK_ULONG count_ = 0;
};

TEST_F(MechanismListTest, FailedReadIsReportedWithTheNeighboursText) {
  EXPECT_EQ(Read(20), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_THAT(module_.Names(), ElementsAre("C_GetAttributeValue"));
  EXPECT_EQ(count_, 20u);
  EXPECT_THAT(mechanisms_, Each(kUntouched));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetAttributeValue: is_attr_supported "
                                 "failed: rv = CKR_ATTRIBUTE_TYPE_INVALID (0x12)"));
}

TEST_F(MechanismListTest, TooSmallArrayGivesDeviceMemorySilently) {
  key_.SetMechanisms({1, 3, 0x40});
  EXPECT_EQ(Read(2), 0x31u);
  EXPECT_EQ(count_, 2u);
  EXPECT_THAT(mechanisms_, Each(kUntouched));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(MechanismListTest, CapacityZeroTakesOnlyAnEmptyList) {
  key_.SetMechanisms({1});
  EXPECT_EQ(Read(0), 0x31u);
  key_.SetMechanisms({});
  EXPECT_EQ(Read(0), CKR_OK);
  EXPECT_EQ(count_, 0u);
  EXPECT_THAT(mechanisms_, Each(kUntouched));
}

TEST_F(MechanismListTest, CopiesWhatFits) {
  key_.SetMechanisms({1, 3, 0x40});
  EXPECT_EQ(Read(3), CKR_OK);
  EXPECT_EQ(count_, 3u);
  mechanisms_.resize(4);
  EXPECT_THAT(mechanisms_, ElementsAre(1, 3, 0x40, kUntouched));
  EXPECT_THAT(module_.Texts(), ElementsAre("C_GetAttributeValue(77, 1, {0x40000600[1024]})"));
  EXPECT_THAT(module_.At(Function::C_GetAttributeValue).arguments[2].attributes[0].bytes, Each(0));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(MechanismListTest, BrokenElementIsCopiedAndNotCounted) {
  key_.Set(CKA_ALLOWED_MECHANISMS, {1, 0, 0, 0, 0, 0, 0, 0, 0xAA, 0xBB, 0xCC});
  EXPECT_EQ(Read(2), CKR_OK);
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(mechanisms_[0], 1u);
  EXPECT_EQ(mechanisms_[1], 0xCCBBAAu);
  EXPECT_EQ(Read(1), 0x31u);
}

TEST_F(MechanismListTest, ReadsAtMost128Mechanisms) {
  key_.SetMechanisms(std::vector<CK_MECHANISM_TYPE>(128, 5));
  EXPECT_EQ(Read(200), CKR_OK);
  EXPECT_EQ(count_, 128u);
  key_.SetMechanisms(std::vector<CK_MECHANISM_TYPE>(129, 5));
  EXPECT_EQ(Read(200), CKR_BUFFER_TOO_SMALL);
}

TEST_F(MechanismListTest, LyingLengthIsKeptWithinTheReadBuffer) {
  key_.SetMechanisms(std::vector<CK_MECHANISM_TYPE>(128, 5)).Claim(CKA_ALLOWED_MECHANISMS, 1600);
  EXPECT_EQ(Read(200), CKR_OK);
  EXPECT_EQ(count_, 128u);
  EXPECT_EQ(mechanisms_[127], 5u);
  EXPECT_EQ(mechanisms_[128], kUntouched);
}

TEST_F(MechanismListTest, LyingLengthBeyondTheArrayGivesDeviceMemory) {
  key_.SetMechanisms({1}).Claim(CKA_ALLOWED_MECHANISMS, ~CK_ULONG{0});
  EXPECT_EQ(Read(20), 0x31u);
  EXPECT_EQ(count_, 20u);
}

// A module of its own for counting: the scripted one allocates.
CK_RV ReadTwo(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE* attribute, CK_ULONG) {
  attribute->ulValueLen = 2 * sizeof(CK_MECHANISM_TYPE);
  return CKR_OK;
}

TEST_F(MechanismListTest, TakesNoMemory) {
  CK_FUNCTION_LIST list = {};
  list.C_GetAttributeValue = ReadTwo;
  CK_MECHANISM_TYPE mechanisms[20] = {};
  CK_ULONG count = 20;
  wrapped::calls().counting = true;
  const CK_RV rv = get_mechanism_list(&list, kSession, key_.handle, mechanisms, &count);
  wrapped::calls().counting = false;
  EXPECT_EQ(rv, CKR_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(wrapped::calls().allocations, 0u);
}

}  // namespace
