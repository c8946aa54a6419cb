#include "platform/linux/host/tool/listing.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "platform/linux/host/algorithm_names.h"

namespace tokenhost {
namespace {

using host::Constraint;
using host::Item;
using host::Operation;
using nlohmann::ordered_json;

std::vector<std::string> capabilities(const Item& item) {
  std::vector<std::string> names;
  if (item.can_sign) names.emplace_back(operation_name(Operation::kSign));
  if (item.can_decrypt) names.emplace_back(operation_name(Operation::kDecrypt));
  if (item.can_exchange) names.emplace_back(operation_name(Operation::kKeyExchange));
  return names;
}

std::string join(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : ", ") + text;
  return joined.empty() ? "nothing" : joined;
}

std::string constraint_text(const Constraint& constraint) {
  switch (constraint.kind) {
    case Constraint::Kind::kAlways:
      return "always";
    case Constraint::Kind::kNever:
      return "never";
    case Constraint::Kind::kAuthentication:
      return constraint.text;
  }
  return "";
}

std::string item_text(const Item& item) {
  std::string text = std::string(kind_name(item.kind)) + " " + printable(item.object_id) + "  " +
                     (item.label.empty() ? "(no label)" : printable(item.label)) + "\n";
  if (item.kind == Item::Kind::kKey) {
    text += "    " + printable(item.key_type) + ", " + std::to_string(item.facts.bits) +
            " bits; can: " + join(capabilities(item)) + "\n";
  }
  std::vector<std::string> constraints;
  constraints.reserve(item.constraints.size());
  for (const auto& [operation, constraint] : item.constraints) {
    constraints.push_back(std::string(operation_name(operation)) + " " +
                          printable(constraint_text(constraint)));
  }
  return text + "    allowed: " + join(constraints) + "\n";
}

ordered_json item_json(const Item& item) {
  ordered_json json = {{"kind", kind_name(item.kind)}, {"objectID", item.object_id}};
  json["label"] = item.label;
  if (item.kind == Item::Kind::kKey) {
    json["keyType"] = item.key_type;
    json["keySizeInBits"] = item.facts.bits;
    json["capabilities"] = capabilities(item);
  }
  ordered_json constraints = ordered_json::object();
  for (const auto& [operation, constraint] : item.constraints) {
    ordered_json& value = constraints[operation_name(operation)];
    if (constraint.kind == Constraint::Kind::kAuthentication) {
      value = constraint.text;
    } else {
      value = constraint.kind == Constraint::Kind::kAlways;
    }
  }
  json["constraints"] = constraints;
  return json;
}

}  // namespace

std::string printable(std::string text) {
  std::ranges::replace_if(text, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return text;
}

std::string list_text(const std::string& instance_id, const std::vector<Item>& items) {
  std::string text = "token '" + printable(instance_id) + "', " + std::to_string(items.size()) +
                     (items.size() == 1 ? " item\n" : " items\n");
  for (const Item& item : items) text += item_text(item);
  return text;
}

std::string list_json(const std::string& instance_id, const std::vector<Item>& items) {
  ordered_json json = {{"instanceID", instance_id},
                       {"duplicateObjectIDs", duplicate_object_ids(items)},
                       {"items", ordered_json::array()}};
  for (const Item& item : items) json["items"].push_back(item_json(item));
  // A text that is no UTF-8 shows a replacement character.
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string support_table(const host::Client& client, const Item& key) {
  char line[128];
  const auto add_line = [&line](std::string* table, const char* name, const char* sign,
                                const char* decrypt, const char* exchange) {
    std::snprintf(line, sizeof(line), "%-64s %-9s %-9s %s\n", name, sign, decrypt, exchange);
    *table += line;
  };
  std::string table;
  add_line(&table, "algorithm", "sign", "decrypt", "exchange");
  for (const host::Algorithm& algorithm : host::algorithms()) {
    const auto answer = [&](Operation operation) {
      const host::Result<host::Road> road = client.find_road(operation, key, algorithm);
      if (!road) return "-";
      return road->is_direct() ? "direct" : "resolved";
    };
    const char* sign = answer(Operation::kSign);
    const char* decrypt = answer(Operation::kDecrypt);
    add_line(&table, algorithm.name.c_str(), sign, decrypt, answer(Operation::kKeyExchange));
  }
  return table;
}

}  // namespace tokenhost
