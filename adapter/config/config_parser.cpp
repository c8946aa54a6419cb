#include "adapter/config/config_parser.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <string>

#include "adapter/config/file_path.h"
#include "adapter/config/setup_error.h"
#include "adapter/config/text_fields.h"

namespace kelvrin::adapter {
namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::size_t kAnySize = static_cast<std::size_t>(-1);

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

const RuleName* FindRule(std::string_view name) {
  const auto* const found =
      std::find_if(kRuleNames.begin(), kRuleNames.end(),
                   [&](const RuleName& candidate) { return candidate.name == name; });
  return found == kRuleNames.end() ? nullptr : found;
}

// The names of a table's entries, as a sentence lists them.
template <typename Entries>
std::string Names(const Entries& entries) {
  std::string names;
  for (const auto& entry : entries) {
    if (!names.empty()) names += ", ";
    names += entry.name;
  }
  return names;
}

// Keys and rules of earlier versions, which somebody's file may still name.
struct FormerName {
  std::string_view name;
  std::string_view cure;
};
constexpr std::array kFormerKeys = {
    FormerName{"profile", "delete the line: the adapter serves the extension alone"},
    FormerName{"slot-reader", "delete the line, or write the text as 'reader-name'"},
};
constexpr std::array kFormerRules = {
    FormerName{"initialisation", ""},  FormerName{"finished-searches", ""},
    FormerName{"worker-sessions", ""}, FormerName{"failed-lengths", ""},
    FormerName{"one-slot", ""},        FormerName{"search-memory", ""},
    FormerName{"renewed-handles", ""},
};

template <typename Names>
const FormerName* FindFormer(const Names& names, std::string_view name) {
  const auto* const found = std::find_if(
      names.begin(), names.end(), [&](const FormerName& former) { return former.name == name; });
  return found == names.end() ? nullptr : found;
}

// One file being read: gathers the values line by line.
class Parser {
 public:
  explicit Parser(const std::string& file) { config_.file = file; }

  void Line(std::string_view text);
  Config Finish();

 private:
  // A key and what takes its value: a text of limited size, or a function.
  struct Key {
    std::string_view name;
    std::string Config::* text = nullptr;
    std::size_t limit = kAnySize;
    void (Parser::*take)(std::string_view value) = nullptr;
    bool is_list = false;  // of names, so that a tab is a blank between them
  };
  static const std::array<Key, 8> kKeys;

  [[noreturn]] void Fail(const std::string& what) const { FailConfig(config_.file, line_, what); }

  void Store(const Key& key, std::string_view value);
  void TakeModule(std::string_view value);
  void TakeAnyReader(std::string_view value);
  void TakeCardNumber(std::string_view value);
  void TakeRulesOff(std::string_view value);
  void TakeRuleOff(std::string_view name);

  Config config_;
  std::set<Rule> rules_off_;
  std::set<std::string_view> seen_;
  int line_ = 0;
};

const std::array<Parser::Key, 8> Parser::kKeys = {{
    {.name = "module", .take = &Parser::TakeModule},
    {.name = "reserved", .text = &Config::reserved},
    {"reader-name", &Config::reader_name, sizeof(CK_SLOT_INFO::slotDescription)},
    {.name = "any-reader", .take = &Parser::TakeAnyReader},
    {"token-label", &Config::token_label, sizeof(CK_TOKEN_INFO::label)},
    {"token-serial", &Config::token_serial, sizeof(CK_TOKEN_INFO::serialNumber)},
    {.name = "card-number", .take = &Parser::TakeCardNumber},
    {.name = "rules-off", .take = &Parser::TakeRulesOff, .is_list = true},
}};

void Parser::Line(std::string_view text) {
  ++line_;
  if (text.find('\0') != std::string_view::npos) {
    Fail("the line has a NUL byte; save the file as plain text in UTF-8");
  }
  text = Trim(text);
  if (text.empty() || text.front() == '#') return;
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    // Its first word alone: what follows may have been meant for the module's eyes only.
    Fail("no '=' in the line that begins with " +
         Quoted(text.substr(0, text.find_first_of(kBlanks))) +
         "; write 'key = value', or begin the line with #");
  }
  const std::string_view name = Trim(text.substr(0, equals));
  const std::string_view value = Trim(text.substr(equals + 1));
  const auto* const key = std::find_if(kKeys.begin(), kKeys.end(),
                                       [&](const Key& known) { return known.name == name; });
  if (key == kKeys.end()) {
    if (const FormerName* const former = FindFormer(kFormerKeys, name)) {
      Fail("the key " + Quoted(name) + " is gone; " + std::string(former->cure));
    }
    Fail("unknown key " + Quoted(name) + "; known keys are " + Names(kKeys));
  }
  if (!seen_.insert(key->name).second) {
    Fail(Quoted(name) + " is given twice; remove one of the lines");
  }
  const auto is_odd = [&](char c) { return IsControl(c) && (!key->is_list || c != '\t'); };
  if (std::any_of(value.begin(), value.end(), is_odd)) {
    Fail("control character in the value of " + Quoted(name) + "; remove it");
  }
  if (value.empty()) Fail("no value for " + Quoted(name) + "; write one, or remove the line");
  Store(*key, value);
}

