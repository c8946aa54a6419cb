// A system that does what a test says, when it says so.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "app/model/system.h"

namespace kelvrin::app {

class ScriptedSystem : public System {
 public:
  // A question that has been asked; its answer is given by calling `answer`, unless whoever asked
  // has let go of it.
  template <typename Question, typename Answer>
  struct Asked {
    Question question;
    std::function<void(Answer)> answer;
    bool is_wanted = true;
  };
  struct Signing {
    Certificate certificate;
    Scheme scheme;
  };

  ScriptedSystem();

  const Installation& installation() const override { return here; }
  Time Now() const override { return now; }
  Presence Look() override { return presence; }
  void OnChange(std::function<void()> changed) override { changed_ = std::move(changed); }
  TaskPointer ReadCertificates(const std::string& token_id,
                               std::function<void(std::vector<Certificate>)> done) override;
  TaskPointer Try(const Certificate& certificate, Scheme scheme,
                  std::function<void(Attempt)> done) override;
  TaskPointer Run(const Command& command, std::function<void(ProcessResult)> done) override;
  TaskPointer After(int seconds, std::function<void()> done) override;

  // What a test changes before it says that something has changed.
  Installation here;
  Time now = 0;
  Presence presence;
  void Change() {
    if (changed_) changed_();
  }
  bool is_observed() const { return changed_ != nullptr; }

  // All that was asked, in order. Each returns whether somebody wanted the answer.
  bool Answer(const std::string& token_id, const std::vector<Certificate>& certificates);
  bool Answer(const Attempt& attempt);  // the last scheme
  // The oldest run of a program that has not been answered, by the end of its path.
  bool Answer(const std::string& program, const ProcessResult& result);
  bool LetTimePass();  // the shortest After that is still wanted

  // The running programs' commands as one would type them, and the schemes so far.
  std::vector<std::string> running() const;
  int seconds() const { return runs_.back().question.seconds; }  // of the last program
  std::vector<Scheme> schemes() const;
  size_t readings() const { return readings_.size(); }

  // A card in a reader with the token of that number, with these certificates, already read.
  void Insert(const std::string& number, const std::string& reader,
              const std::vector<Certificate>& certificates);
  void Pull(const std::string& number);
  // pluginkit's answer that all is well.
  void AnswerRegistered();
  std::string TokenId(const std::string& number) const { return here.class_id + ":" + number; }

 private:
  std::function<void()> changed_;
  std::list<Asked<std::string, std::vector<Certificate>>> readings_;
  std::list<Asked<Signing, Attempt>> signings_;
  std::list<Asked<Command, ProcessResult>> runs_;
  std::list<Asked<int, int>> waits_;
};

// A certificate with an RSA key of 2048 bits that signs and decrypts, valid for years from
// ScriptedSystem's first `now`.
Certificate RsaCertificate(const std::string& name);
// One with a key on P-256 that signs.
Certificate EcCertificate(const std::string& name);
// One whose key the token does not publish.
Certificate KeylessCertificate(const std::string& name);

}  // namespace kelvrin::app
