// A value, or the error for which there is none. Errors are returned rather than thrown: the GCC
// Objective-C runtime cannot catch C++ exceptions in Objective-C++.
#pragma once

#include <utility>
#include <variant>

#include "platform/linux/host/error.h"

namespace host {

template <typename T>
class [[nodiscard]] Result {
 public:
  // Implicit, as the linter would not have it, so that functions return either as it is.
  Result(T value) : state_(std::move(value)) {}      // NOLINT(google-explicit-constructor)
  Result(Error error) : state_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return std::holds_alternative<T>(state_); }

  // The value; only when there is one.
  T& operator*() { return std::get<T>(state_); }
  const T& operator*() const { return std::get<T>(state_); }
  T* operator->() { return &std::get<T>(state_); }
  const T* operator->() const { return &std::get<T>(state_); }

  // The error; only when there is no value.
  const Error& error() const { return std::get<Error>(state_); }

 private:
  std::variant<T, Error> state_;
};

}  // namespace host
