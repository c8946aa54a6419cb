#include "app/text/texts.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace kelvrin::app {
namespace {

// None, one and more have texts of their own.
std::string Counted(const char* key, size_t count) {
  return std::string(key) + (count == 0 ? "_0" : count == 1 ? "_1" : "_N");
}

const char* SentenceKey(State state) {
  switch (state) {
    case State::kLooking:
      return "LOOKING";
    case State::kNoExtension:
      return "NO_EXTENSION";
    case State::kNotInApplications:
      return "NOT_IN_APPLICATIONS";
    case State::kReady:
      return "READY";
    case State::kNoCertificates:
      return "NO_CERTIFICATES";
    case State::kNothingUsable:
      return "NOTHING_USABLE";
    case State::kSeveralCopies:
      return "SEVERAL_COPIES";
    case State::kNotRegistered:
      return "NOT_REGISTERED";
    case State::kSwitchedOff:
      return "SWITCHED_OFF";
    case State::kReadersHidden:
      return "READERS_HIDDEN";
    case State::kNoReader:
      return "NO_READER";
    case State::kNoCard:
      return "NO_CARD";
    case State::kMuteCard:
      return "MUTE_CARD";
    case State::kNoToken:
      return "NO_TOKEN";
  }
  return "";
}

}  // namespace

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    std::array<char, 4> digits = {};
    std::snprintf(digits.data(), digits.size(), "%02X", byte);
    text += (text.empty() ? "" : ":") + std::string(digits.data());
  }
  return text;
}

// Each place is filled once: what stands for it may look like a place itself.
std::string Texts::Fill(std::string_view key, Values values) const {
  std::string text = lookup_(std::string(key).c_str());
  for (size_t open = text.find('{'); open != std::string::npos; open = text.find('{', open)) {
    const size_t length = text.find('}', open) - open + 1;
    const std::string name = text.substr(open + 1, length - 2);
    const auto* value = std::ranges::find(values, name, &Value::first);
    if (value == values.end()) return text;
    text.replace(open, length, value->second);
    open += value->second.size();
  }
  return text;
}

// In UTC, as certificates have it.
std::string Texts::Date(Time time) const {
  using std::chrono::days;
  const std::chrono::sys_seconds seconds{std::chrono::seconds{time}};
  const std::chrono::year_month_day date{std::chrono::floor<days>(seconds)};
  std::array<char, 16> day = {};
  std::array<char, 16> month = {};
  std::snprintf(day.data(), day.size(), "%02u", static_cast<unsigned>(date.day()));
  std::snprintf(month.data(), month.size(), "%02u", static_cast<unsigned>(date.month()));
  return Fill("DATE", {{"year", std::to_string(static_cast<int>(date.year()))},
                       {"month", month.data()},
                       {"day", day.data()}});
}

// In UTC too, so that two reports can be put in order wherever they were made.
std::string Texts::Moment(Time time) const {
  constexpr Time kMinute = 60;
  constexpr Time kHour = 60 * kMinute;
  std::array<char, 16> clock = {};
  std::snprintf(clock.data(), clock.size(), "%02d:%02d UTC",
                static_cast<int>(time % (24 * kHour) / kHour),
                static_cast<int>(time % kHour / kMinute));
  return Date(time) + " " + clock.data();
}

std::string Texts::Certificates(size_t count) const {
  return Fill(Counted("CERTIFICATES", count), {{"count", std::to_string(count)}});
}

// One card with its number, reader and certificates; or how many cards.
std::string Texts::CardsSentence(const Situation& situation) const {
  if (situation.cards.size() == 1) {
    const Card& card = situation.cards.front();
    return Fill(card.reader.empty() ? "READY_CARD" : "READY_CARD_IN_READER",
                {{"certificates", Certificates(card.certificates)},
                 {"number", card.number},
                 {"reader", card.reader}});
  }
  size_t certificates = 0;
  for (const Card& card : situation.cards) certificates += card.certificates;
  return Fill("READY_CARDS", {{"count", std::to_string(situation.cards.size())},
                              {"certificates", Certificates(certificates)}});
}

