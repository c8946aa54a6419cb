#include "platform/linux/host/keychain_items.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <algorithm>
#include <cctype>

#import "platform/linux/host/foundation.h"

namespace host {
namespace {

std::string ObjectIdText(id objectID) {
  if ([objectID isKindOfClass:[NSData class]]) return ToHex(ToBytes(objectID));
  return ToText([objectID description]);
}

Constraint ToConstraint(id value) {
  if (![value isKindOfClass:[NSNumber class]]) {
    return {Constraint::Kind::kAuthentication, ToText([value description])};
  }
  const bool allowed = [value boolValue] != NO;
  return {allowed ? Constraint::Kind::kAlways : Constraint::Kind::kNever, ""};
}

std::string KeyTypeName(NSString *type) {
  if ([type isEqual:@"42"]) return "RSA";
  if ([type isEqual:@"73"]) return "EC";
  return ToText(type);
}

void ReadKey(TKTokenKeychainKey *key, Item *item) {
  item->kind = Item::Kind::kKey;
  item->key_type = KeyTypeName([key keyType]);
  item->facts.bits = static_cast<size_t>(std::max<NSInteger>([key keySizeInBits], 0));
  item->facts.public_key = ToBytes([key publicKeyData]);
  item->can_sign = [key canSign] != NO;
  item->can_decrypt = [key canDecrypt] != NO;
  item->can_exchange = [key canPerformKeyExchange] != NO;
}

Item ReadItem(TKTokenKeychainItem *object) {
  Item item;
  item.label = ToText([object label]);
  item.object_id = ObjectIdText([object objectID]);
  for (NSNumber *operation in [object constraints]) {
    item.constraints[static_cast<Operation>([operation integerValue])] =
        ToConstraint([[object constraints] objectForKey:operation]);
  }
  if ([object isKindOfClass:[TKTokenKeychainCertificate class]]) {
    item.kind = Item::Kind::kCertificate;
    item.certificate = ToBytes([(TKTokenKeychainCertificate *)object data]);
  } else if ([object isKindOfClass:[TKTokenKeychainKey class]]) {
    ReadKey((TKTokenKeychainKey *)object, &item);
  }
  item.object = Retained(object);
  return item;
}

// Whether two texts are the same hex digits, whatever the case.
bool SameHex(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](unsigned char x, unsigned char y) {
    return std::isxdigit(x) != 0 && std::toupper(x) == std::toupper(y);
  });
}

}  // namespace

const char *KindName(Item::Kind kind) {
  switch (kind) {
    case Item::Kind::kCertificate:
      return "certificate";
    case Item::Kind::kKey:
      return "key";
    case Item::Kind::kOther:
      return "item";
  }
  return "item";
}

std::string ToHex(const Bytes &bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

std::vector<Item> ReadItems(objc_object *token) {
  std::vector<Item> items;
  @autoreleasepool {
    for (TKTokenKeychainItem *item in [[(TKToken *)token keychainContents] items]) {
      items.push_back(ReadItem(item));
    }
  }
  return items;
}

std::vector<std::string> DuplicateObjectIds(const std::vector<Item> &items) {
  std::map<std::string, int> counts;
  for (const Item &item : items) ++counts[item.object_id];
  std::vector<std::string> duplicates;
  for (const auto &[object_id, count] : counts) {
    if (count > 1) duplicates.push_back(object_id);
  }
  return duplicates;
}

Result<Item> FindKey(const std::vector<Item> &items, std::string_view key) {
  std::vector<const Item *> labelled;
  for (const Item &item : items) {
    if (item.kind != Item::Kind::kKey) continue;
    if (item.object_id == key || SameHex(item.object_id, key)) return item;
    if (item.label == key) labelled.push_back(&item);
  }
  if (labelled.empty()) {
    return HostError("no key has the object ID or label '" + std::string(key) + "'");
  }
  if (labelled.size() == 1) return *labelled.front();
  std::string object_ids;
  for (const Item *item : labelled) object_ids += " " + item->object_id;
  return HostError("several keys have the label '" + std::string(key) +
                   "'; choose one by its object ID:" + object_ids);
}

}  // namespace host
