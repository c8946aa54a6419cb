// A simulated application that uses the keys of an inserted card: one authentication context, which
// is one session of the token.
#pragma once

#include <memory>
#include <mutex>
#include <string_view>

#include "platform/linux/host/key_algorithms.h"
#include "platform/linux/host/keychain_items.h"
#include "platform/linux/host/object.h"
#include "platform/linux/host/resolution.h"
#include "platform/linux/host/result.h"

namespace host {

// May be used from any thread. Calls that reach one token never overlap, whichever client makes
// them; those of two tokens may. Outlives the removal of its card.
class Client {
 public:
  Client(Client&&) = default;
  Client& operator=(Client&&) = delete;
  // Tells the token that the session ends, and releases it.
  ~Client();

  // Performs an operation with a key on data: to sign, to decrypt, or the other party's public key
  // (04 X Y). `algorithm`: Apple's constant, its prefix optional. It is resolved to what the key
  // supports; when the token answers that authentication is needed, the PIN is asked for and the
  // token asked once more. Returns signature, plaintext or shared secret.
  // Errors: the token's own; errSecParam when the key does not support the algorithm or the data
  // does not fit it; errSecAuthFailed when a constraint forbids the operation; a communication
  // error when the token fails without one; the PIN source's.
  Result<Bytes> Perform(Operation operation, const Item& key, std::string_view algorithm,
                        const Bytes& data, const PinSource& pin) const;

  // How the key serves an algorithm, or errSecParam when it does not. Performs nothing.
  Result<Road> FindRoad(const Item& key, const Algorithm& algorithm) const;

 private:
  friend class InsertedCard;
  Client(Object session, std::shared_ptr<std::mutex> token_lock)
      : session_(std::move(session)), token_lock_(std::move(token_lock)) {}

  Object session_;                          // the TKTokenSession
  std::shared_ptr<std::mutex> token_lock_;  // held during every call that reaches the token
};

}  // namespace host
