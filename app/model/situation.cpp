#include "app/model/situation.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "app/model/installation_place.h"

namespace kelvrin::app {
namespace {

// The applications that hold other copies of the extension than this one does.
std::vector<std::string> OtherCopies(const Knowledge& knowledge) {
  std::vector<std::string> copies = knowledge.registration->paths;
  std::erase(copies, knowledge.installation.extension);
  for (std::string& copy : copies) {
    constexpr std::string_view kBundle = ".app/";
    const size_t end = copy.find(kBundle);
    if (end != std::string::npos) copy.resize(end + kBundle.size() - 1);
  }
  return copies;
}

// What keeps the system from starting the extension; kReady when nothing does.
State StateOf(const Registration& registration, const std::vector<std::string>& copies) {
  if (!registration.is_known) return State::kReady;
  if (!copies.empty()) return State::kSeveralCopies;
  if (registration.paths.empty()) return State::kNotRegistered;
  return registration.is_on ? State::kReady : State::kSwitchedOff;
}

// Another extension's token in a reader, where the system tells where tokens are; may be empty.
std::string OtherToken(const Knowledge& knowledge, const std::string& reader) {
  for (const Token& token : knowledge.presence.tokens) {
    if (token.reader == reader && !IsOurs(token.id, knowledge.installation.class_id)) {
      return token.id;
    }
  }
  return "";
}

bool HasCard(const Reader& reader) {
  return reader.state == SlotState::kCard || reader.state == SlotState::kMute;
}

// The state when there are tokens of ours.
State WithCards(const std::vector<Card>& cards) {
  if (std::ranges::any_of(cards, [](const Card& card) { return card.usable > 0; })) {
    return State::kReady;
  }
  const bool has_any =
      std::ranges::any_of(cards, [](const Card& card) { return card.certificates > 0; });
  return has_any ? State::kNothingUsable : State::kNoCertificates;
}

// Where a card is; empty when there is none that can be seen.
std::string ReaderWithCard(const Presence& presence) {
  const auto reader = std::ranges::find_if(presence.readers, HasCard);
  return reader == presence.readers.end() ? "" : reader->name;
}

// The state when the extension could be started and there is no token of ours.
Situation WithoutToken(const Knowledge& knowledge) {
  const Presence& presence = knowledge.presence;
  if (!presence.shows_readers) return {.state = State::kReadersHidden};
  if (presence.readers.empty()) return {.state = State::kNoReader};
  const auto card = std::ranges::find_if(presence.readers, HasCard);
  if (card != presence.readers.end()) {
    if (knowledge.is_waiting) return {.state = State::kLooking, .reader = card->name};
    if (card->state == SlotState::kMute) {
      return {.state = State::kMuteCard, .reader = card->name};
    }
    return {.state = State::kNoToken,
            .reader = card->name,
            .other_token = OtherToken(knowledge, card->name)};
  }
  const auto probing = std::ranges::find(presence.readers, SlotState::kProbing, &Reader::state);
  if (probing == presence.readers.end()) return {.state = State::kNoCard};
  return {.state = State::kLooking, .reader = probing->name};
}

}  // namespace

Situation Decide(const Knowledge& knowledge) {
  const Installation& installation = knowledge.installation;
  if (installation.extension.empty()) return {.state = State::kNoExtension};
  if (!IsInstallationPlace(installation.application, installation.home)) {
    return {.state = State::kNotInApplications};
  }
  if (!knowledge.cards.empty()) {
    return {.state = WithCards(knowledge.cards), .cards = knowledge.cards};
  }
  if (knowledge.is_reading) return {.reader = ReaderWithCard(knowledge.presence)};
  if (knowledge.registration == nullptr) return {};
  std::vector<std::string> copies = OtherCopies(knowledge);
  const State state = StateOf(*knowledge.registration, copies);
  if (state != State::kReady) return {.state = state, .copies = std::move(copies)};
  return WithoutToken(knowledge);
}

NextStep NextStepOf(State state) {
  switch (state) {
    case State::kLooking:
      return NextStep::kNone;
    case State::kNotInApplications:
      return NextStep::kShowApplication;
    case State::kSeveralCopies:
      return NextStep::kShowCopy;
    case State::kNotRegistered:
      return NextStep::kRegister;
    case State::kSwitchedOff:
      return NextStep::kSwitchOn;
    case State::kNoCertificates:
    case State::kNothingUsable:
    case State::kReadersHidden:
    case State::kNoToken:
      return NextStep::kDiagnose;
    case State::kNoExtension:
    case State::kReady:
    case State::kMuteCard:
    case State::kNoReader:
    case State::kNoCard:
      break;
  }
  return NextStep::kShowGuide;
}

bool IsOurs(const std::string& token_id, const std::string& class_id) {
  return token_id.starts_with(class_id + ":");
}

}  // namespace kelvrin::app
