#include "platform/linux/log/decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
                 ObjectDescriber describe = nullptr) {
  return Decode(OS_LOG_TYPE_DEFAULT, format, buffer.data(), buffer.size(), describe);
}

// Items as the compiler writes them: kind and privacy, size, value.
std::vector<uint8_t> PointerItem(uint8_t descriptor, const void* pointer) {
  std::vector<uint8_t> buffer = {2, 1, descriptor, sizeof(pointer)};
  const auto* bytes = reinterpret_cast<const uint8_t*>(&pointer);
  buffer.insert(buffer.end(), bytes, bytes + sizeof(pointer));
  return buffer;
}

constexpr char kMissing[] = "<decode: missing data>";
constexpr char kMismatch[] = "<decode: mismatch>";

TEST(Decoder, WhatTheBufferLacksIsMissing) {
  const struct {
    const char* format;
    std::vector<uint8_t> buffer;
  } rows[] = {{"%d", {}},
              {"%d", {2}},
              {"%d", {0, 1, 0}},
              {"%d", {0, 1, 0, 4, 1, 2, 3}}};  // an item longer than the buffer
  for (const auto& row : rows) EXPECT_EQ(DecodeBytes(row.format, row.buffer).text(), kMissing);
  EXPECT_EQ(DecodeBytes("%d %s", {0, 2, 0, 11, 1, 0, 0, 0, 0, 4, 1, 0, 0, 0}).text(),
            std::string(kMissing) + " " + kMissing);
}

TEST(Decoder, ItemThatDoesNotFitItsConversionOrIsOfAnotherKindIsAMismatch) {
  const std::vector<uint8_t> number = {0, 1, 0, 4, 1, 0, 0, 0};
  for (const char* format : {"%s", "%f", "%", "%{public", "%l"}) {
    EXPECT_EQ(DecodeBytes(format, number).text(), kMismatch) << format;
  }
  EXPECT_EQ(DecodeBytes("%d", PointerItem(0x20, "text")).text(), kMismatch);
  EXPECT_EQ(DecodeBytes("%d", PointerItem(0xF0, nullptr)).text(), kMismatch);
  EXPECT_EQ(DECODE("%f", 1.5).text(), kMismatch);
  EXPECT_EQ(DECODE("%{public}.*s", 3, "abcdef").text(), std::string(kMismatch) + "*s");
}

TEST(Decoder, NullStringAndNullObjectReadNull) {
  EXPECT_EQ(DecodeBytes("%{public}s", PointerItem(0x22, nullptr)).text(), "(null)");
  EXPECT_EQ(DecodeBytes("%{public}@", PointerItem(0x42, nullptr)).text(), "(null)");
}

TEST(Decoder, TextFollowsTheFormat) {
  const std::pair<Line, const char*> rows[] = {
      {DecodeBytes("", {0, 0}), ""},
      {DECODE("%d Slot(s) gefunden.\n", 3), "3 Slot(s) gefunden.\n"},
      {DECODE("100%% of %d%%", 7), "100% of 7%"},
      {DECODE("%d|%5d|%-5d|%05d|%+d", -1, 2, 3, 4, 5), "-1|    2|3    |00004|+5"},
      {DECODE("0x%02X (0x%0x) 0x%X", 10U, 160U, 0xDEADBEEFU), "0x0A (0xa0) 0xDEADBEEF"},
      {DECODE("%lu %lld", 18446744073709551615UL, -5000000000LL),
       "18446744073709551615 -5000000000"},
      {DECODE("%hhd %hu %zu", static_cast<signed char>(-2), static_cast<unsigned short>(65535),
              sizeof(int)),
       "-2 65535 4"},
      {DECODE("%{public}s", "text"), "text"}};
  for (const auto& [line, text] : rows) EXPECT_EQ(line.text(), text);
}

TEST(Decoder, TextIsCopiedWhenDecoded) {
  std::string text = "before";
  const Line line = DECODE("%{public}s", text.c_str());
  text = "after!";
  EXPECT_EQ(line.text(), "before");
}

TEST(Decoder, NumbersAreShownUnlessPrivateAndOthersWhenPublic) {
  const struct {
    Line line;
    const char* text;
    const char* with_private;
  } rows[] = {{DECODE("%s and %{public}s", "a", "b"), "<private> and b", "a and b"},
              {DECODE("%d %{private}d %{public}d", 1, 2, 3), "1 <private> 3", "1 2 3"},
              {DECODE("%{sensitive}s", "a"), "<private>", "a"},
              {DECODE("PKCS11 function %s failed: rv = %s (0x%0x)", "C_Login", "CKR_X", 0xa0U),
               "PKCS11 function <private> failed: rv = <private> (0xa0)",
               "PKCS11 function C_Login failed: rv = CKR_X (0xa0)"}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.line.text(), row.text);
    EXPECT_EQ(row.line.private_text(), row.with_private);
  }
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
  const Line line = Decode(OS_LOG_TYPE_ERROR, "n = %d", buffer.data(), buffer.size(), nullptr);
  EXPECT_EQ(line.format, "n = %d");
  EXPECT_EQ(line.type, OS_LOG_TYPE_ERROR);
  EXPECT_EQ(line.typed_text(), "error: n = 1");
}

TEST(Decoder, ObjectIsDescribedByItsHookOrShowsItsAddress) {
  const auto describe = [](const void* object) -> std::string {
    return "object " + std::string(static_cast<const char*>(object));
  };
  const Line shown = DecodeBytes("%{public}@", PointerItem(0x42, "x"), describe);
  EXPECT_EQ(shown.text(), "object x");
  EXPECT_EQ(shown.arguments[0].kind, Kind::kObject);
  EXPECT_EQ(DecodeBytes("%@", PointerItem(0x40, "x"), describe).text(), "<private>");
  const void* object = reinterpret_cast<const void*>(0xabc);
  EXPECT_EQ(DecodeBytes("%{public}@", PointerItem(0x42, object)).text(), "0xabc");
}

TEST(TypeName, EveryTypeHasOne) {
  EXPECT_STREQ(TypeName(OS_LOG_TYPE_DEFAULT), "default");
  EXPECT_STREQ(TypeName(OS_LOG_TYPE_INFO), "info");
  EXPECT_STREQ(TypeName(OS_LOG_TYPE_DEBUG), "debug");
  EXPECT_STREQ(TypeName(OS_LOG_TYPE_ERROR), "error");
  EXPECT_STREQ(TypeName(OS_LOG_TYPE_FAULT), "fault");
  EXPECT_STREQ(TypeName(0x42), "unknown");
}

}  // namespace
}  // namespace oslog
