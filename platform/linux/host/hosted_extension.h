// A token extension in this process, the way the system runs it: loaded from its bundle, with one
// driver for all cards.
//
//   auto extension = host::HostedExtension::load("/path/KelvrinToken.appex");
//   host::InsertedCard card = extension->insert_card();
//   auto client = card.open_client();
//   auto key = card.find_key("0201");
//   auto signature = client->sign(*key, "RSASignatureMessagePKCS1v15SHA256", message, ask_pin);
#pragma once

#include <string>
#include <utility>

#include "platform/linux/host/extension_bundle.h"
#include "platform/linux/host/inserted_card.h"
#include "platform/linux/host/object.h"
#include "platform/linux/host/result.h"

namespace host {

class HostedExtension {
 public:
  // Checks the bundle, makes it the process's main bundle, loads its executable, which stays
  // loaded, and instantiates its driver. Fails with one sentence naming the first error of the
  // check, or what could not be loaded.
  static Result<HostedExtension> load(const std::string& bundle);
  // The same after a check of one's own, which found no error.
  static Result<HostedExtension> load(const BundleCheck& checked);

  // Hosts a TKSmartCardTokenDriver that is in the process already.
  explicit HostedExtension(Object driver) : driver_(std::move(driver)) {}

  // Inserts a card: the driver is asked for its token. Cards may be inserted on several threads.
  InsertedCard insert_card() const { return InsertedCard(driver_); }

  // The TKSmartCardTokenDriver.
  objc_object* driver() const { return driver_.get(); }

 private:
  Object driver_;
};

}  // namespace host
