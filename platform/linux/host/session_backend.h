// One key of a token, reached through a session.
#pragma once

#include <mutex>
#include <optional>

#include "platform/linux/host/keychain_items.h"
#include "platform/linux/host/object.h"
#include "platform/linux/host/resolution.h"
#include "platform/linux/host/secret.h"

namespace host {

// Lives no longer than what it refers to.
class SessionBackend : public Backend {
 public:
  // `pin` may be empty when nothing is performed.
  SessionBackend(objc_object* session, std::mutex* token_lock, const Item& key,
                 const PinSource& pin)
      : session_(session), token_lock_(*token_lock), key_(key), pin_(pin) {}

  bool supports(Operation operation, const AlgorithmList& algorithms) override;
  // Authenticates and tries once more when the token asks for it.
  Result<Bytes> perform(Operation operation, const AlgorithmList& algorithms,
                        const Request& request) override;

 private:
  Result<Bytes> call(Operation operation, const AlgorithmList& algorithms, const Request& request);
  // Returns the error, if any.
  std::optional<Error> authenticate(Operation operation, const Error& reason);
  Result<Object> begin_authentication(Operation operation);
  std::optional<Error> finish_authentication(objc_object* authentication);

  objc_object* session_;
  std::mutex& token_lock_;
  const Item& key_;
  const PinSource& pin_;
};

}  // namespace host
