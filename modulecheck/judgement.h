// What a probe found.
#pragma once

#include <p11-kit/pkcs11.h>

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace kelvrin::modulecheck {

enum class Outcome {
  kMet,
  kUnmet,
  kNotConcerned,  // nothing on the card that the expectation speaks of
  kNotTried,      // it takes something that was not given, such as a PIN
  kUnknown,       // something before it failed
};

struct Judgement {
  Outcome outcome = Outcome::kUnknown;
  std::string call;             // the PKCS#11 function that decided, if one did
  std::optional<CK_RV> result;  // and its result
  std::string detail;           // what was seen; may be empty
};

inline Judgement Met(std::string detail = "") { return {Outcome::kMet, "", {}, std::move(detail)}; }
inline Judgement Unmet(std::string detail) { return {Outcome::kUnmet, "", {}, std::move(detail)}; }
inline Judgement Unmet(std::string call, CK_RV result, std::string detail = "") {
  return {Outcome::kUnmet, std::move(call), result, std::move(detail)};
}
inline Judgement NotConcerned(std::string detail) {
  return {Outcome::kNotConcerned, "", {}, std::move(detail)};
}
inline Judgement NotTried(std::string detail) {
  return {Outcome::kNotTried, "", {}, std::move(detail)};
}
inline Judgement Unknown(std::string detail) {
  return {Outcome::kUnknown, "", {}, std::move(detail)};
}

// What was seen, in one line: "C_Sign gave CKR_DEVICE_ERROR (0x30), of 51 bytes".
std::string Seen(const Judgement& judgement);

// As JSON: outcome, call, result (a number), resultName, detail; empty ones are left out.
void to_json(nlohmann::json& json, const Judgement& judgement);
// Throws nlohmann::json::exception when it is none.
void from_json(const nlohmann::json& json, Judgement& judgement);

}  // namespace kelvrin::modulecheck
