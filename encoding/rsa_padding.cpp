#include "encoding/rsa_padding.h"

#include <algorithm>

namespace kelvrin::encoding {
namespace {

constexpr std::size_t kMinFiller = 8;
// What stands round filler and message: 00, the block's type, 00.
constexpr std::size_t kFrame = 3;
constexpr unsigned char kSignature = 1;
constexpr unsigned char kEncryption = 2;
constexpr unsigned char kFiller = 0xff;

}  // namespace

std::optional<Bytes> UnpadSignatureBlock(ByteView block, std::size_t modulus_size) {
  if (modulus_size < kFrame + kMinFiller || block.size() > modulus_size) return std::nullopt;
  // Without leading zeros: the first of them belongs to the block, more would not.
  if (block.size() == modulus_size) {
    if (block.front() != 0) return std::nullopt;
    block = block.subspan(1);
  }
  if (block.size() != modulus_size - 1 || block.front() != kSignature) return std::nullopt;
  const auto filler = block.begin() + 1;
  const auto end =
      std::find_if(filler, block.end(), [](unsigned char byte) { return byte != kFiller; });
  if (end == block.end() || *end != 0) return std::nullopt;
  if (static_cast<std::size_t>(end - filler) < kMinFiller) return std::nullopt;
  return Bytes(end + 1, block.end());
}

Bytes PadDecryptedMessage(ByteView message, std::size_t modulus_size) {
  if (modulus_size < kFrame + kMinFiller || message.size() > modulus_size - kFrame - kMinFiller) {
    return {};
  }
  Bytes block(modulus_size, kFiller);
  block[0] = 0;
  block[1] = kEncryption;
  const auto separator = block.end() - static_cast<std::ptrdiff_t>(message.size()) - 1;
  *separator = 0;
  std::copy(message.begin(), message.end(), separator + 1);
  return block;
}

}  // namespace kelvrin::encoding
