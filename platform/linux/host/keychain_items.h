// The keychain items of a token, as applications see them.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/host/object.h"
#include "platform/linux/host/operation.h"
#include "platform/linux/host/resolution.h"
#include "platform/linux/host/result.h"

namespace host {

struct Constraint {
  enum class Kind { kAlways, kNever, kAuthentication };
  Kind kind = Kind::kNever;
  std::string text;  // of what the token wants back when it authenticates: "PIN"
};

struct Item {
  enum class Kind { kCertificate, kKey, kOther };

  Kind kind = Kind::kOther;
  std::string label;
  std::string object_id;  // hex, upper case; the description of an ID that is no data
  // What an operation may do; what is not listed is never allowed.
  std::map<Operation, Constraint> constraints;
  Bytes certificate;  // DER; of certificates only
  // Of keys only:
  std::string key_type;  // "RSA", "EC", or what the token says
  KeyFacts facts;
  bool can_sign = false;
  bool can_decrypt = false;
  bool can_exchange = false;
  Object object;  // the TKTokenKeychainItem
};

// "certificate", "key" or "item".
const char* KindName(Item::Kind kind);

// Upper-case hex.
std::string ToHex(const Bytes& bytes);

// The items of a TKToken, in its order; none when it has no keychain contents.
std::vector<Item> ReadItems(objc_object* token);

// Object IDs that several items share.
std::vector<std::string> DuplicateObjectIds(const std::vector<Item>& items);

// The key of an object ID (hex, in either case) or else of a label. Fails with a sentence when
// there is none, or when several share the label.
Result<Item> FindKey(const std::vector<Item>& items, std::string_view key);

}  // namespace host