std::string Texts::Sentence(const Situation& situation) const {
  if (!situation.cards.empty()) return CardsSentence(situation);
  if (situation.state == State::kLooking && !situation.reader.empty()) {
    return Fill("READING_CARD", {{"reader", situation.reader}});
  }
  return Fill(SentenceKey(situation.state), {{"reader", situation.reader}});
}

std::string Texts::Explanation(const Situation& situation) const {
  if (situation.state == State::kLooking) return "";
  std::string copies;
  for (const std::string& copy : situation.copies) copies += "\n" + copy;
  std::string text =
      Fill(SentenceKey(situation.state) + std::string("_EXPLANATION"), {{"copies", copies}});
  if (!situation.other_token.empty()) {
    text = Fill("OTHER_TOKEN", {{"token", situation.other_token}}) + "\n" + text;
  }
  return text;
}

std::string Texts::Button(NextStep step) const {
  switch (step) {
    case NextStep::kNone:
      break;
    case NextStep::kShowGuide:
      return Get("SHOW_GUIDE");
    case NextStep::kShowApplication:
    case NextStep::kShowCopy:
      return Get("SHOW_IN_FINDER");
    case NextStep::kRegister:
      return Get("REGISTER");
    case NextStep::kSwitchOn:
      return Get("SWITCH_ON");
    case NextStep::kDiagnose:
      return Get("DIAGNOSE");
  }
  return "";
}

std::string Texts::Sign(State state) const {
  if (state == State::kReady) return Get("SIGN_WORKS");
  if (state == State::kLooking) return Get("SIGN_LOOKING");
  const bool waits = state == State::kNoCard || state == State::kNoReader;
  return Get(waits ? "SIGN_WAITS" : "SIGN_ATTENTION");
}

std::string Texts::ValidUntil(const Certificate& certificate, Time now) const {
  const int days = DaysLeft(certificate, now);
  switch (ValidityAt(certificate, now)) {
    case Validity::kUnknown:
      return Get("NOT_KNOWN");
    case Validity::kNotYet:
      return Fill("NOT_YET_VALID", {{"date", Date(certificate.not_before)}});
    case Validity::kExpired:
      return Fill("EXPIRED", {{"date", Date(certificate.not_after)}});
    case Validity::kExpiresSoon:
      return Fill(days == 0 ? "EXPIRES_TODAY" : Counted("EXPIRES_SOON", static_cast<size_t>(days)),
                  {{"date", Date(certificate.not_after)}, {"days", std::to_string(days)}});
    case Validity::kValid:
      break;
  }
  return Date(certificate.not_after);
}

std::string Texts::Key(const Certificate& certificate) const {
  const char* key = certificate.key_type == KeyType::kRsa             ? "KEY_RSA"
                    : certificate.key_type == KeyType::kEllipticCurve ? "KEY_EC"
                                                                      : "KEY_OTHER";
  return Fill(key, {{"bits", std::to_string(certificate.key_bits)}});
}

std::string Texts::Capabilities(const Certificate& certificate) const {
  if (!certificate.has_key) return Get("NO_KEY");
  std::string text;
  const auto add = [&](bool can, const char* key) {
    if (can) text += (text.empty() ? "" : ", ") + Get(key);
  };
  add(certificate.can_sign, "CAN_SIGN");
  add(certificate.can_decrypt, "CAN_DECRYPT");
  return text.empty() ? Get("CAN_NOTHING") : text;
}

std::string Texts::NoKeyReason(const Certificate& certificate) const {
  return Get(certificate.key_type == KeyType::kOther ? "NO_KEY_KIND" : "NO_KEY_PUBLISHED");
}

std::vector<std::pair<std::string, std::string>> Texts::Details(const Certificate& certificate,
                                                                const std::string& reader) const {
  return {{Get("SERIAL_NUMBER"), Hex(certificate.serial_number)},
          {Get("FINGERPRINT"), Hex(certificate.fingerprint)},
          {Get("READER"), reader.empty() ? Get("NOT_KNOWN") : reader}};
}

}  // namespace kelvrin::app
