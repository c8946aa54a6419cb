// An extension whose classes do as they are told, in the test's own process.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/host/hosted_extension.h"
#include "platform/linux/host/object.h"
#include "platform/linux/host/result.h"

namespace host::testing {

// What the classes below do, and what was done to them. One at a time; made before them.
class Script {
 public:
  Script();
  ~Script();
  Script(const Script &) = delete;
  Script &operator=(const Script &) = delete;

  // Keeps a call; any thread.
  void Note(const std::string &call);
  std::vector<std::string> calls() const;
  void Forget() { calls_.clear(); }

  // Driver: what it returns, from a card number of 1, 2, ...
  enum class Token { kGood, kNil, kNilWithError, kUninitialised } token = Token::kGood;
  // Token: its items, and whether it gives sessions.
  std::vector<Object> items;
  enum class Session { kGood, kNil, kNilWithError, kMute } session = Session::kGood;
  // Session.
  std::vector<std::string> supported;  // targets, whatever the operation
  // Result of the nth call (from 1) of an operation. Nil without an error is allowed.
  std::function<NSData *(int, NSError **)> operation;
  enum class Begin { kPin, kPlain, kTemplate, kNil, kNilWithError } begin = Begin::kPin;
  enum class Finish { kYes, kNo, kNoWithError } finish = Finish::kYes;
  // Called in every call of a token, with its instance ID, while the call runs.
  std::function<void(const std::string &)> during_call;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
};

// A key without certificate: an RSA key of 2048 bits that may do everything, each operation under a
// constraint. Autoreleased.
TKTokenKeychainKey *KeyItem(const Bytes &objectID, NSString *label, id constraint);

// The extension of a driver whose classes follow the script.
HostedExtension ScriptedExtension();

// A source of this PIN.
PinSource PinOf(const std::string &pin);

}  // namespace host::testing
