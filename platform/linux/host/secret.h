// A PIN on its way from the user to the token.
#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "platform/linux/host/result.h"

namespace host {

// Characters in UTF-8, wiped when they are gone. Never copied.
class Secret {
 public:
  Secret() = default;
  explicit Secret(std::vector<char> text) : text_(std::move(text)) {}
  Secret(Secret&&) = default;
  Secret& operator=(Secret&& other) noexcept {
    text_.swap(other.text_);
    return *this;
  }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { OPENSSL_cleanse(text_.data(), text_.size()); }

  const char* data() const { return text_.data(); }
  size_t size() const { return text_.size(); }

 private:
  std::vector<char> text_;
};

// Asks for the PIN: once a request at most, and only when the token wants one.
using PinSource = std::function<Result<Secret>()>;

}  // namespace host
