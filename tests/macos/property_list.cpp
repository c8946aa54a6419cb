#include "tests/macos/property_list.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

struct Free {
  void operator()(void* memory) const { free(memory); }
};
using Iterator = std::unique_ptr<void, Free>;
using Text = std::unique_ptr<char, Free>;

// The value of something that holds nothing else.
std::string ScalarText(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
      char* text = nullptr;
      plist_get_string_val(node, &text);
      return Quoted(Text(text).get());
    }
    case PLIST_BOOLEAN: {
      uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return value != 0 ? "true" : "false";
    }
    case PLIST_UINT:
      return "an integer";
    case PLIST_REAL:
      return "a real number";
    case PLIST_DATE:
      return "a date";
    case PLIST_DATA:
      return "data";
    default:
      return "something unknown";
  }
}

// Counts the keys of dictionaries into `keys`.
void Flatten(const std::string& name, plist_t node, PropertyList& list, size_t& keys) {
  const std::string prefix = name.empty() ? "" : name + "/";
  if (plist_get_node_type(node) == PLIST_DICT) {
    plist_dict_iter position = nullptr;
    plist_dict_new_iter(node, &position);
    const Iterator iterator(position);
    if (plist_dict_get_size(node) == 0) list[name] = "{}";
    for (uint32_t i = 0; i < plist_dict_get_size(node); ++i, ++keys) {
      char* key = nullptr;
      plist_t value = nullptr;
      plist_dict_next_item(node, position, &key, &value);
      Flatten(prefix + Text(key).get(), value, list, keys);
    }
  } else if (plist_get_node_type(node) == PLIST_ARRAY) {
    if (plist_array_get_size(node) == 0) list[name] = "[]";
    for (uint32_t i = 0; i < plist_array_get_size(node); ++i) {
      Flatten(prefix + "[" + std::to_string(i) + "]", plist_array_get_item(node, i), list, keys);
    }
  } else {
    list[name] = ScalarText(node);
  }
}

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

PropertyList ReadPropertyList(const std::filesystem::path& path) {
  const std::string xml = ReadFile(path);
  plist_t node = nullptr;
  plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &node);
  const std::unique_ptr<void, decltype(&plist_free)> root(node, plist_free);
  if (root == nullptr || plist_get_node_type(root.get()) != PLIST_DICT) {
    throw std::runtime_error(path.string() + " is no property list with a dictionary");
  }
  PropertyList list;
  size_t keys = 0;
  Flatten("", root.get(), list, keys);
  // The library keeps the last of several values; the system may keep another.
  if (Count(xml, "<key>") != keys) {
    throw std::runtime_error(path.string() + " has a key twice");
  }
  return list;
}

Findings ComparePropertyLists(const std::string& what, const PropertyList& expected,
                              const PropertyList& got) {
  Findings findings;
  const std::string prefix = what + ": ";
  const std::string unexpected = prefix + "expected no ";
  for (const auto& [key, value] : expected) {
    const auto found = got.find(key);
    ExpectEqual(prefix + key, value, found == got.end() ? "none" : found->second, findings);
  }
  for (const auto& [key, value] : got) {
    if (!expected.contains(key)) findings.push_back(unexpected + key);
  }
  return findings;
}

}  // namespace kelvrin::macos
