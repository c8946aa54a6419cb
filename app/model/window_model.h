// What the window knows: the situation, the certificates and which of them is selected, the trial
// and the report that are being made.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/model/diagnosis.h"
#include "app/model/registration.h"
#include "app/model/situation.h"
#include "app/model/system.h"
#include "app/model/trial.h"

namespace kelvrin::app {

class WindowModel {
 public:
  // Begins to observe the system, which outlives the model. `changed` is called, after the
  // constructor, whenever something below has changed.
  WindowModel(System* system, std::function<void()> changed);
  ~WindowModel();
  WindowModel(const WindowModel&) = delete;
  WindowModel& operator=(const WindowModel&) = delete;

  const System& system() const { return *system_; }
  const Situation& situation() const { return situation_; }
  const Presence& presence() const { return presence_; }
  // Null until pluginkit has answered.
  const Registration* registration() const;

  // Whether certificates of a token of ours are still to come.
  bool is_reading() const { return !reading_.empty(); }
  // Those of all tokens of ours, in the order of the tokens.
  const std::vector<Certificate>& certificates() const { return certificates_; }
  // Where a certificate's card is; empty when that is not known.
  std::string ReaderOf(const Certificate& certificate) const;

  // The selected certificate; null when none is. It stays selected while its token is there, also
  // when it is read again; otherwise the first one is.
  const Certificate* selected() const;
  // An index into certificates(); nothing when there are none.
  std::optional<size_t> selection() const;
  void Select(size_t index);

  // Tries the selected certificate's key, unless a trial is running or there is no key.
  void Try();
  void CancelTrial();
  // The last trial, also when it has ended; null when there was none, or when since it ended
  // another certificate has been selected, or is because the card has gone.
  const Trial* trial() const { return trial_.get(); }

  // Makes the report anew.
  void Diagnose();
  void CancelDiagnosis();
  const Diagnosis* diagnosis() const { return diagnosis_.get(); }

  // Asks pluginkit again, unless it is being asked; what it says may have changed without a notice.
  void AskForRegistration();
  // Has the system know the extension, or use it; then asks pluginkit again.
  void Register();
  void SwitchOn();

 private:
  void LookAgain();
  void ReadToken(const std::string& token_id);
  void Update();
  std::vector<Card> Cards() const;
  void RunThenAsk(const Command& command);
  void WaitForTokens();
  bool IsThere(const std::string& token_id) const;
  void TrialChanged();
  bool HasJustFailed() const;
  void ForgetTrialOfAnother();

  System* system_;
  std::function<void()> changed_;
  Presence presence_;
  std::optional<Registration> registration_;
  TaskPointer registration_task_;
  std::set<std::string> readers_with_card_;
  TaskPointer waiting_;                         // for the token of a card that has just come
  std::map<std::string, TaskPointer> reading_;  // by token ID
  std::map<std::string, std::vector<Certificate>> by_token_;  // those that have been read
  std::vector<Certificate> certificates_;
  std::optional<Certificate> selected_;
  Situation situation_;
  std::unique_ptr<Trial> trial_;
  Time trial_ended_ = 0;
  std::unique_ptr<Diagnosis> diagnosis_;
};

}  // namespace kelvrin::app
