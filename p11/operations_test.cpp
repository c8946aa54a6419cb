// Signing and decrypting.
#include "p11/operations.h"

#include <cstring>

#include "tests/module/p11_fixture.h"

namespace {

using scripted::Bytes;
using scripted::Call;
using scripted::Effect;
using scripted::Function;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr CK_OBJECT_HANDLE kKey = 12;

class OperationsTest : public scripted::P11Test {
 protected:
  CK_RV Sign(CK_MECHANISM_TYPE mechanism) {
    return sign(p11_, kSession, kKey, mechanism, data_.data(), data_.size(), out_.data(),
                &out_length_);
  }
  CK_RV Decrypt(CK_MECHANISM_TYPE mechanism) {
    return decrypt(p11_, kSession, kKey, mechanism, data_.data(), data_.size(), out_.data(),
                   &out_length_);
  }
  // Copies the PSS parameters that C_SignInit was given; false when there were none.
  bool TakePssParameters(CK_RSA_PKCS_PSS_PARAMS* parameters) {
    const scripted::Argument mechanism = module_.At(Function::C_SignInit).arguments[1];
    if (mechanism.parameter_address == nullptr) {
      EXPECT_EQ(mechanism.parameter_length, 0u);
      return false;
    }
    EXPECT_EQ(mechanism.parameter_length, 24u);
    EXPECT_EQ(mechanism.bytes.size(), sizeof *parameters);
    memcpy(parameters, mechanism.bytes.data(), sizeof *parameters);
    return true;
  }

  Bytes data_ = {0x61, 0x62, 0x63};
  Bytes out_ = Bytes(1024, 0xEE);
  CK_ULONG out_length_ = 1024;
};

TEST_F(OperationsTest, SignStopsAtFailedInit) {
  module_.Return(Function::C_SignInit, CKR_MECHANISM_INVALID);
  EXPECT_EQ(Sign(0x99), CKR_MECHANISM_INVALID);
  EXPECT_THAT(module_.Texts(), ElementsAre("C_SignInit(77, {0x99}, 12)"));
  EXPECT_THAT(Log(),
              ElementsAre("error: PKCS11 function C_SignInit failed: rv = CKR_MECHANISM_INVALID "
                          "(0x70)"));
  EXPECT_EQ(out_length_, 1024u);
  EXPECT_THAT(out_, Each(0xEE));
}

TEST_F(OperationsTest, SignReportsFailedSignWithoutRetryOrCleanUp) {
  card_.signature.bytes = Bytes(2048, 1);  // larger than the room
  EXPECT_EQ(Sign(CKM_RSA_PKCS), CKR_BUFFER_TOO_SMALL);
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_SignInit(77, {0x1}, 12)", "C_Sign(77, <616263>, room[1024])"));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_Sign failed: rv = CKR_BUFFER_TOO_SMALL "
                                 "(0x150)"));
}

