// What the fuzzer's input says, as answers and as calls. When it is at its end everything is 0,
// which ends every loop.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <p11-kit/pkcs11.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelvrin::fuzz {

using Bytes = std::vector<CK_BYTE>;

class Script {
 public:
  Script(const std::uint8_t* data, std::size_t size) : data_(data, size) { current = this; }
  ~Script() { current = nullptr; }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  bool IsOver() { return data_.remaining_bytes() == 0; }
  bool Coin() { return (Byte() & 1) != 0; }
  CK_BYTE Byte() { return data_.ConsumeIntegral<CK_BYTE>(); }
  // 0 to `last`.
  CK_ULONG UpTo(CK_ULONG last) { return data_.ConsumeIntegralInRange<CK_ULONG>(0, last); }

  // A number as nobody would choose it: 0, sizes of keys and fields, absurdities, anything.
  CK_ULONG Number();
  // What a call answers: success mostly.
  CK_RV Result();
  // What a module says a length or a count is that had room for `room`, and how much of it it
  // wrote.
  CK_ULONG Length(CK_ULONG room);
  Bytes Some(std::size_t most) {
    return data_.ConsumeBytes<CK_BYTE>(data_.ConsumeIntegralInRange<std::size_t>(0, most));
  }
  // Writes into all of the room, which is the only thing a module is trusted with.
  void Fill(void* room, std::size_t size);

  // The one whose run it is.
  static Script* current;

 private:
  FuzzedDataProvider data_;
};

}  // namespace kelvrin::fuzz
