#include "platform/linux/host/rsa_words.h"

#include <algorithm>
#include <string>

namespace host {

Bytes to_words(const Bytes& big_endian) { return {big_endian.rbegin(), big_endian.rend()}; }

Result<Bytes> from_words(const Bytes& words, size_t block_size) {
  Bytes number = words;
  while (!number.empty() && number.back() == 0) number.pop_back();
  if (number.size() > block_size) {
    return parameter_error("the number has " + std::to_string(number.size()) +
                           " bytes, but the key's modulus only " + std::to_string(block_size));
  }
  number.resize(block_size);
  std::ranges::reverse(number);
  return number;
}

}  // namespace host