TEST_F(OperationsTest, FailedSignLeavesTheOutputsAsTheModuleLeftThem) {
  card_.signature = {{1, 2, 3}, 4096};
  module_.Return(Function::C_Sign, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(Sign(CKM_RSA_PKCS), CKR_DEVICE_ERROR);
  EXPECT_EQ(out_length_, 4096u);
  EXPECT_THAT(Bytes(out_.begin(), out_.begin() + 4), ElementsAre(1, 2, 3, 0xEE));
}

TEST_F(OperationsTest, SignPassesEverythingOnUnchanged) {
  card_.signature.bytes = {9, 8, 7};
  EXPECT_EQ(Sign(CKM_ECDSA), CKR_OK);
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_SignInit(77, {0x1041}, 12)", "C_Sign(77, <616263>, room[1024])"));
  const Call call = module_.At(Function::C_Sign);
  EXPECT_EQ(call.arguments[1].address, data_.data());
  EXPECT_EQ(call.arguments[2].address, out_.data());
  EXPECT_EQ(out_length_, 3u);
  EXPECT_THAT(Bytes(out_.begin(), out_.begin() + 4), ElementsAre(9, 8, 7, 0xEE));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(OperationsTest, SignTellsTheModuleTheCallersRoom) {
  out_length_ = 5;
  card_.signature.bytes = {9, 8, 7, 6, 5};
  EXPECT_EQ(Sign(CKM_ECDSA), CKR_OK);
  EXPECT_EQ(module_.At(Function::C_Sign).arguments[2].number, 5u);
  EXPECT_EQ(out_length_, 5u);
}

TEST_F(OperationsTest, SignKeepsALyingLengthWithinTheRoom) {
  card_.signature = {Bytes(1024, 5), 1025};
  EXPECT_EQ(Sign(CKM_RSA_PKCS), CKR_OK);
  EXPECT_EQ(out_length_, 1024u);
  out_length_ = 16;
  card_.signature = {Bytes(16, 5), 17};
  EXPECT_EQ(Sign(CKM_RSA_PKCS), CKR_OK);
  EXPECT_EQ(out_length_, 16u);
  card_.signature = {Bytes(16, 5), ~CK_ULONG{0}};
  EXPECT_EQ(Sign(CKM_RSA_PKCS), CKR_OK);
  EXPECT_EQ(out_length_, 16u);
}

TEST_F(OperationsTest, SignPassesEmptyDataOn) {
  EXPECT_EQ(sign(p11_, kSession, kKey, CKM_RSA_PKCS, nullptr, 0, out_.data(), &out_length_),
            CKR_OK);
  EXPECT_EQ(module_.Texts().at(1), "C_Sign(77, NULL[0], room[1024])");
}

struct PssRow {
  CK_MECHANISM_TYPE mechanism;
  CK_ULONG hash;
  CK_ULONG mgf;
  CK_ULONG salt;
};

class PssTest : public OperationsTest, public testing::WithParamInterface<PssRow> {};

TEST_P(PssTest, HashAndSignMechanismsGetTheirParameters) {
  EXPECT_EQ(Sign(GetParam().mechanism), CKR_OK);
  EXPECT_EQ(module_.At(Function::C_SignInit).arguments[1].number, GetParam().mechanism);
  CK_RSA_PKCS_PSS_PARAMS parameters = {};
  ASSERT_TRUE(TakePssParameters(&parameters));
  EXPECT_EQ(parameters.hashAlg, GetParam().hash);
  EXPECT_EQ(parameters.mgf, GetParam().mgf);
  EXPECT_EQ(parameters.sLen, GetParam().salt);
}

INSTANTIATE_TEST_SUITE_P(Rows, PssTest,
                         testing::Values(PssRow{0x0E, 0x220, 1, 20}, PssRow{0x43, 0x250, 2, 32},
                                         PssRow{0x44, 0x260, 3, 48}, PssRow{0x45, 0x270, 4, 64}));

TEST_F(OperationsTest, PlainPssAndAllOtherMechanismsGetNoParameter) {
  for (CK_MECHANISM_TYPE mechanism = 0; mechanism < 0x300; ++mechanism) {
    if (mechanism == 0x0E || (mechanism >= 0x43 && mechanism <= 0x45)) continue;
    module_.ForgetCalls();
    out_length_ = 1024;
    EXPECT_EQ(Sign(mechanism), CKR_OK);
    CK_RSA_PKCS_PSS_PARAMS parameters = {};
    EXPECT_FALSE(TakePssParameters(&parameters)) << mechanism;
    EXPECT_EQ(module_.At(Function::C_SignInit).arguments[1].number, mechanism);
  }
}

TEST_F(OperationsTest, DecryptStopsAtFailedInit) {
  module_.Return(Function::C_DecryptInit, CKR_KEY_TYPE_INCONSISTENT);
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_KEY_TYPE_INCONSISTENT);
  EXPECT_THAT(module_.Texts(), ElementsAre("C_DecryptInit(77, {0x1}, 12)"));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_DecryptInit failed: rv = "
                                 "CKR_KEY_TYPE_INCONSISTENT (0x63)"));
  EXPECT_EQ(out_length_, 1024u);
  EXPECT_THAT(out_, Each(0xEE));
}

