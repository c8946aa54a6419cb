#include "fuzz/script.h"

#include <algorithm>
#include <cstring>

namespace kelvrin::fuzz {
namespace {

constexpr CK_ULONG kAll = ~CK_ULONG{0};
constexpr std::array<CK_ULONG, 24> kNumbers = {
    0,   1,   2,   3,   7,   8,    16,   20,   32,    63,        64,       65,
    128, 160, 255, 256, 257, 1024, 4096, 4097, 65536, 1UL << 31, kAll - 1, kAll};
constexpr std::array<CK_RV, 24> kResults = {CKR_BUFFER_TOO_SMALL,
                                            CKR_OPERATION_ACTIVE,
                                            CKR_KEY_HANDLE_INVALID,
                                            CKR_OBJECT_HANDLE_INVALID,
                                            CKR_SESSION_HANDLE_INVALID,
                                            CKR_SESSION_CLOSED,
                                            CKR_SESSION_COUNT,
                                            CKR_ATTRIBUTE_TYPE_INVALID,
                                            CKR_ATTRIBUTE_SENSITIVE,
                                            CKR_ARGUMENTS_BAD,
                                            CKR_CANT_LOCK,
                                            CKR_CRYPTOKI_ALREADY_INITIALIZED,
                                            CKR_CRYPTOKI_NOT_INITIALIZED,
                                            CKR_DEVICE_ERROR,
                                            CKR_DEVICE_REMOVED,
                                            CKR_TOKEN_NOT_PRESENT,
                                            CKR_USER_ALREADY_LOGGED_IN,
                                            CKR_USER_NOT_LOGGED_IN,
                                            CKR_PIN_INCORRECT,
                                            CKR_MECHANISM_INVALID,
                                            CKR_DATA_LEN_RANGE,
                                            CKR_NO_EVENT,
                                            CKR_FUNCTION_NOT_SUPPORTED,
                                            CKR_VENDOR_DEFINED};

}  // namespace

Script* Script::current = nullptr;

CK_ULONG Script::Number() {
  const CK_BYTE choice = Byte();
  if (choice < kNumbers.size()) return kNumbers[choice];
  return choice < 0xe0 ? choice : data_.ConsumeIntegral<CK_ULONG>();
}

CK_RV Script::Result() {
  const CK_BYTE choice = Byte();
  if (choice < 0xe0) return CKR_OK;
  if (choice < 0xe0 + kResults.size()) return kResults[choice - 0xe0];
  return data_.ConsumeIntegral<CK_RV>();
}

CK_ULONG Script::Length(CK_ULONG room) {
  switch (Byte() % 8) {
    case 1:
      return room + 1;
    case 2:
      return Number();
    case 3:
      return UpTo(std::min<CK_ULONG>(room, 4096));
    case 4:
      return CK_UNAVAILABLE_INFORMATION;
    case 5:
      return 0;
    default:
      return room;
  }
}

void Script::Fill(void* room, std::size_t size) {
  if (room == nullptr || size == 0) return;
  // The bytes beyond what the input says are one value, so that inputs stay short.
  const Bytes bytes = Some(std::min<std::size_t>(size, 64));
  std::memset(room, Byte(), size);
  if (!bytes.empty()) std::memcpy(room, bytes.data(), bytes.size());
}

}  // namespace kelvrin::fuzz
