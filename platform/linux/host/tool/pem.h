// What belongs to a key, as other programs read it.
#pragma once

#include <vector>

#include "platform/linux/host/keychain_items.h"
#include "platform/linux/host/result.h"

namespace tokenhost {

// The certificate whose public key is the key's, and that public key (SubjectPublicKeyInfo), as
// PEM. Fails when no certificate among the items is it.
host::Result<host::Bytes> ExportKey(const std::vector<host::Item>& items, const host::Item& key);

}  // namespace tokenhost
