#include "modulecheck/rsa_public.h"

#include <algorithm>
#include <cstdint>

namespace kelvrin::modulecheck {
namespace {

// A number in words of 32 bits, the lowest first; all of one size here.
using Words = std::vector<std::uint32_t>;

constexpr std::size_t kWord = sizeof(std::uint32_t);
constexpr std::size_t kMinModulus = 64;
constexpr std::size_t kMaxModulus = 2048;

std::span<const CK_BYTE> WithoutZeros(std::span<const CK_BYTE> number) {
  const auto first = std::find_if(number.begin(), number.end(), [](CK_BYTE b) { return b != 0; });
  return number.subspan(static_cast<std::size_t>(first - number.begin()));
}

Words ToWords(std::span<const CK_BYTE> number, std::size_t count) {
  Words words(count, 0);
  for (std::size_t i = 0; i < number.size(); ++i) {
    const CK_BYTE byte = number[number.size() - 1 - i];
    words[i / kWord] |= static_cast<std::uint32_t>(byte) << (8 * (i % kWord));
  }
  return words;
}

bool IsLess(const Words& a, const Words& b) {
  return std::lexicographical_compare(a.rbegin(), a.rend(), b.rbegin(), b.rend());
}

// a -= b; the borrow beyond the last word is dropped.
void Subtract(Words* a, const Words& b) {
  std::uint64_t borrow = 0;
  for (std::size_t i = 0; i < b.size(); ++i) {
    const std::uint64_t difference = std::uint64_t{(*a)[i]} - b[i] - borrow;
    (*a)[i] = static_cast<std::uint32_t>(difference);
    borrow = difference >> 63;
  }
}

// a = 2a + bit; whether a bit fell out at the top.
bool Double(Words* a, std::uint32_t bit) {
  for (std::uint32_t& word : *a) {
    const std::uint32_t next = word >> 31;
    word = word << 1 | bit;
    bit = next;
  }
  return bit != 0;
}

// a * b mod m, both less than m, bit by bit: few multiplications are needed.
Words Multiply(const Words& a, const Words& b, const Words& m) {
  Words product(m.size(), 0);
  for (std::size_t bit = 32 * a.size(); bit-- > 0;) {
    if (Double(&product, 0) || !IsLess(product, m)) Subtract(&product, m);
    if ((a[bit / 32] >> (bit % 32) & 1) == 0) continue;
    std::uint64_t carry = 0;
    for (std::size_t i = 0; i < b.size(); ++i) {
      carry += std::uint64_t{product[i]} + b[i];
      product[i] = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
    if (carry != 0 || !IsLess(product, m)) Subtract(&product, m);
  }
  return product;
}

Bytes ToBytes(const Words& words, std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[size - 1 - i] = static_cast<CK_BYTE>(words[i / kWord] >> (8 * (i % kWord)));
  }
  return bytes;
}

}  // namespace

std::size_t ModulusSize(const RsaPublicKey& key) { return WithoutZeros(key.modulus).size(); }

std::optional<Bytes> ApplyPublicKey(const RsaPublicKey& key, std::span<const CK_BYTE> block) {
  const auto modulus = WithoutZeros(key.modulus);
  const auto exponent = WithoutZeros(key.exponent);
  block = WithoutZeros(block);
  if (modulus.size() < kMinModulus || modulus.size() > kMaxModulus || (modulus.back() & 1) == 0 ||
      exponent.empty() || exponent.size() > sizeof(std::uint64_t) || (exponent.back() & 1) == 0 ||
      block.size() > modulus.size()) {
    return std::nullopt;
  }
  const std::size_t count = (modulus.size() + kWord - 1) / kWord;
  const Words m = ToWords(modulus, count);
  const Words base = ToWords(block, count);
  if (!IsLess(base, m)) return std::nullopt;
  Words power(count, 0);
  power[0] = 1;
  for (const CK_BYTE byte : exponent) {
    for (int bit = 7; bit >= 0; --bit) {
      power = Multiply(power, power, m);
      if ((byte >> bit & 1) != 0) power = Multiply(power, base, m);
    }
  }
  return ToBytes(power, modulus.size());
}

Bytes EncryptionBlock(std::span<const CK_BYTE> message, std::size_t size) {
  Bytes block(size, 0x5a);
  block[0] = 0;
  block[1] = 2;
  block[size - message.size() - 1] = 0;
  std::copy(message.begin(), message.end(), block.end() - static_cast<long>(message.size()));
  return block;
}

Bytes SignatureBlock(std::span<const CK_BYTE> sha256, std::size_t size) {
  constexpr CK_BYTE kPrefix[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                 0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  Bytes block(size - sizeof(kPrefix) - sha256.size(), 0xff);
  block.front() = 0;
  block[1] = 1;
  block.back() = 0;
  block.insert(block.end(), std::begin(kPrefix), std::end(kPrefix));
  block.insert(block.end(), sha256.begin(), sha256.end());
  return block;
}

}  // namespace kelvrin::modulecheck
