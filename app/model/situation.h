// The state that the sentence at the top of the window tells.
#pragma once

#include <string>
#include <vector>

#include "app/model/registration.h"
#include "app/model/system.h"

namespace kelvrin::app {

enum class State {
  kLooking,            // not everything has been read yet
  kNoExtension,        // somebody took it out of the application
  kNotInApplications,  // the application does not lie where it can stay
  kReady,
  kNoCertificates,  // a card of ours with none
  kNothingUsable,   // a card of ours whose certificates are out of date or have no key
  kSeveralCopies,
  kNotRegistered,
  kSwitchedOff,
  kReadersHidden,  // the system does not let the application see readers
  kNoReader,
  kNoCard,
  kMuteCard,  // a card that does not answer
  kNoToken,   // a card, but no token of ours
};

// What the one button beside the sentence does, or shows.
enum class NextStep {
  kNone,
  kShowGuide,
  kShowApplication,  // in the Finder, to be moved
  kShowCopy,         // in the Finder, to be deleted
  kRegister,
  kSwitchOn,
  kDiagnose,
};

// One token of ours.
struct Card {
  std::string token_id;
  std::string number;  // the token ID behind the class ID
  std::string reader;  // empty when it is not known
  size_t certificates = 0;
  size_t usable = 0;  // of them: valid now, with a key
};

struct Situation {
  State state = State::kLooking;
  std::vector<Card> cards = {};  // of kReady, kNoCertificates and kNothingUsable
  std::string reader = {};       // where the card is: of kMuteCard, kNoToken and kLooking
  std::string other_token = {};  // of kNoToken: another extension's, for the card in that reader
  std::vector<std::string> copies = {};  // of kSeveralCopies: the others' applications
};

// What is known when the state is decided.
struct Knowledge {
  const Installation& installation;
  const Registration* registration = nullptr;  // null until it has been read
  const Presence& presence;
  std::vector<Card> cards = {};  // tokens of ours whose certificates have been read
  bool is_reading = false;       // a token's certificates have not been read yet
  bool is_waiting = false;       // a card has just come, and its token may follow
};

// What keeps the application from staying where it is comes first; then a card that works is ready,
// whatever else is the matter.
Situation Decide(const Knowledge& knowledge);

NextStep NextStepOf(State state);

// Whether a token is one of the extension with that class ID.
bool IsOurs(const std::string& token_id, const std::string& class_id);

}  // namespace kelvrin::app
