#include "tests/macos/declarations.h"

#include <fstream>
#include <regex>
#include <stdexcept>

#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDeclarations = "Declarations";
constexpr std::string_view kUnavailable = "Unavailable";
constexpr std::string_view kClass = "class ";

// A header without its comments and without the instance variables of the stand-in for Linux.
std::string Code(const fs::path& header) {
  static const std::regex kComment("//[^\n]*");
  static const std::regex kInstanceVariables("TK_INSTANCE_VARIABLES\\([^)]*\\)");
  return std::regex_replace(std::regex_replace(ReadFile(header), kComment, ""), kInstanceVariables,
                            "");
}

// The word at a place of a text.
std::string WordAt(const std::string& text, size_t at) {
  const size_t end = text.find_first_of(" \n<:;,", at);
  return text.substr(at, end - at);
}

// One @interface or @protocol.
struct Block {
  std::string name;
  std::string body;  // after the line that names it, up to @end
};

// The definitions of a header that begin with a keyword; forward declarations end in a semicolon.
std::vector<Block> Blocks(const std::string& code, const std::string& keyword) {
  std::vector<Block> blocks;
  for (size_t at = code.find("\n" + keyword + " "); at != std::string::npos;
       at = code.find("\n" + keyword + " ", at + 1)) {
    const size_t name = at + keyword.size() + 2;
    const size_t body = code.find('\n', name);
    if (code[body - 1] == ';') continue;
    blocks.push_back({WordAt(code, name), code.substr(body, code.find("\n@end", body) + 1 - body)});
  }
  return blocks;
}

std::string Use(const std::string& protocol) { return "  (void)@protocol(" + protocol + ");\n"; }

// How often a text has another.
size_t Count(const std::string& text, const std::string& other) {
  size_t count = 0;
  for (size_t at = text.find(other); at != std::string::npos; at = text.find(other, at + 1)) {
    ++count;
  }
  return count;
}

// A protocol of the statements that are unavailable, or of those that are not; "" without any.
std::string ProtocolOf(const Block& block, bool unavailable) {
  std::string statements;
  size_t begin = 0;
  for (size_t end = block.body.find(';'); end != std::string::npos;
       end = block.body.find(';', begin)) {
    const std::string statement = block.body.substr(begin, end + 1 - begin);
    if (statement.ends_with("TK_UNAVAILABLE;") == unavailable) statements += statement;
    begin = end + 1;
  }
  if (unavailable && statements.empty()) return "";
  const std::string_view suffix = unavailable ? kUnavailable : kDeclarations;
  return "@protocol " + block.name + std::string(suffix) + statements + "\n@end\n";
}

}  // namespace

std::string ProbeText(const HeaderFolders& folders) {
  std::string definitions;
  std::string uses;
  for (const fs::path& header : folders.Headers()) {
    const std::string code = Code(header);
    const std::vector<Block> protocols = Blocks(code, "@protocol");
    const std::vector<Block> classes = Blocks(code, "@interface");
    if (protocols.size() + classes.size() != Count(code, "@end")) {
      throw std::runtime_error("not every declaration begins a line in " + header.string());
    }
    for (const Block& block : protocols) uses += Use(block.name);
    for (const Block& block : classes) {
      const std::string unavailable = ProtocolOf(block, true);
      definitions += ProtocolOf(block, false) + unavailable;
      definitions += "@implementation " + block.name + "\n@end\n";
      uses += Use(block.name + std::string(kDeclarations));
      if (!unavailable.empty()) uses += Use(block.name + std::string(kUnavailable));
    }
  }
  return "#pragma clang assume_nonnull begin\n" + definitions +
         "#pragma clang assume_nonnull end\n__attribute__((used)) static void Use() {\n" + uses +
         "}\n";
}

fs::path CompileProbe(const HeaderFolders& folders, const ProbeSettings& settings,
                      const fs::path& folder) {
  std::ofstream(folder / "declarations_of_headers.inc") << ProbeText(folders);
  fs::path library = folder / "declarations_probe.dylib";
  Compile(folders, settings.compiler,
          "-dynamiclib -nostdlib -fuse-ld=lld -Wl,-undefined,dynamic_lookup " +
              settings.linker_option + " '" + settings.probe.string() + "' -o '" +
              library.string() + "'",
          folder);
  return library;
}

std::vector<Metadata> Declarations(const Slice& probe) {
  std::vector<Metadata> declarations;
  std::vector<Metadata> made;
  for (Metadata& metadata : ReadMetadata(probe)) {
    if (metadata.name.ends_with(kDeclarations) || metadata.name.ends_with(kUnavailable)) {
      made.push_back(std::move(metadata));
    } else if (metadata.name != "protocol NSObject") {  // the C library's headers have that one
      if (metadata.name.starts_with(kClass)) metadata.lines.clear();
      declarations.push_back(std::move(metadata));
    }
  }
  for (Metadata& declaration : declarations) {
    if (!declaration.name.starts_with(kClass)) continue;
    const std::string protocol = "protocol " + declaration.name.substr(kClass.size());
    for (const Metadata& from : made) {
      const bool unavailable = from.name == protocol + std::string(kUnavailable);
      if (!unavailable && from.name != protocol + std::string(kDeclarations)) continue;
      for (const MetadataLine& line : from.lines) {
        declaration.lines.push_back(
            {(unavailable ? "unavailable " : "") + line.text, line.address});
      }
    }
  }
  return declarations;
}

Findings CheckNothingNewer(const HeaderFolders& folders) {
  static const std::regex kNewer(
      "\\b(TKTokenWatcherTokenInfo|TKTokenConfiguration|TKTokenDriverConfiguration|"
      "TKTokenInstanceID|TKTokenDriverClassID|tokenForConfiguration|configuration|"
      "configurationData|keychainItems|driverConfigurations|tokenConfigurations|"
      "addTokenConfigurationForTokenInstanceID|removeTokenConfigurationForTokenInstanceID|"
      "getSmartCardWithError)\\b");
  Findings findings;
  for (const fs::path& header : folders.Headers()) {
    const std::string code = Code(header);
    for (std::sregex_iterator match(code.begin(), code.end(), kNewer), end; match != end; ++match) {
      findings.push_back(header.filename().string() + ": expected no " + match->str());
    }
  }
  return findings;
}

}  // namespace kelvrin::macos
