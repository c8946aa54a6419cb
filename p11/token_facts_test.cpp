// Labels, card numbers and the login state.
#include "p11/bringup.h"
#include "tests/module/p11_fixture.h"

namespace {

using scripted::Bytes;
using scripted::Effect;
using scripted::Function;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class LabelTest : public scripted::P11Test {
 protected:
  CK_RV Read() { return get_label(p11_, kSession, object_.handle, label_.data()); }

  scripted::Object& object_ = card_.AddCertificate({1}, "Name", {});
  std::string label_ = std::string(200, '#');
};

TEST_F(LabelTest, FailureLeavesTheBufferAlone) {
  module_.Return(Function::C_GetAttributeValue, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(Read(), CKR_DEVICE_ERROR);
  EXPECT_THAT(module_.Names(), ElementsAre("C_GetAttributeValue"));
  EXPECT_EQ(label_, std::string(200, '#'));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetAttributeValue: CKA_LABEL failed: rv "
                                 "= CKR_DEVICE_ERROR (0x30)"));
}

TEST_F(LabelTest, CopiesTheBytesAndNoTerminator) {
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(label_, "Name" + std::string(196, '#'));
  EXPECT_THAT(module_.Texts(), ElementsAre("C_GetAttributeValue(77, 1, {0x3[2048]})"));
  EXPECT_THAT(module_.At(Function::C_GetAttributeValue).arguments[2].attributes[0].bytes, Each(0));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(LabelTest, EmptyLabelWritesNothing) {
  object_.SetText(CKA_LABEL, "");
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(label_, std::string(200, '#'));
}

TEST_F(LabelTest, NulBytesAreCopiedLikeAnyOther) {
  object_.Set(CKA_LABEL, {'a', 0, 'b'});
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(label_.substr(0, 4), std::string("a\0b#", 4));
}

TEST_F(LabelTest, WritesAtMost127Bytes) {
  object_.SetText(CKA_LABEL, std::string(127, 'a'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(label_, std::string(127, 'a') + std::string(73, '#'));
  object_.SetText(CKA_LABEL, std::string(128, 'b'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(label_, std::string(127, 'b') + std::string(73, '#'));
  object_.SetText(CKA_LABEL, std::string(2048, 'c'));
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(label_, std::string(127, 'c') + std::string(73, '#'));
}

TEST_F(LabelTest, LyingLengthIsKeptWithinTheBuffer) {
  object_.SetText(CKA_LABEL, std::string(2048, 'a')).Claim(CKA_LABEL, ~CK_ULONG{0});
  EXPECT_EQ(Read(), CKR_OK);
  EXPECT_EQ(label_, std::string(127, 'a') + std::string(73, '#'));
}

TEST_F(LabelTest, LongerLabelsThanTheRoomAreTheModulesFailure) {
  object_.SetText(CKA_LABEL, std::string(2049, 'a'));
  EXPECT_EQ(Read(), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(label_, std::string(200, '#'));
}

class CardNumberTest : public scripted::P11Test {
 protected:
  // The bytes written for a token label.
  std::string Read(const std::string& label) {
    module_.Reset();
    card_.AddSlot(4, "Reader A", label);
    std::string number(64, '#');
    EXPECT_EQ(get_card_no(p11_, 4, number.data()), CKR_OK);
    EXPECT_THAT(module_.Texts(), ElementsAre("C_GetTokenInfo(4, out)"));
    EXPECT_THAT(Log(), IsEmpty());
    return number.substr(0, number.find_last_not_of('#') + 1);
  }
};

TEST_F(CardNumberTest, FailureLeavesTheBufferAlone) {
  card_.AddSlot(4, "Reader A", "4711");
  module_.Return(Function::C_GetTokenInfo, CKR_TOKEN_NOT_RECOGNIZED, Effect::kPerform);
  std::string number(32, '#');
  EXPECT_EQ(get_card_no(p11_, 4, number.data()), CKR_TOKEN_NOT_RECOGNIZED);
  EXPECT_THAT(module_.Names(), ElementsAre("C_GetTokenInfo"));
  EXPECT_EQ(number, std::string(32, '#'));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetTokenInfo failed: rv = "
                                 "CKR_TOKEN_NOT_RECOGNIZED (0xe1)"));
}

TEST_F(CardNumberTest, IsTheLabelsFirstWord) { EXPECT_EQ(Read("4711 0815"), "4711"); }

TEST_F(CardNumberTest, EndsAtATabToo) { EXPECT_EQ(Read("47\t11"), "47"); }

TEST_F(CardNumberTest, IsEmptyWhenTheLabelBeginsWithABlank) {
  EXPECT_EQ(Read(" 4711"), "");
  EXPECT_EQ(Read("\t4711"), "");
  EXPECT_EQ(Read(""), "");
}

TEST_F(CardNumberTest, NothingElseEndsIt) {
  EXPECT_EQ(Read("4\n7\r1\v1\f ."), "4\n7\r1\v1\f");
  EXPECT_EQ(Read(std::string("47\0"
                             "11 x",
                             7)),
            std::string("47\0"
                        "11",
                        5));
  EXPECT_EQ(Read("4711\xA0\xFF x"), "4711\xA0\xFF");
}

TEST_F(CardNumberTest, EndsAfter31BytesWithoutABlank) {
  EXPECT_EQ(Read(std::string(31, 'a')), std::string(31, 'a'));
  EXPECT_EQ(Read(std::string(32, 'a')), std::string(31, 'a'));
}

class LoginRequiredTest : public scripted::P11Test {
 protected:
  CK_BBOOL required_ = 0xAB;
};

TEST_F(LoginRequiredTest, FailureMeansYes) {
  card_.session_state = CKS_RW_USER_FUNCTIONS;
  module_.Return(Function::C_GetSessionInfo, CKR_SESSION_HANDLE_INVALID, Effect::kPerform);
  EXPECT_EQ(login_required(p11_, kSession, &required_), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(required_, CK_TRUE);
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetSessionInfo failed: rv = "
                                 "CKR_SESSION_HANDLE_INVALID (0xb3)"));
}

TEST_F(LoginRequiredTest, DependsOnTheSessionsState) {
  const std::map<CK_STATE, CK_BBOOL> expected = {
      {0, CK_TRUE},  {1, CK_FALSE}, {2, CK_TRUE},    {3, CK_FALSE},
      {4, CK_FALSE}, {5, CK_TRUE},  {0xFF, CK_TRUE}, {0x100000003, CK_TRUE}};
  for (const auto& [state, required] : expected) {
    card_.session_state = state;
    required_ = 0xAB;
    EXPECT_EQ(login_required(p11_, kSession, &required_), CKR_OK);
    EXPECT_EQ(required_, required) << state;
  }
  EXPECT_EQ(module_.Texts().at(0), "C_GetSessionInfo(77, out)");
  EXPECT_EQ(module_.Texts().size(), expected.size());
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(LoginRequiredTest, SaysYesBeforeTheModuleIsAsked) {
  CK_BBOOL during = 0;
  module_.Observe([&](const scripted::Call&) { during = required_; });
  EXPECT_EQ(login_required(p11_, kSession, &required_), CKR_OK);
  EXPECT_EQ(during, CK_TRUE);
}

}  // namespace
