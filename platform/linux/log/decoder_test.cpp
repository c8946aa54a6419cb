#include "platform/linux/log/decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

namespace oslog {
namespace {

using testing::ElementsAre;

// What the compiler makes of a format and its arguments.
#define ENCODE(format, ...)                                                                  \
  [&] {                                                                                      \
    std::vector<uint8_t> buffer(__builtin_os_log_format_buffer_size(format, ##__VA_ARGS__)); \
    __builtin_os_log_format(buffer.data(), format, ##__VA_ARGS__);                           \
    return buffer;                                                                           \
  }()

#define DECODE(format, ...) DecodeBytes(format, ENCODE(format, ##__VA_ARGS__))

Line DecodeBytes(const char* format, const std::vector<uint8_t>& buffer,
                 ObjectDescriber describe = nullptr, int error = 0) {
  return decode(OS_LOG_TYPE_DEFAULT, format, buffer.data(), buffer.size(), describe, error);
}

// Items as the compiler writes them: kind and privacy, size, value.
std::vector<uint8_t> PointerItem(uint8_t descriptor, const void* pointer) {
  std::vector<uint8_t> buffer = {2, 1, descriptor, sizeof(pointer)};
  const auto* bytes = reinterpret_cast<const uint8_t*>(&pointer);
  buffer.insert(buffer.end(), bytes, bytes + sizeof(pointer));
  return buffer;
}

TEST(Decoder, EmptyBufferLeavesArgumentsMissing) {
  const Line line = decode(OS_LOG_TYPE_ERROR, "a %d b %s", nullptr, 0, nullptr, 0);
  EXPECT_EQ(line.text(), "a <decode: missing data> b <decode: missing data>");
}

TEST(Decoder, BufferOfOneByteHoldsNoItem) {
  EXPECT_EQ(DecodeBytes("%d", {2}).text(), "<decode: missing data>");
}

TEST(Decoder, ItemLongerThanTheBufferIsMissing) {
  EXPECT_EQ(DecodeBytes("%d", {0, 1, 0, 4, 1, 2, 3}).text(), "<decode: missing data>");
  EXPECT_EQ(DecodeBytes("%d", {0, 1, 0}).text(), "<decode: missing data>");
}

TEST(Decoder, ItemsAfterAnOverlongOneAreMissingToo) {
  EXPECT_EQ(DecodeBytes("%d %d", {0, 2, 0, 11, 1, 0, 0, 0, 0, 4, 1, 0, 0, 0}).text(),
            "<decode: missing data> <decode: missing data>");
}

TEST(Decoder, WidthWithoutItsArgumentIsMissing) {
  EXPECT_EQ(DecodeBytes("%*d", {0, 0}).text(), "<decode: missing data>");
}

TEST(Decoder, CountWithoutItsArgumentIsMissing) {
  EXPECT_EQ(DecodeBytes("%.*s", {2, 1, 0x10, 4, 3, 0, 0, 0}).text(), "<decode: missing data>");
}

TEST(Decoder, ItemThatDoesNotFitItsConversionIsAMismatch) {
  EXPECT_EQ(DecodeBytes("%s", {0, 1, 0, 4, 1, 0, 0, 0}).text(), "<decode: mismatch>");
  EXPECT_EQ(DecodeBytes("%d", PointerItem(0x20, "text")).text(), "<decode: mismatch>");
  EXPECT_EQ(DecodeBytes("%f", {0, 1, 0, 4, 1, 0, 0, 0}).text(), "<decode: mismatch>");
  EXPECT_EQ(DecodeBytes("%d", PointerItem(0xF0, nullptr)).text(), "<decode: mismatch>");
}

TEST(Decoder, WideStringIsAMismatch) {
  EXPECT_EQ(DECODE("%ls", L"wide").text(), "<decode: mismatch>");
}

TEST(Decoder, FormatThatEndsInsideAConversionIsAMismatch) {
  EXPECT_EQ(DecodeBytes("%", {0, 1, 0, 4, 1, 0, 0, 0}).text(), "<decode: mismatch>");
  EXPECT_EQ(DecodeBytes("%{public", {0, 1, 0, 4, 1, 0, 0, 0}).text(), "<decode: mismatch>");
  EXPECT_EQ(DecodeBytes("%l", {0, 1, 0, 4, 1, 0, 0, 0}).text(), "<decode: mismatch>");
}

TEST(Decoder, NullStringAndNullObjectReadNull) {
  EXPECT_EQ(DecodeBytes("%{public}s", PointerItem(0x22, nullptr)).text(), "(null)");
  EXPECT_EQ(DecodeBytes("%{public}@", PointerItem(0x42, nullptr)).text(), "(null)");
}

TEST(Decoder, EmptyFormatHasNoText) {
  const Line line = DecodeBytes("", {0, 0});
  EXPECT_EQ(line.text(), "");
  EXPECT_TRUE(line.arguments.empty());
}

TEST(Decoder, TrailingNewlineIsKept) {
  EXPECT_EQ(DECODE("%d Slot(s) gefunden.\n", 3).text(), "3 Slot(s) gefunden.\n");
}

TEST(Decoder, DoubledPercentIsOne) { EXPECT_EQ(DECODE("100%% of %d%%", 7).text(), "100% of 7%"); }

TEST(Decoder, NumbersFollowTheirConversion) {
  EXPECT_EQ(DECODE("%d|%5d|%-5d|%05d|%+d", -1, 2, 3, 4, 5).text(), "-1|    2|3    |00004|+5");
  EXPECT_EQ(DECODE("0x%02X (0x%0x) 0x%X", 10U, 160U, 0xDEADBEEFU).text(), "0x0A (0xa0) 0xDEADBEEF");
  EXPECT_EQ(DECODE("%lu %lld", 18446744073709551615UL, -5000000000LL).text(),
            "18446744073709551615 -5000000000");
  EXPECT_EQ(DECODE("%hhd %hu %zu %#o", static_cast<signed char>(-2),
                   static_cast<unsigned short>(65535), sizeof(int), 8U)
                .text(),
            "-2 65535 4 010");
  EXPECT_EQ(DECODE("%c%c", 'o', 'k').text(), "ok");
  EXPECT_EQ(DECODE("%.2f %Lg", 1.5, 2.5L).text(), "1.50 2.5");
  EXPECT_EQ(DECODE("%p", reinterpret_cast<void*>(0x1234)).text(), "0x1234");
}

TEST(Decoder, WidthAndPrecisionMayBeArguments) {
  EXPECT_EQ(DECODE("%*d", 4, 7).text(), "   7");
  EXPECT_EQ(DECODE("%{public}.*s", 3, "abcdef").text(), "abc");
  EXPECT_EQ(DECODE("%{public}.2s", "abcdef").text(), "ab");
  EXPECT_EQ(DECODE("%.3d", 7).text(), "007");
}

TEST(Decoder, NegativePrecisionIsNone) {
  EXPECT_EQ(DECODE("%{public}.*s", -1, "abcdef").text(), "abcdef");
}

TEST(Decoder, BytesReadAsHex) {
  EXPECT_EQ(DECODE("%{public}.3P", "\x01\xAB\xFF").text(), "01ABFF");
}

TEST(Decoder, ErrorNumberReadsAsItsMessage) {
  EXPECT_EQ(DecodeBytes("%m", ENCODE("%m"), nullptr, ENOENT).text(), "No such file or directory");
}

TEST(Decoder, TextIsCopiedWhenDecoded) {
  std::string text = "before";
  const Line line = DECODE("%{public}s", text.c_str());
  text = "after!";
  EXPECT_EQ(line.text(), "before");
}

TEST(Decoder, StringIsHiddenUnlessPublic) {
  EXPECT_EQ(DECODE("%s and %{public}s", "a", "b").text(), "<private> and b");
  EXPECT_EQ(DECODE("%s and %{public}s", "a", "b").private_text(), "a and b");
}

TEST(Decoder, NumberIsShownUnlessPrivate) {
  EXPECT_EQ(DECODE("%d %{private}d %{public}d", 1, 2, 3).text(), "1 <private> 3");
  EXPECT_EQ(DECODE("%d %{private}d %{public}d", 1, 2, 3).private_text(), "1 2 3");
}

TEST(Decoder, SensitiveAndMaskedAreHidden) {
  EXPECT_EQ(DECODE("%{sensitive}s", "a").text(), "<private>");
  EXPECT_EQ(DECODE("%{mask.hash}s", "a").text(), "<private>");
  EXPECT_EQ(DECODE("%{mask.hash}s", "a").private_text(), "a");
}

TEST(Decoder, FailureLineOfACallHidesItsNames) {
  const Line line = DECODE("PKCS11 function %s failed: rv = %s (0x%0x)", "C_Login", "CKR_X", 0xa0U);
  EXPECT_EQ(line.text(), "PKCS11 function <private> failed: rv = <private> (0xa0)");
  EXPECT_EQ(line.private_text(), "PKCS11 function C_Login failed: rv = CKR_X (0xa0)");
}

TEST(Decoder, ArgumentsTellPrivacyKindAndText) {
  const Line line = DECODE("%d %{public}s %{private}d", 1, "s", 2);
  ASSERT_EQ(line.arguments.size(), 3U);
  EXPECT_EQ(line.arguments[0].privacy, Privacy::kUnspecified);
  EXPECT_EQ(line.arguments[0].kind, Kind::kScalar);
  EXPECT_EQ(line.arguments[0].text, "1");
  EXPECT_EQ(line.arguments[1].privacy, Privacy::kPublic);
  EXPECT_EQ(line.arguments[1].kind, Kind::kString);
  EXPECT_EQ(line.arguments[1].text, "s");
  EXPECT_EQ(line.arguments[2].privacy, Privacy::kPrivate);
  EXPECT_EQ(line.arguments[2].text, "2");
  EXPECT_THAT(line.pieces, ElementsAre("", " ", " ", ""));
}

TEST(Decoder, FormatAndTypeAreKept) {
  const std::vector<uint8_t> buffer = ENCODE("n = %d", 1);
  const Line line = decode(OS_LOG_TYPE_ERROR, "n = %d", buffer.data(), buffer.size(), nullptr, 0);
  EXPECT_EQ(line.format, "n = %d");
  EXPECT_EQ(line.type, OS_LOG_TYPE_ERROR);
  EXPECT_EQ(line.typed_text(), "error: n = 1");
}

TEST(Decoder, ObjectIsDescribedByItsHook) {
  const auto describe = [](const void* object) -> std::string {
    return "object " + std::string(static_cast<const char*>(object));
  };
  const Line shown = DecodeBytes("%{public}@", PointerItem(0x42, "x"), describe);
  EXPECT_EQ(shown.text(), "object x");
  EXPECT_EQ(shown.arguments[0].kind, Kind::kObject);
  EXPECT_EQ(DecodeBytes("%@", PointerItem(0x40, "x"), describe).text(), "<private>");
}

TEST(Decoder, ObjectWithoutAHookShowsItsAddress) {
  const void* object = reinterpret_cast<const void*>(0xabc);
  EXPECT_EQ(DecodeBytes("%{public}@", PointerItem(0x42, object)).text(), "0xabc");
}

TEST(TypeName, EveryTypeHasOne) {
  EXPECT_STREQ(type_name(OS_LOG_TYPE_DEFAULT), "default");
  EXPECT_STREQ(type_name(OS_LOG_TYPE_INFO), "info");
  EXPECT_STREQ(type_name(OS_LOG_TYPE_DEBUG), "debug");
  EXPECT_STREQ(type_name(OS_LOG_TYPE_ERROR), "error");
  EXPECT_STREQ(type_name(OS_LOG_TYPE_FAULT), "fault");
  EXPECT_STREQ(type_name(0x42), "unknown");
}

}  // namespace
}  // namespace oslog
