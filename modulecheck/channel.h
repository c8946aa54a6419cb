// What a worker tells the program that started it: one JSON object a line.
//
//   {"begin": STEP}                     a step begins; the first is kBringUpStep
//   {"failure": TEXT}                   the module cannot be loaded
//   {"listing": Listing}                what the module shows; ends the step kListingStep
//   {"privateKeys": [...]}              what shows after the login
//   {"warning": TEXT}
//   {"login": "tried" | "accepted" | "refused"}
//   {"judgement": Judgement, "of": STEP}  ends a step
//   {"end": true}                       all steps are done
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

namespace kelvrin::modulecheck {

inline constexpr std::string_view kBringUpStep = "bring-up";
inline constexpr std::string_view kListingStep = "listing";

// The descriptor on which a worker talks.
inline constexpr int kChannelDescriptor = 3;

class Channel {
 public:
  explicit Channel(int descriptor) : descriptor_(descriptor) {}

  // Ends the process when nobody listens any more.
  void Send(const nlohmann::json& message) const;

 private:
  int descriptor_;
};

}  // namespace kelvrin::modulecheck
