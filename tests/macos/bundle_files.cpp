#include "tests/macos/bundle_files.h"

#include <sstream>

#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;

constexpr char kExtension[] = "Contents/PlugIns/KelvrinToken.appex/Contents/";

struct Adapter {
  std::string name;  // of the resource
  fs::path native;   // the module in its place, or empty
};

std::vector<Adapter> Adapters(const BuildOptions& options) {
  return {{"libpkcs11qarn_Lindel_PCSC", options.native_lindel},
          {"libpkcs11qarn_Vumo_PCSC", options.native_vumo}};
}

// Whether the configured module lies in the bundle, behind an adapter.
bool HasModule(const BuildOptions& options) {
  return !options.module.empty() && !options.module_in_place &&
         (options.native_lindel.empty() || options.native_vumo.empty());
}

std::set<std::string> ExpectedFiles(const BuildOptions& options) {
  const std::string resources = std::string(kExtension) + "Resources/";
  std::set<std::string> files = {
      "Contents/Info.plist",
      "Contents/MacOS/KelvrinToken",
      "Contents/Resources/de.lproj/Localizable.strings",
      "Contents/Resources/en.lproj/Localizable.strings",
      "Contents/Resources/adapter.md",
      "Contents/Resources/macos.md",
      "Contents/Resources/modules.md",
      std::string(kExtension) + "Info.plist",
      std::string(kExtension) + "MacOS/KelvrinToken",
      resources + "config.plist",
      resources + "de.lproj/Localizable.strings",
      resources + "en.lproj/Localizable.strings",
  };
  for (const Adapter& adapter : Adapters(options)) {
    files.insert(resources + adapter.name + ".dylib");
    if (adapter.native.empty()) files.insert(resources + adapter.name + ".conf");
  }
  if (HasModule(options)) files.insert(resources + options.module.filename().string());
  return files;
}

std::string KindOf(const fs::directory_entry& entry) {
  if (entry.is_symlink()) return "a link";
  if (entry.is_regular_file()) return "a file";
  return "something else";
}

bool MayRun(const fs::directory_entry& entry) {
  return (entry.symlink_status().permissions() & fs::perms::owner_exec) != fs::perms::none;
}

bool IsModule(const fs::path& path, const BuildOptions& options) {
  return path.extension() == ".dylib" || path.filename() == options.module.filename();
}

// What a configuration file says.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

void ExpectCopy(const fs::path& original, const fs::path& copy, const fs::path& base,
                Findings& findings) {
  if (ReadFile(original) != ReadFile(copy)) {
    findings.push_back(copy.lexically_relative(base).string() + ": expected the bytes of " +
                       original.filename().string() + ", got others");
  }
}

}  // namespace

Findings CheckFileList(const Bundle& bundle) {
  Findings findings;
  std::set<std::string> files;
  const fs::path application = bundle.application().parent_path();
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(application)) {
    const std::string name = entry.path().lexically_relative(application);
    if (entry.is_directory() && !entry.is_symlink()) {
      if (fs::is_empty(entry)) findings.push_back(name + ": expected no empty folder");
      continue;
    }
    files.insert(name);
    ExpectEqual(name, "a file", KindOf(entry), findings);
    if (IsModule(entry.path(), bundle.options())) continue;  // loaded either way
    const bool program = name.find("/MacOS/") != std::string::npos;
    ExpectEqual(name + ": may be run", program ? "yes" : "no", MayRun(entry) ? "yes" : "no",
                findings);
  }
  ExpectSame("files", ExpectedFiles(bundle.options()), files, findings);
  return findings;
}

Findings CheckCopiedFiles(const Bundle& bundle, const fs::path& source) {
  Findings findings;
  const fs::path resources = bundle.extension() / "Resources";
  const auto expect_copy = [&](const fs::path& original, const fs::path& copy) {
    ExpectCopy(original, copy, bundle.build(), findings);
  };
  for (const Adapter& adapter : Adapters(bundle.options())) {
    const fs::path built = bundle.build() / "bin/libkelvrin_adapter.dylib";
    expect_copy(adapter.native.empty() ? built : adapter.native,
                resources / (adapter.name + ".dylib"));
  }
  const fs::path& module = bundle.options().module;
  if (HasModule(bundle.options())) expect_copy(module, resources / module.filename());
  for (const fs::path language : {"de.lproj", "en.lproj"}) {
    const fs::path texts = language / "Localizable.strings";
    expect_copy(source / "resources" / texts, resources / texts);
    expect_copy(source / "app" / texts, bundle.application() / "Resources" / texts);
  }
  for (const fs::path page : {"macos.md", "modules.md", "adapter.md"}) {
    expect_copy(source / "docs" / page, bundle.application() / "Resources" / page);
  }
  return findings;
}

Findings CheckAdapterConfigurations(const Bundle& bundle) {
  const BuildOptions& options = bundle.options();
  fs::path module = "pkcs11-module.dylib";
  if (!options.module.empty()) {
    module = options.module_in_place ? options.module : options.module.filename();
  }
  std::vector<std::string> expected = {"module = " + module.string()};
  if (!options.reader_name.empty()) expected.push_back("reader-name = " + options.reader_name);
  if (!options.module_conf.empty()) {
    for (const std::string& line : Lines(ReadFile(options.module_conf))) expected.push_back(line);
  }
  Findings findings;
  for (const Adapter& adapter : Adapters(options)) {
    if (!adapter.native.empty()) continue;
    const std::string name = adapter.name + ".conf";
    const auto got = Lines(ReadFile(bundle.extension() / "Resources" / name));
    ExpectEqual(name, Joined(expected), Joined(got), findings);
  }
  return findings;
}

}  // namespace kelvrin::macos
