#include "platform/linux/host/tool/listing.h"

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/linux/ctk/certificate_details.h"
#include "platform/linux/host/key_algorithms.h"

namespace tokenhost {
namespace {

using host::Bytes;
using host::Constraint;
using host::Item;
using host::Operation;
using nlohmann::ordered_json;

std::vector<std::string> Capabilities(const Item& item) {
  std::vector<std::string> names;
  if (item.can_sign) names.emplace_back(OperationName(Operation::kSign));
  if (item.can_decrypt) names.emplace_back(OperationName(Operation::kDecrypt));
  if (item.can_exchange) names.emplace_back(OperationName(Operation::kKeyExchange));
  return names;
}

std::string Join(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : ", ") + text;
  return joined.empty() ? "nothing" : joined;
}

std::string ConstraintText(const Constraint& constraint) {
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

std::string ItemText(const Item& item) {
  std::string text = std::string(KindName(item.kind)) + " " + Printable(item.object_id) + "  " +
                     (item.label.empty() ? "(no label)" : Printable(item.label)) + "\n";
  if (item.kind == Item::Kind::kKey) {
    text += "    " + Printable(item.key_type) + ", " + std::to_string(item.facts.bits) +
            " bits; can: " + Join(Capabilities(item)) + "\n";
  }
  std::vector<std::string> constraints;
  constraints.reserve(item.constraints.size());
  for (const auto& [operation, constraint] : item.constraints) {
    constraints.push_back(std::string(OperationName(operation)) + " " +
                          Printable(ConstraintText(constraint)));
  }
  return text + "    allowed: " + Join(constraints) + "\n";
}

ordered_json ItemJson(const Item& item) {
  ordered_json json = {{"kind", KindName(item.kind)}, {"objectID", item.object_id}};
  json["label"] = item.label;
  if (item.kind == Item::Kind::kKey) {
    json["keyType"] = item.key_type;
    json["keySizeInBits"] = item.facts.bits;
    json["capabilities"] = Capabilities(item);
  }
  ordered_json constraints = ordered_json::object();
  for (const auto& [operation, constraint] : item.constraints) {
    ordered_json& value = constraints[OperationName(operation)];
    if (constraint.kind == Constraint::Kind::kAuthentication) {
      value = constraint.text;
    } else {
      value = constraint.kind == Constraint::Kind::kAlways;
    }
  }
  json["constraints"] = constraints;
  return json;
}

// A certificate and its public key as PEM; OpenSSL can read it, since its key has been read.
Bytes ToPem(const Bytes& der) {
  const unsigned char* position = der.data();
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      d2i_X509(nullptr, &position, static_cast<long>(der.size())), X509_free);
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  PEM_write_bio_X509(memory.get(), certificate.get());
  PEM_write_bio_PUBKEY(memory.get(), X509_get0_pubkey(certificate.get()));
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  return {text, text + size};
}

}  // namespace

std::string Printable(std::string text, std::string_view kept) {
  const auto steers = [kept](char c) {
    const auto code = static_cast<unsigned char>(c);
    return (code < 0x20 || code == 0x7F) && kept.find(c) == std::string_view::npos;
  };
  std::ranges::replace_if(text, steers, '?');
  return text;
}

std::string ListText(const std::string& instance_id, const std::vector<Item>& items) {
  std::string text = "token '" + Printable(instance_id) + "', " + std::to_string(items.size()) +
                     (items.size() == 1 ? " item\n" : " items\n");
  for (const Item& item : items) text += ItemText(item);
  return text;
}

std::string ListJson(const std::string& instance_id, const std::vector<Item>& items) {
  ordered_json json = {{"instanceID", instance_id},
                       {"duplicateObjectIDs", DuplicateObjectIds(items)},
                       {"items", ordered_json::array()}};
  for (const Item& item : items) json["items"].push_back(ItemJson(item));
  // A text that is no UTF-8 shows a replacement character.
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string SupportTable(const host::Client& client, const Item& key) {
  char line[128];
  std::string table;
  const auto add_line = [&](const char* name, const char* operation, const char* answer) {
    std::snprintf(line, sizeof(line), "%-64s %-9s %s\n", name, operation, answer);
    table += line;
  };
  add_line("algorithm", "operation", "answer");
  for (const host::Algorithm& algorithm : host::Algorithms()) {
    const host::Result<host::Road> road = client.FindRoad(key, algorithm);
    const char* answer = !road ? "-" : road->adaptors.empty() ? "direct" : "resolved";
    add_line(std::string(algorithm.name).c_str(), OperationName(algorithm.operation()), answer);
  }
  return table;
}

host::Result<Bytes> ExportKey(const std::vector<Item>& items, const Item& key) {
  for (const Item& item : items) {
    const Bytes& der = item.certificate;
    const auto public_key = certificate::PublicKeyOf(der.data(), der.size());
    if (public_key && public_key->data == key.facts.public_key) return ToPem(der);
  }
  return host::HostError("no certificate on the card belongs to the key " + key.object_id);
}

}  // namespace tokenhost
