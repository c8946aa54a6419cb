// A token extension in this process, the way the system runs it: loaded from its bundle, with one
// driver for all cards.
//
//   auto extension = host::HostedExtension::Load(host::CheckBundle("/path/KelvrinToken.appex"));
//   host::InsertedCard card = extension->InsertCard();
//   auto client = card.OpenClient();
//   auto key = card.FindKey("0201");
//   auto signature = client->Perform(host::Operation::kSign, *key,
//                                    "RSASignatureMessagePKCS1v15SHA256", message, ask_pin);
#pragma once

#include <utility>

#include "platform/linux/host/extension_bundle.h"
#include "platform/linux/host/inserted_card.h"
#include "platform/linux/host/object.h"
#include "platform/linux/host/result.h"

namespace host {

class HostedExtension {
 public:
  // Makes a bundle the process's main bundle, loads its executable, which stays loaded, and
  // instantiates its driver. Fails with one sentence naming the first error of the check, or what
  // could not be loaded.
  static Result<HostedExtension> Load(const BundleCheck& checked);

  // Hosts a TKSmartCardTokenDriver that is in the process already.
  explicit HostedExtension(Object driver) : driver_(std::move(driver)) {}

  // Inserts a card: the driver is asked for its token. Cards may be inserted on several threads.
  InsertedCard InsertCard() const { return InsertedCard(driver_); }

 private:
  Object driver_;
};

}  // namespace host
