// The report and the list, as plain text.
#include <algorithm>

#include "app/text/texts.h"

namespace kelvrin::app {
namespace {

// Of longer outputs the end is shown, where the last lines of a log are.
constexpr size_t kShownBytes = size_t{64} * 1024;

std::string Heading(const std::string& text) { return "\n== " + text + "\n"; }

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; }

// From the begin of a line, or of a character where there is only one line.
std::string EndOf(const std::string& text) {
  if (text.size() <= kShownBytes) return text;
  size_t begin = text.size() - kShownBytes;
  const size_t line = text.find('\n', begin);
  if (line < text.size() - 1) begin = line + 1;
  while (begin < text.size() && IsContinuation(text[begin])) ++begin;
  return "...\n" + text.substr(begin);
}

const char* SlotKey(SlotState state) {
  switch (state) {
    case SlotState::kEmpty:
      return "SLOT_EMPTY";
    case SlotState::kProbing:
      return "SLOT_PROBING";
    case SlotState::kMute:
      return "SLOT_MUTE";
    case SlotState::kCard:
      return "SLOT_CARD";
  }
  return "";
}

const char* SectionKey(Section::Kind kind) {
  switch (kind) {
    case Section::Kind::kSignature:
      return "SECTION_SIGNATURE";
    case Section::Kind::kRegistration:
      return "SECTION_REGISTRATION";
    case Section::Kind::kReaders:
      return "SECTION_READERS";
    case Section::Kind::kTokens:
      return "SECTION_TOKENS";
    case Section::Kind::kModule:
      return "SECTION_MODULE";
    case Section::Kind::kLog:
      return "SECTION_LOG";
  }
  return "";
}

}  // namespace

std::string Texts::CertificateText(const WindowModel& model, const Certificate& certificate) const {
  const Time now = model.system().Now();
  std::string text = certificate.name + "\n";
  const auto add = [&](const std::string& name, const std::string& value) {
    text += "    " + name + ": " + value + "\n";
  };
  add(Get("ISSUER"), certificate.issuer);
  add(Get("VALID_UNTIL"), ValidUntil(certificate, now));
  add(Get("KEY"), Key(certificate) + "; " + Capabilities(certificate));
  if (!certificate.key_label.empty()) add(Get("KEY_LABEL"), certificate.key_label);
  if (!certificate.has_key) add(Get("NO_KEY"), NoKeyReason(certificate));
  for (const auto& [name, value] : Details(certificate, model.ReaderOf(certificate))) {
    add(name, value);
  }
  return text;
}

std::string Texts::List(const WindowModel& model) const {
  std::string text = Sentence(model.situation()) + "\n";
  const std::string explanation = Explanation(model.situation());
  if (model.situation().state != State::kReady) text += explanation + "\n";
  for (const Certificate& certificate : model.certificates()) {
    text += "\n" + CertificateText(model, certificate);
  }
  return text;
}

std::string Texts::Presences(const Presence& presence) const {
  std::string text;
  if (!presence.shows_readers) text += Get("READERS_HIDDEN") + "\n";
  for (const Reader& reader : presence.readers) {
    text += reader.name + ": " + Get(SlotKey(reader.state)) + "\n";
  }
  for (const Token& token : presence.tokens) {
    text += token.id + (token.reader.empty() ? "" : ": " + token.reader) + "\n";
  }
  return text;
}

// How a program ended, unless it did its work; nothing then.
std::string Texts::EndText(const Section& section) const {
  switch (section.end) {
    case ProcessResult::End::kNoProgram:
      return Get("PROGRAM_MISSING") + "\n";
    case ProcessResult::End::kTimedOut:
      return Get("PROGRAM_TIMED_OUT") + "\n";
    case ProcessResult::End::kExited:
      break;
  }
  if (section.status == 0) return "";
  return Fill("PROGRAM_STATUS", {{"status", std::to_string(section.status)}}) + "\n";
}

std::string Texts::Report(const WindowModel& model, const Diagnosis& diagnosis) const {
  const Installation& here = model.system().installation();
  std::string text = Get("REPORT_TITLE") + ", " + Moment(model.system().Now()) + "\n";
  text += Get("REPORT_WARNING") + "\n";
  text += Heading(Get("SECTION_VERSIONS"));
  text += "Kelvrin Token " + here.version + "\nmacOS " + here.system_version + "\n";
  text += here.application + "\n" +
          (here.extension.empty() ? Get("NO_EXTENSION") : here.extension_id) + "\n";
  text += Heading(Get("SECTION_CARDS")) + List(model);
  text += Heading(Get("SECTION_PRESENCE")) + Presences(model.presence());
  for (const Section& section : diagnosis.sections()) {
    text += Heading(Get(SectionKey(section.kind))) + "$ " + section.command + "\n";
    text += EndOf(section.text);
    if (!text.ends_with('\n')) text += "\n";
    text += EndText(section);
  }
  return text;
}

}  // namespace kelvrin::app
