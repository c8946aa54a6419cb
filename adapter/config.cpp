#include "adapter/config.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <set>
#include <string_view>
#include <system_error>

#include "adapter/setup_error.h"

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kMaxFileSize = std::size_t{64} * 1024;
constexpr std::size_t kMaxReaderName = sizeof(CK_SLOT_INFO::slotDescription);
constexpr std::size_t kMaxTokenLabel = sizeof(CK_TOKEN_INFO::label);
constexpr std::size_t kMaxTokenSerial = sizeof(CK_TOKEN_INFO::serialNumber);

// A key with a text value: where it goes and how long it may be.
struct TextKey {
  std::string_view name;
  std::string Config::* member;
  std::size_t limit;
};
constexpr std::array<TextKey, 4> kTextKeys = {{
    {"reserved", &Config::reserved, kMaxFileSize},
    {"reader-name", &Config::reader_name, kMaxReaderName},
    {"token-label", &Config::token_label, kMaxTokenLabel},
    {"token-serial", &Config::token_serial, kMaxTokenSerial},
}};
constexpr std::string_view kKnownKeys =
    "known keys are module, reserved, reader-name, token-label and token-serial";

[[noreturn]] void Fail(const std::filesystem::path& file, int line, const std::string& what) {
  const std::string place = line > 0 ? ":" + std::to_string(line) : "";
  throw SetupError(CKR_GENERAL_ERROR, file.string() + place + ": " + what);
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

// Text from the file as it may be shown: short, and without bytes that would upset a terminal.
std::string Quoted(std::string_view text) {
  std::string shown(text.substr(0, 40));
  std::replace_if(shown.begin(), shown.end(), IsControl, '?');
  return "'" + shown + "'";
}

std::string Contents(const std::filesystem::path& file) {
  std::error_code error;
  std::ifstream stream(file, std::ios::binary);
  const int reason = errno;
  if (!stream || std::filesystem::is_directory(file, error)) {
    const std::string text =
        stream ? "it is a folder" : std::error_code(reason, std::generic_category()).message();
    Fail(file, 0,
         "cannot be read (" + text + "); make a text file of it with a line " +
             "'module = PATH' that names the PKCS#11 module");
  }
  std::string contents(kMaxFileSize + 1, '\0');
  stream.read(contents.data(), static_cast<std::streamsize>(contents.size()));
  contents.resize(static_cast<std::size_t>(stream.gcount()));
  if (contents.size() > kMaxFileSize) {
    Fail(file, 0, "has more than 64 KiB; keep only the lines that the adapter knows");
  }
  return contents;
}

// One file being read: gathers the values line by line.
class Reader {
 public:
  explicit Reader(const std::filesystem::path& file) { config_.file = file; }

  void Line(std::string_view text) {
    ++line_;
    text = Trim(text);
    if (text.empty() || text.front() == '#') return;
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) {
      Fail("no '=' in " + Quoted(text) + "; write 'key = value', or begin the line with #");
    }
    const std::string_view key = Trim(text.substr(0, equals));
    const std::string_view value = Trim(text.substr(equals + 1));
    if (std::any_of(value.begin(), value.end(), IsControl)) {
      Fail("control character in the value of " + Quoted(key) + "; remove it");
    }
    Store(key, value);
    if (value.empty()) {
      Fail("no value for " + Quoted(key) + "; write one, or remove the line");
    }
    if (!seen_.insert(std::string(key)).second) {
      Fail(Quoted(key) + " is given twice; remove one of the lines");
    }
  }

  Config Finish() {
    if (config_.module.empty()) {
      line_ = std::max(line_, 1);
      Fail("no key 'module' up to here; add a line 'module = PATH' that names the PKCS#11 module");
    }
    return config_;
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    adapter::Fail(config_.file, line_, what);
  }

  void Store(std::string_view key, std::string_view value) {
    if (key == "module") {
      config_.module_line = line_;
      config_.module = (config_.file.parent_path() / value).lexically_normal();
      return;
    }
    for (const TextKey& known : kTextKeys) {
      if (key != known.name) continue;
      if (value.size() > known.limit) {
        Fail(Quoted(key) + " has more than " + std::to_string(known.limit) + " bytes; shorten it");
      }
      config_.*known.member = value;
      return;
    }
    Fail("unknown key " + Quoted(key) + "; " + std::string(kKnownKeys));
  }

  Config config_;
  int line_ = 0;
  std::set<std::string> seen_;
};

}  // namespace

Config ReadConfig(const std::filesystem::path& file) {
  const std::string contents = Contents(file);
  Reader reader(file);
  std::string_view rest = contents;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    reader.Line(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return reader.Finish();
}

std::filesystem::path ConfigFileOf(const std::filesystem::path& library) {
  std::filesystem::path file = library;
  return file.replace_extension(".conf");
}

}  // namespace kelvrin::adapter
