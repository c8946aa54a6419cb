#include "app/model/window_model.h"

#include <algorithm>
#include <utility>

namespace kelvrin::app {
namespace {

// Seconds in which a card that has just come gets its token, or else gets none.
constexpr int kSetUp = 5;
// Seconds after which a token's items are surely in the keychain.
constexpr int kLag = 1;
// Seconds within which a card that was pulled is missed.
constexpr Time kMissedAfter = 2;

std::set<std::string> ReadersWithCard(const Presence& presence) {
  std::set<std::string> names;
  for (const Reader& reader : presence.readers) {
    if (reader.state == SlotState::kCard || reader.state == SlotState::kMute) {
      names.insert(reader.name);
    }
  }
  return names;
}

}  // namespace

WindowModel::WindowModel(System* system, std::function<void()> changed) : system_(system) {
  system_->OnChange([this] { LookAgain(); });
  LookAgain();
  AskForRegistration();
  changed_ = std::move(changed);
}

WindowModel::~WindowModel() { system_->OnChange(nullptr); }

const Registration* WindowModel::registration() const {
  return registration_ ? &*registration_ : nullptr;
}

bool WindowModel::IsThere(const std::string& token_id) const {
  return std::ranges::find(presence_.tokens, token_id, &Token::id) != presence_.tokens.end();
}

// Takes what is there now: what has gone is forgotten, and what has come is read.
void WindowModel::LookAgain() {
  presence_ = system_->Look();
  const auto has_gone = [this](const auto& entry) { return !IsThere(entry.first); };
  std::erase_if(reading_, has_gone);
  std::erase_if(by_token_, has_gone);
  for (const Token& token : presence_.tokens) {
    if (IsOurs(token.id, system_->installation().class_id)) ReadToken(token.id);
  }
  WaitForTokens();
  if (trial_ && !IsThere(trial_->certificate().token_id) &&
      (trial_->running() || HasJustFailed())) {
    trial_->CardIsGone();
  }
  Update();
}

// A card that is pulled may fail for another reason before it is missed.
bool WindowModel::HasJustFailed() const {
  const auto verdict = trial_->verdict();
  const bool has_failed = verdict == Verdict::kFailed || verdict == Verdict::kNoReason ||
                          verdict == Verdict::kKeyNotFound;
  return has_failed && system_->Now() - trial_ended_ <= kMissedAfter;
}

// Reads a token's certificates, unless that has been done or is being done.
void WindowModel::ReadToken(const std::string& token_id) {
  if (reading_.contains(token_id) || by_token_.contains(token_id)) return;
  // Captured by a name of its own: as it is it would be a constant, which cannot be moved.
  auto take = [this, id = token_id](std::vector<Certificate> certificates) {
    by_token_[id] = std::move(certificates);
    reading_.erase(id);
    Update();
  };
  auto take_or_read_again = [this, id = token_id, take](std::vector<Certificate> certificates) {
    if (!certificates.empty()) return take(std::move(certificates));
    // The keychain may get the items later than we get word of the token.
    auto read_again = [this, id = id, take = take] {
      reading_[id] = system_->ReadCertificates(id, take);
    };
    reading_[id] = system_->After(kLag, read_again);
  };
  reading_[token_id] = system_->ReadCertificates(token_id, take_or_read_again);
}

// After a card has come, its token is given some time before one says that there is none.
void WindowModel::WaitForTokens() {
  std::set<std::string> readers = ReadersWithCard(presence_);
  const bool has_come = !std::ranges::includes(readers_with_card_, readers);
  readers_with_card_ = std::move(readers);
  if (!has_come) return;
  waiting_ = system_->After(kSetUp, [this] {
    waiting_.reset();
    Update();
  });
}

std::vector<Card> WindowModel::Cards() const {
  const size_t prefix = system_->installation().class_id.size() + 1;
  std::vector<Card> cards;
  for (const Token& token : presence_.tokens) {
    const auto read = by_token_.find(token.id);
    if (read == by_token_.end()) continue;
    std::string reader = token.reader;
    // Where the system does not tell, one card can only be in one reader.
    if (reader.empty() && readers_with_card_.size() == 1) reader = *readers_with_card_.begin();
    const auto usable = std::ranges::count_if(
        read->second, [this](const Certificate& each) { return IsUsable(each, system_->Now()); });
    cards.push_back({.token_id = token.id,
                     .number = token.id.substr(prefix),
                     .reader = reader,
                     .certificates = read->second.size(),
                     .usable = static_cast<size_t>(usable)});
  }
  return cards;
}

// Draws the conclusions from what has been read.
void WindowModel::Update() {
  certificates_.clear();
  for (const Token& token : presence_.tokens) {
    const auto read = by_token_.find(token.id);
    if (read == by_token_.end()) continue;
    certificates_.insert(certificates_.end(), read->second.begin(), read->second.end());
  }
  // What is selected stays so when another token comes before its own.
  if (!selected_ && !certificates_.empty()) selected_ = certificates_.front();
  ForgetTrialOfAnother();
  situation_ = Decide({.installation = system_->installation(),
                       .registration = registration(),
                       .presence = presence_,
                       .cards = Cards(),
                       .is_reading = is_reading(),
                       .is_waiting = waiting_ != nullptr});
  if (changed_) changed_();
}

// What a card that has gone could do would be read as said of the certificate that is now selected.
void WindowModel::ForgetTrialOfAnother() {
  if (!trial_ || trial_->running() || trial_->verdict() == Verdict::kCardGone) return;
  if (!certificates_.empty() && !IsThere(trial_->certificate().token_id)) trial_.reset();
}

std::string WindowModel::ReaderOf(const Certificate& certificate) const {
  for (const Card& card : Cards()) {
    if (card.token_id == certificate.token_id) return card.reader;
  }
  return "";
}

std::optional<size_t> WindowModel::selection() const {
  if (certificates_.empty()) return std::nullopt;
  const auto found = std::ranges::find_if(
      certificates_, [this](const Certificate& each) { return IsSame(each, *selected_); });
  return found == certificates_.end() ? 0 : static_cast<size_t>(found - certificates_.begin());
}

const Certificate* WindowModel::selected() const {
  const std::optional<size_t> index = selection();
  return index ? &certificates_[*index] : nullptr;
}

void WindowModel::Select(size_t index) {
  if (index >= certificates_.size()) return;
  selected_ = certificates_[index];
  if (trial_ && !trial_->running() && !IsSame(trial_->certificate(), *selected_)) trial_.reset();
  changed_();
}

void WindowModel::Try() {
  const Certificate* certificate = selected();
  if (certificate == nullptr || !certificate->has_key || (trial_ && trial_->running())) return;
  selected_ = *certificate;
  trial_ = std::make_unique<Trial>(system_, *selected_, [this] { TrialChanged(); });
  changed_();
}

// Whether a card that failed is still there is seen at once where that is possible.
void WindowModel::TrialChanged() {
  trial_ended_ = system_->Now();
  if (HasJustFailed()) {
    LookAgain();
  } else {
    changed_();
  }
}

void WindowModel::CancelTrial() {
  if (trial_ && trial_->running()) trial_->Cancel();
}

void WindowModel::Diagnose() {
  diagnosis_ = std::make_unique<Diagnosis>(system_, [this] { changed_(); });
  changed_();
}

void WindowModel::CancelDiagnosis() {
  diagnosis_.reset();
  changed_();
}

void WindowModel::AskForRegistration() {
  if (registration_task_) return;  // which asks, or will
  registration_task_ = system_->Run(ListExtensions(), [this](const ProcessResult& result) {
    registration_ = ReadRegistration(result, system_->installation().extension_id);
    registration_task_.reset();
    Update();
  });
}

void WindowModel::RunThenAsk(const Command& command) {
  registration_task_ = system_->Run(command, [this](const ProcessResult& /*result*/) {
    registration_task_.reset();
    AskForRegistration();
  });
}

void WindowModel::Register() { RunThenAsk(RegisterExtension(system_->installation().extension)); }

void WindowModel::SwitchOn() {
  RunThenAsk(SwitchOnExtension(system_->installation().extension_id));
}

}  // namespace kelvrin::app
