#include "app/model/testing/scripted_system.h"

#include <algorithm>

namespace kelvrin::app {
namespace {

constexpr Time kFirstNow = 1'800'000'000;  // 2027-01-15
constexpr Time kYear = 365 * 24 * 60 * 60;

// Says that nobody wants the answer any more.
template <typename Entry>
class ScriptedTask : public Task {
 public:
  explicit ScriptedTask(Entry* entry) : entry_(entry) {}
  ~ScriptedTask() override { entry_->is_wanted = false; }
  ScriptedTask(const ScriptedTask&) = delete;
  ScriptedTask& operator=(const ScriptedTask&) = delete;

 private:
  Entry* entry_;
};

template <typename List, typename Question, typename Answer>
TaskPointer Ask(List* list, Question question, Answer answer) {
  using Entry = typename List::value_type;
  list->push_back(Entry{std::move(question), std::move(answer)});
  return std::make_unique<ScriptedTask<Entry>>(&list->back());
}

// Answers once; a second answer is not wanted.
template <typename Entry, typename Value>
bool Give(Entry* entry, const Value& value) {
  if (!entry->is_wanted || !entry->answer) return false;
  const auto answer = std::move(entry->answer);
  entry->answer = nullptr;
  answer(value);
  return true;
}

std::string Typed(const Command& command) {
  std::string text = command.program;
  for (const std::string& argument : command.arguments) text += " " + argument;
  return text;
}

Certificate SomeCertificate(const std::string& name) {
  Certificate certificate;
  certificate.name = name;
  certificate.issuer = "Test CA";
  certificate.not_before = kFirstNow - kYear;
  certificate.not_after = kFirstNow + 3 * kYear;
  certificate.serial_number = {0x3F, 0xA0};
  certificate.der.assign(name.begin(), name.end());
  certificate.fingerprint = certificate.der;
  certificate.fingerprint.resize(32);
  certificate.key_hash.assign(20, 7);
  return certificate;
}

}  // namespace

ScriptedSystem::ScriptedSystem() : now(kFirstNow) {
  here = {.application = "/Applications/KelvrinToken.app",
          .home = "/Users/ann",
          .version = "1.0.0",
          .system_version = "Version 14.5 (Build 23F79)",
          .extension = "/Applications/KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex",
          .extension_id = "org.kelvrin.KelvrinToken.extension",
          .class_id = "org.kelvrin.KelvrinToken.extension"};
}

TaskPointer ScriptedSystem::ReadCertificates(const std::string& token_id,
                                             std::function<void(std::vector<Certificate>)> done) {
  return Ask(&readings_, token_id, std::move(done));
}

TaskPointer ScriptedSystem::Try(const Certificate& certificate, Scheme scheme,
                                std::function<void(Attempt)> done) {
  return Ask(&signings_, Signing{certificate, scheme}, std::move(done));
}

TaskPointer ScriptedSystem::Run(const Command& command, std::function<void(ProcessResult)> done) {
  return Ask(&runs_, command, std::move(done));
}

TaskPointer ScriptedSystem::After(int seconds, std::function<void()> done) {
  return Ask(&waits_, seconds, [done = std::move(done)](int /*unused*/) { done(); });
}

bool ScriptedSystem::Answer(const std::string& token_id,
                            const std::vector<Certificate>& certificates) {
  const auto asked = std::ranges::find_if(readings_, [&](const auto& entry) {
    return entry.question == token_id && entry.is_wanted && entry.answer;
  });
  if (asked == readings_.end()) return false;
  std::vector<Certificate> own = certificates;
  for (Certificate& certificate : own) certificate.token_id = token_id;
  return Give(&*asked, own);
}

bool ScriptedSystem::Answer(const Attempt& attempt) {
  return !signings_.empty() && Give(&signings_.back(), attempt);
}

bool ScriptedSystem::Answer(const std::string& program, const ProcessResult& result) {
  const auto asked = std::ranges::find_if(runs_, [&](const auto& entry) {
    return entry.question.program.ends_with(program) && entry.is_wanted && entry.answer;
  });
  return asked != runs_.end() && Give(&*asked, result);
}

bool ScriptedSystem::LetTimePass() {
  Asked<int, int>* next = nullptr;
  for (auto& wait : waits_) {
    if (!wait.is_wanted || !wait.answer) continue;
    if (next == nullptr || wait.question < next->question) next = &wait;
  }
  return next != nullptr && Give(next, 0);
}

std::vector<std::string> ScriptedSystem::running() const {
  std::vector<std::string> commands;
  for (const auto& run : runs_) {
    if (run.is_wanted && run.answer) commands.push_back(Typed(run.question));
  }
  return commands;
}

std::vector<Scheme> ScriptedSystem::schemes() const {
  std::vector<Scheme> schemes;
  for (const auto& signing : signings_) schemes.push_back(signing.question.scheme);
  return schemes;
}

void ScriptedSystem::Insert(const std::string& number, const std::string& reader,
                            const std::vector<Certificate>& certificates) {
  std::erase_if(presence.readers, [&](const Reader& each) { return each.name == reader; });
  presence.readers.push_back({reader, SlotState::kCard});
  presence.tokens.push_back({TokenId(number), reader});
  Change();
  Answer(TokenId(number), certificates);
}

void ScriptedSystem::Pull(const std::string& number) {
  const auto token = std::ranges::find(presence.tokens, TokenId(number), &Token::id);
  for (Reader& reader : presence.readers) {
    if (reader.name == token->reader) reader.state = SlotState::kEmpty;
  }
  presence.tokens.erase(token);
  Change();
}

void ScriptedSystem::AnswerRegistered() {
  Answer("pluginkit",
         {.output = "     " + here.extension_id + "(1.0.0)\t0A1B\t2027-01-02 03:04:05 +0000\t" +
                    here.extension + "\n (1 plug-in)\n"});
}

Certificate RsaCertificate(const std::string& name) {
  Certificate certificate = SomeCertificate(name);
  certificate.key_type = KeyType::kRsa;
  certificate.key_bits = 2048;
  // A sequence of two integers, as every RSA public key is.
  certificate.public_key = {0x30, 0x07, 0x02, 0x02, 0x00, 0xC5, 0x02, 0x01, 0x03};
  certificate.has_key = certificate.can_sign = certificate.can_decrypt = true;
  certificate.key_label = name + " key";
  return certificate;
}

Certificate EcCertificate(const std::string& name) {
  Certificate certificate = SomeCertificate(name);
  certificate.key_type = KeyType::kEllipticCurve;
  certificate.key_bits = 256;
  certificate.public_key.assign(65, 4);
  certificate.has_key = certificate.can_sign = true;
  certificate.key_label = name + " key";
  return certificate;
}

Certificate KeylessCertificate(const std::string& name) {
  Certificate certificate = SomeCertificate(name);
  certificate.key_type = KeyType::kRsa;
  certificate.key_bits = 4096;
  return certificate;
}

}  // namespace kelvrin::app
