// A card in a reader, as far as the extension is concerned: the token that its driver made.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/host/client.h"
#include "platform/linux/host/keychain_items.h"
#include "platform/linux/host/object.h"
#include "platform/linux/host/result.h"

namespace host {

// Whatever came of the set-up, the card can be asked anything and removed. For one thread at a
// time; its clients may run on others meanwhile.
class InsertedCard {
 public:
  InsertedCard(InsertedCard&&) = default;
  InsertedCard& operator=(InsertedCard&&) = delete;
  ~InsertedCard() { Remove(); }

  // Why the set-up failed: the driver's error, or a sentence where it gave none; nothing when the
  // card is ready.
  const std::optional<Error>& error() const { return error_; }

  // Whether that is the driver's own error.
  bool driver_gave_error() const { return driver_gave_error_; }

  // The token's instance ID; empty without one.
  std::string instance_id() const;
  // The token's keychain items now; none unless the card is ready.
  std::vector<Item> items() const { return ReadItems(token_.get()); }
  // See FindKey of keychain_items.h.
  Result<Item> FindKey(std::string_view object_id_or_label) const {
    return host::FindKey(items(), object_id_or_label);
  }

  // Has the token create a session for a new client. Fails with the token's error, or a
  // communication error where it gave none; with TKErrorCodeTokenNotFound without a token.
  Result<Client> OpenClient();

  // Takes the card out: tells the driver, and lets go of the token, which lives on while clients
  // have sessions. A second call does nothing.
  void Remove();

 private:
  friend class HostedExtension;
  explicit InsertedCard(Object driver);
  void MakeToken();

  Object driver_;
  Object token_;
  std::optional<Error> error_;
  bool driver_gave_error_ = false;
  std::shared_ptr<std::mutex> token_lock_ = std::make_shared<std::mutex>();
};

}  // namespace host