Config Parser::Finish() {
  if (config_.module.empty()) {
    line_ = std::max(line_, 1);
    Fail("no key 'module' up to here; add a line 'module = PATH' that names the PKCS#11 module");
  }
  for (const Rule rule : rules_off_) config_.rules.SwitchOff(rule);
  return config_;
}

void Parser::Store(const Key& key, std::string_view value) {
  if (key.take != nullptr) {
    (this->*key.take)(value);
    return;
  }
  if (value.size() > key.limit) {
    Fail(Quoted(key.name) + " has more than " + std::to_string(key.limit) + " bytes; shorten it");
  }
  config_.*key.text = value;
}

void Parser::TakeModule(std::string_view value) {
  config_.module_line = line_;
  config_.module = PathBeside(config_.file, value);
}

void Parser::TakeAnyReader(std::string_view value) {
  if (value != "yes" && value != "no") {
    Fail("'any-reader' is " + Quoted(value) + "; write yes or no");
  }
  config_.any_reader = value == "yes";
}

void Parser::TakeCardNumber(std::string_view value) {
  if (value != "label" && value != "serial") {
    Fail("'card-number' is " + Quoted(value) + "; write label or serial");
  }
  config_.serial_in_label = value == "serial";
}

void Parser::TakeRulesOff(std::string_view value) {
  for (;;) {
    const std::size_t comma = value.find(',');
    TakeRuleOff(Trim(value.substr(0, comma)));
    if (comma == std::string_view::npos) return;
    value.remove_prefix(comma + 1);
  }
}

void Parser::TakeRuleOff(std::string_view name) {
  if (name.empty()) {
    Fail("'rules-off' lacks a name beside a comma; write the names with one comma between them");
  }
  const RuleName* const rule = FindRule(name);
  if (rule == nullptr) {
    if (FindFormer(kFormerRules, name) != nullptr) {
      Fail("the rule " + Quoted(name) + " always applies now; delete its name from 'rules-off'");
    }
    Fail("unknown rule " + Quoted(name) + " in 'rules-off'; known rules are " + Names(kRuleNames));
  }
  if (!rules_off_.insert(rule->rule).second) {
    Fail("'rules-off' names " + Quoted(name) + " twice; remove one of them");
  }
}

}  // namespace

void FailConfig(const std::string& file, int line, const std::string& what) {
  const std::string place = line > 0 ? ":" + std::to_string(line) : "";
  throw SetupError(CKR_GENERAL_ERROR, file + place + ": " + what);
}

Config ParseConfig(const std::string& file, std::string_view contents) {
  Parser parser(file);
  if (contents.starts_with(kByteOrderMark)) contents.remove_prefix(kByteOrderMark.size());
  while (!contents.empty()) {
    const std::size_t end = contents.find('\n');
    parser.Line(contents.substr(0, end));
    contents.remove_prefix(end == std::string_view::npos ? contents.size() : end + 1);
  }
  return parser.Finish();
}

}  // namespace kelvrin::adapter
