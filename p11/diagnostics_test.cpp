#include "p11/diagnostics.h"

#include "tests/module/p11_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DiagnosticsTest : public scripted::P11Test {
 protected:
  std::vector<std::string> Formats() const {
    std::vector<std::string> formats;
    for (const oslog::Line& line : recorder_.lines()) formats.push_back(line.format);
    return formats;
  }
};

TEST_F(DiagnosticsTest, WarningIsALineOfDefaultType) {
  p11_warn("C_Login", 0xA0);
  EXPECT_THAT(
      Log(), ElementsAre("default: PKCS11 function C_Login failed: rv = CKR_PIN_INCORRECT (0xa0)"));
}

TEST_F(DiagnosticsTest, ErrorIsALineOfErrorType) {
  p11_error("C_Login", 0xA0);
  EXPECT_THAT(Log(),
              ElementsAre("error: PKCS11 function C_Login failed: rv = CKR_PIN_INCORRECT (0xa0)"));
}

TEST_F(DiagnosticsTest, BothStringsArePrivateAndTheNumberIsNot) {
  p11_error("C_Login", 0xA0);
  p11_warn("C_Login", 0x191);
  EXPECT_THAT(PublicLog(),
              ElementsAre("error: PKCS11 function <private> failed: rv = <private> (0xa0)",
                          "default: PKCS11 function <private> failed: rv = <private> (0x191)"));
}

TEST_F(DiagnosticsTest, FormatIsWordForWord) {
  p11_error("C_Login", 0xA0);
  p11_warn("C_Login", 0xA0);
  EXPECT_THAT(Formats(), ElementsAre("PKCS11 function %s failed: rv = %s (0x%0x)",
                                     "PKCS11 function %s failed: rv = %s (0x%0x)"));
}

TEST_F(DiagnosticsTest, SuccessIsLoggedAsAFailureToo) {
  p11_error("C_Login", 0);
  p11_warn("C_Login", 0);
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_Login failed: rv = CKR_OK (0x0)",
                                 "default: PKCS11 function C_Login failed: rv = CKR_OK (0x0)"));
}

TEST_F(DiagnosticsTest, AnyTextStandsInThePlaceOfTheFunctionName) {
  p11_warn("*** PKCS11-Bibliothek bereits initalisiert.", 0x191);
  EXPECT_THAT(Log(), ElementsAre("default: PKCS11 function *** PKCS11-Bibliothek bereits "
                                 "initalisiert. failed: rv = CKR_CRYPTOKI_ALREADY_INITIALIZED "
                                 "(0x191)"));
}

TEST_F(DiagnosticsTest, NumberIsLowerCaseHexadecimalWithoutLeadingZeros) {
  p11_error("x", 0x1A);
  p11_error("x", 0x80000000);
  p11_error("x", 0xFFFFFFFF);
  EXPECT_THAT(
      Log(),
      ElementsAre("error: PKCS11 function x failed: rv = unknown PKCS11 error (0x1a)",
                  "error: PKCS11 function x failed: rv = CKR_VENDOR_DEFINED (0x80000000)",
                  "error: PKCS11 function x failed: rv = unknown PKCS11 error (0xffffffff)"));
}

TEST_F(DiagnosticsTest, NumberShowsTheLow32BitsWhileTheNameIsTheFullValues) {
  p11_error("x", 0x1000000A0);
  p11_warn("x", 0xABCD00000000);
  EXPECT_THAT(Log(),
              ElementsAre("error: PKCS11 function x failed: rv = unknown PKCS11 error (0xa0)",
                          "default: PKCS11 function x failed: rv = unknown PKCS11 error "
                          "(0x0)"));
}

TEST_F(DiagnosticsTest, OneNameLookupForEachLine) {
  p11_error("x", 1);
  EXPECT_EQ(wrapped::calls().result_name_count, 1u);
  p11_warn("x", 1);
  EXPECT_EQ(wrapped::calls().result_name_count, 2u);
}

TEST_F(DiagnosticsTest, ErrorTypeOffMeansNoLineAndNoLookup) {
  const oslog::Disabled no_errors(OS_LOG_TYPE_ERROR);
  p11_error("x", 1);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
  p11_warn("x", 1);
  EXPECT_EQ(Log().size(), 1u);
}

TEST_F(DiagnosticsTest, DefaultTypeOffMeansNoLineAndNoLookup) {
  const oslog::Disabled no_progress(OS_LOG_TYPE_DEFAULT);
  p11_warn("x", 1);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
  p11_error("x", 1);
  EXPECT_EQ(Log().size(), 1u);
}

TEST_F(DiagnosticsTest, NothingGoesToStandardOutputOrError) {
  scripted::CapturedOutput out(1);
  scripted::CapturedOutput err(2);
  p11_error("x", 1);
  p11_warn("x", 1);
  EXPECT_EQ(err.Text(), "");
  EXPECT_EQ(out.Text(), "");
}

}  // namespace
