// What an operation of the platform failed with: domain, code and description, as in NSError.
#pragma once

#include <string>

namespace host {

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

inline Error parameter_error(std::string description) {
  return {kOsStatusDomain, kParameterStatus, std::move(description)};
}

inline Error host_error(std::string description) {
  return {kHostDomain, 1, std::move(description)};
}

}  // namespace host
