// All that the application asks of the system. One object plays it: over Apple's frameworks, or
// scripted in a test. Everything is called on the main thread, and answers come on the main thread,
// later, never from inside the call. A task may be let go of from inside its answer, which lives
// until it has returned.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/model/certificate.h"

namespace kelvrin::app {

// A question that is being answered. Whoever lets go of it gets no answer any more.
class Task {
 public:
  virtual ~Task() = default;
};
using TaskPointer = std::unique_ptr<Task>;

enum class SlotState { kEmpty, kProbing, kMute, kCard };

struct Reader {
  std::string name;
  SlotState state = SlotState::kEmpty;
};

struct Token {
  std::string id;      // "<class ID>:<instance ID>"
  std::string reader;  // empty where the system does not tell
};

// What is there at one moment.
struct Presence {
  bool shows_readers = true;  // false where the system does not let us see them
  std::vector<Reader> readers;
  std::vector<Token> tokens;  // other extensions' too
};

// What the application knows of itself and of the system; stays the same while it runs.
struct Installation {
  std::string application;     // path of X.app
  std::string home;            // the user's folder; may be empty
  std::string version;         // the application's
  std::string system_version;  // of macOS, in its own words
  std::string extension;       // path of the appex; empty when it is missing
  std::string extension_id;    // its bundle identifier
  std::string class_id;        // what its tokens' IDs begin with
};

struct Command {
  std::string program;  // absolute path
  std::vector<std::string> arguments;
  int seconds = 10;  // then it is ended
};

struct ProcessResult {
  enum class End { kExited, kTimedOut, kNoProgram };
  End end = End::kExited;
  int status = 0;  // where it exited
  std::string output = {};
  std::string errors = {};
};

// What a key is tried with.
enum class Scheme { kPkcs1, kPss, kEcdsa, kDecryption };

// How a trial of one scheme ended. What it computed is verified with the certificate's public key.
struct Attempt {
  enum class End {
    kWorked,
    kWrongResult,  // the card answered, and the answer does not verify
    kUnsupported,
    kNoKey,  // the keychain has no such key any more
    kFailed,
  };
  End end = End::kWorked;
  // Where it failed, the error's:
  std::string domain = {};
  int64_t code = 0;
  std::string description = {};
};

class System {
 public:
  virtual ~System() = default;

  virtual const Installation& installation() const = 0;
  virtual Time Now() const = 0;

  // What is there now; answers at once.
  virtual Presence Look() = 0;
  // Called after each change of it, once or more often. Null ends that.
  virtual void OnChange(std::function<void()> changed) = 0;

  // Reads the certificates of a token and which keys they have. None when it is gone.
  virtual TaskPointer ReadCertificates(const std::string& token_id,
                                       std::function<void(std::vector<Certificate>)> done) = 0;

  // Signs a random message, or decrypts what was encrypted for the key, and verifies the result.
  // The system may ask for the PIN meanwhile. Letting go of the task does not stop the card.
  virtual TaskPointer Try(const Certificate& certificate, Scheme scheme,
                          std::function<void(Attempt)> done) = 0;

  // Runs a program with English texts and no input. Letting go of the task ends the program.
  virtual TaskPointer Run(const Command& command, std::function<void(ProcessResult)> done) = 0;

  // Answers after some seconds.
  virtual TaskPointer After(int seconds, std::function<void()> done) = 0;
};

}  // namespace kelvrin::app
