// A value, or the error for which there is none. Errors are returned rather than thrown: the GCC
// Objective-C runtime cannot catch C++ exceptions in Objective-C++.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <variant>

#include "encoding/bytes.h"
#include "encoding/secret.h"

namespace host {

using kelvrin::encoding::Bytes;
using kelvrin::encoding::Secret;

// Domain, code and description, as in NSError.
struct Error {
  std::string domain;
  long code = 0;
  std::string description;  // one sentence
};

// Domain of the errors that Security gives itself, and codes in it.
inline constexpr char kOsStatusDomain[] = "NSOSStatusErrorDomain";
constexpr long kParameterStatus = -50;      // errSecParam
constexpr long kAuthFailedStatus = -25293;  // errSecAuthFailed
constexpr long kDecodeStatus = -26275;      // errSecDecode

// Domain of the host's own troubles: files, bundles, names. Its code is always 1.
inline constexpr char kHostDomain[] = "tokenhost";

inline Error ParameterError(std::string description) {
  return {kOsStatusDomain, kParameterStatus, std::move(description)};
}

inline Error HostError(std::string description) { return {kHostDomain, 1, std::move(description)}; }

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

// Asks for the PIN, in UTF-8: once a request at most, and only when the token wants one.
using PinSource = std::function<Result<Secret>()>;

}  // namespace host
