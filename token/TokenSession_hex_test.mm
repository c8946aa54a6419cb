// Bytes as text for the log.
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

class HexTest : public SessionTest {
 protected:
  std::string Hex(const scripted::Bytes &bytes) { return Utf8([session_ asHex:Data(bytes)]); }
};

TEST_F(HexTest, TwoUpperCaseDigitsPerByteWithoutSeparators) {
  EXPECT_EQ(Hex({0x00, 0xAB, 0x7F}), "00AB7F");
}

TEST_F(HexTest, EveryByteHasItsOwnTwoDigits) {
  const std::string digits = "0123456789ABCDEF";
  scripted::Bytes bytes;
  std::string text;
  for (unsigned int byte = 0; byte < 256; ++byte) {
    bytes.push_back(static_cast<CK_BYTE>(byte));
    text += {digits[byte / 16], digits[byte % 16]};
  }
  EXPECT_EQ(Hex(bytes), text);
}

TEST_F(HexTest, NoBytesGiveAnEmptyText) {
  NSString *text = [session_ asHex:[NSData data]];
  ASSERT_NE(text, nil);
  EXPECT_EQ([text length], 0u);
}

TEST_F(HexTest, NoDataGivesAnEmptyText) {
  NSString *text = [session_ asHex:(NSData *)nil];
  ASSERT_NE(text, nil);
  EXPECT_EQ([text length], 0u);
}

TEST_F(HexTest, LongDataIsNotCut) { EXPECT_EQ(Hex(scripted::Bytes(5000, 0x5A)).size(), 10000u); }

}  // namespace
}  // namespace token_testing
