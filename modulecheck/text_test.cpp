#include "modulecheck/text.h"

#include <gtest/gtest.h>

namespace kelvrin::modulecheck {
namespace {

TEST(TextTest, WhatATerminalCouldObeyOrCannotShowIsReplaced) {
  EXPECT_EQ(Printable("Reader 1"), "Reader 1");
  EXPECT_EQ(Printable("Müller €"), "Müller €");
  EXPECT_EQ(Printable("a\x1b[31m\n\tb\x7f"), "a [31m  b ");
  EXPECT_EQ(Printable("a\xc2\x9b"
                      "b"),
            "a b");  // a control character of two bytes
  EXPECT_EQ(Printable("\xff\xfc"
                      "a"),
            "??a");                                       // no UTF-8
  EXPECT_EQ(Printable("\xc3"), "?");                      // cut
  EXPECT_EQ(Printable("\xc0\xaf\xed\xa0\x80"), "?????");  // too long, surrogate
  EXPECT_EQ(Printable("\xf4\x90\x80\x80"), "????");       // beyond the last character
  EXPECT_EQ(Printable("\xf0\x9f\x99\x82"), "\xf0\x9f\x99\x82");
}

TEST(TextTest, AFieldEndsAtItsPadding) {
  const CK_BYTE blanks[] = {'a', ' ', 'b', ' ', ' '};
  const CK_BYTE nuls[] = {'a', 'b', ' ', 0, 'c'};
  const CK_BYTE none[] = {' ', ' '};
  EXPECT_EQ(Field(blanks), "a b");
  EXPECT_EQ(Field(nuls), "ab");
  EXPECT_EQ(Field(none), "");
}

TEST(TextTest, ResultsAndMechanismsHaveNamesOrNumbers) {
  EXPECT_EQ(ResultText(CKR_OPERATION_ACTIVE), "CKR_OPERATION_ACTIVE (0x90)");
  EXPECT_EQ(ResultText(0x80001234), "unknown PKCS11 error (0x80001234)");
  EXPECT_EQ(MechanismText(CKM_ECDSA), "CKM_ECDSA");
  EXPECT_EQ(MechanismText(0x80001234), "0x80001234");
}

TEST(TextTest, XmlIsEscaped) { EXPECT_EQ(Xml("A & <B>"), "A &amp; &lt;B&gt;"); }

TEST(TextTest, NounsAreCounted) {
  EXPECT_EQ(Counted(1, "slot"), "1 slot");
  EXPECT_EQ(Counted(0, "slot"), "0 slots");
}

}  // namespace
}  // namespace kelvrin::modulecheck
