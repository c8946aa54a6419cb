// The sentences, in the user's language.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/model/window_model.h"

namespace kelvrin::app {

// Looks a key up in the application's Localizable.strings; UTF-8.
using Lookup = std::function<std::string(const char* key)>;

class Texts {
 public:
  explicit Texts(Lookup lookup) : lookup_(std::move(lookup)) {}

  // A text as it stands: of a menu, a button, a heading.
  std::string Get(const char* key) const { return lookup_(key); }

  // --- the top ---
  // One sentence, and what to do about it, which may have several lines and may be empty.
  std::string Sentence(const Situation& situation) const;
  std::string Explanation(const Situation& situation) const;
  // The words on the button; empty when there is none.
  std::string Button(NextStep step) const;
  // What the sign stands for, for those who do not see it: "works", "waits for you", "needs
  // attention".
  std::string Sign(State state) const;

  // --- certificates ---
  // "2027-05-03", "expires in 12 days, on 2027-05-03", "expired on ...".
  std::string ValidUntil(const Certificate& certificate, Time now) const;
  // "RSA, 2048 bits".
  std::string Key(const Certificate& certificate) const;
  // "signs, decrypts"; "no key" for one without.
  std::string Capabilities(const Certificate& certificate) const;
  // Why a certificate has no key.
  std::string NoKeyReason(const Certificate& certificate) const;
  // Name and value, line by line: serial number, fingerprint, reader.
  std::vector<std::pair<std::string, std::string>> Details(const Certificate& certificate,
                                                           const std::string& reader) const;

  // --- trying ---
  // What is going on, or how it ended; one sentence, or two.
  std::string TrialSentence(const Trial& trial) const;

  // --- report ---
  // The whole report: what the model knows, and what the programs said so far.
  std::string Report(const WindowModel& model, const Diagnosis& diagnosis) const;
  // What --list prints.
  std::string List(const WindowModel& model) const;

 private:
  using Value = std::pair<std::string_view, std::string>;
  using Values = std::initializer_list<Value>;
  // A text in which {name} stands for a value.
  std::string Fill(std::string_view key, Values values) const;
  std::string Date(Time time) const;
  std::string Moment(Time time) const;
  std::string Certificates(size_t count) const;
  std::string CardsSentence(const Situation& situation) const;
  // The schemes of a trial that ended like that.
  std::string Schemes(const Trial& trial, Attempt::End end) const;
  std::string EndSentence(const Trial& trial, Verdict verdict) const;
  std::string ErrorOf(const Trial& trial) const;
  std::string CertificateText(const WindowModel& model, const Certificate& certificate) const;
  std::string Presences(const Presence& presence) const;
  std::string EndText(const Section& section) const;

  Lookup lookup_;
};

// Groups of two hexadecimal digits: "3F:A0".
std::string Hex(const Bytes& bytes);

}  // namespace kelvrin::app