TEST_F(OperationsTest, DecryptReportsFailedDecryptWithoutRetryOrCleanUp) {
  card_.plaintext.bytes = Bytes(2048, 1);
  EXPECT_EQ(Decrypt(CKM_RSA_X_509), CKR_BUFFER_TOO_SMALL);
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_DecryptInit(77, {0x3}, 12)", "C_Decrypt(77, <616263>, room[1024])"));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_Decrypt failed: rv = "
                                 "CKR_BUFFER_TOO_SMALL (0x150)"));
}

TEST_F(OperationsTest, FailedDecryptLeavesTheOutputsAsTheModuleLeftThem) {
  card_.plaintext = {{1, 2, 3}, 4096};
  module_.Return(Function::C_Decrypt, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_DEVICE_ERROR);
  EXPECT_EQ(out_length_, 4096u);
  EXPECT_THAT(Bytes(out_.begin(), out_.begin() + 4), ElementsAre(1, 2, 3, 0xEE));
}

TEST_F(OperationsTest, DecryptPassesEverythingOnUnchanged) {
  card_.plaintext.bytes = {9, 8, 7};
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_OK);
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_DecryptInit(77, {0x1}, 12)", "C_Decrypt(77, <616263>, room[1024])"));
  const Call call = module_.At(Function::C_Decrypt);
  EXPECT_EQ(call.arguments[1].address, data_.data());
  EXPECT_EQ(call.arguments[2].address, out_.data());
  EXPECT_EQ(out_length_, 3u);
  EXPECT_THAT(Bytes(out_.begin(), out_.begin() + 4), ElementsAre(9, 8, 7, 0xEE));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(OperationsTest, DecryptTellsTheModuleTheCallersRoom) {
  out_length_ = 5;
  card_.plaintext.bytes = {9, 8, 7, 6, 5};
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_OK);
  EXPECT_EQ(module_.At(Function::C_Decrypt).arguments[2].number, 5u);
  EXPECT_EQ(out_length_, 5u);
}

TEST_F(OperationsTest, DecryptKeepsALyingLengthWithinTheRoom) {
  card_.plaintext = {Bytes(1024, 5), 5000};
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_OK);
  EXPECT_EQ(out_length_, 1024u);
  out_length_ = 16;
  card_.plaintext = {Bytes(16, 5), 17};
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_OK);
  EXPECT_EQ(out_length_, 16u);
}

TEST_F(OperationsTest, DecryptNeverGivesAParameter) {
  for (CK_MECHANISM_TYPE mechanism : {0x1u, 0x3u, 0x9u, 0xDu, 0xEu, 0x43u, 0x44u, 0x45u}) {
    module_.ForgetCalls();
    out_length_ = 1024;
    EXPECT_EQ(Decrypt(mechanism), CKR_OK);
    const scripted::Argument given = module_.At(Function::C_DecryptInit).arguments[1];
    EXPECT_EQ(given.number, mechanism);
    EXPECT_EQ(given.parameter_address, nullptr);
    EXPECT_EQ(given.parameter_length, 0u);
  }
}

TEST_F(OperationsTest, NothingIsLoggedWhenTheTypeIsOff) {
  const oslog::Disabled no_errors(OS_LOG_TYPE_ERROR);
  module_.Return(Function::C_Sign, CKR_DEVICE_ERROR);
  module_.Return(Function::C_DecryptInit, CKR_DEVICE_ERROR);
  EXPECT_EQ(Sign(CKM_RSA_PKCS), CKR_DEVICE_ERROR);
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_DEVICE_ERROR);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
}

TEST_F(OperationsTest, PssRowsMatchTheFullValue) {
  for (CK_MECHANISM_TYPE mechanism : {0x10000000Eul, 0x100000043ul, ~0ul}) {
    module_.ForgetCalls();
    out_length_ = 1024;
    EXPECT_EQ(Sign(mechanism), CKR_OK);
    CK_RSA_PKCS_PSS_PARAMS parameters = {};
    EXPECT_FALSE(TakePssParameters(&parameters)) << mechanism;
    EXPECT_EQ(module_.At(Function::C_SignInit).arguments[1].number, mechanism);
  }
}

}  // namespace
