#include "tests/macos/link_stubs.h"

#include <llvm/Support/MemoryBuffer.h>
#include <llvm/TextAPI/InterfaceFile.h>
#include <llvm/TextAPI/TextAPIReader.h>

#include <stdexcept>

#include "tests/macos/expected_binaries.h"
#include "tests/macos/load_commands.h"

namespace kelvrin::macos {
namespace {

using llvm::MachO::EncodeKind;

// The names in object files of what a stub lists.
std::vector<std::string> SymbolNames(const llvm::MachO::Symbol& symbol) {
  const std::string name = symbol.getName().str();
  switch (symbol.getKind()) {
    case EncodeKind::GlobalSymbol:
      return {name};
    case EncodeKind::ObjectiveCClass:
      return {"_OBJC_CLASS_$_" + name, "_OBJC_METACLASS_$_" + name};
    case EncodeKind::ObjectiveCClassEHType:
      return {"_OBJC_EHTYPE_$_" + name};
    case EncodeKind::ObjectiveCInstanceVariable:
      return {"_OBJC_IVAR_$_" + name};
  }
  throw std::runtime_error("unknown kind of symbol: " + name);
}

// As the linker does, takes what is there for arm64e as there for arm64.
void AddSymbol(const llvm::MachO::Symbol& symbol, LinkStub& stub) {
  for (const auto& target : symbol.targets()) {
    if (target.Platform != llvm::MachO::PLATFORM_MACOS) continue;
    std::string architecture = llvm::MachO::getArchitectureName(target.Arch).str();
    if (architecture == "arm64e") architecture = "arm64";
    for (const std::string& name : SymbolNames(symbol)) stub.symbols[architecture].insert(name);
  }
}

void AddSymbols(const llvm::MachO::InterfaceFile& file, LinkStub& stub) {
  for (const llvm::MachO::Symbol* symbol : file.exports()) AddSymbol(*symbol, stub);
  for (const llvm::MachO::Symbol* symbol : file.reexports()) AddSymbol(*symbol, stub);
}

// Names such as "$ld$hide$os10.14$_name" tell the linker that a symbol is not there for programs
// that are for that version and later ones.
void RemoveHidden(LinkStub& stub) {
  for (auto& [architecture, symbols] : stub.symbols) {
    const std::string hidden = architecture == "arm64" ? "$ld$hide$os11.0$" : "$ld$hide$os10.14$";
    std::set<std::string> visible = symbols;
    for (const std::string& symbol : symbols) {
      if (symbol.starts_with(hidden)) visible.erase(symbol.substr(hidden.size()));
    }
    std::erase_if(visible, [](const auto& symbol) { return symbol.starts_with("$ld$"); });
    symbols = std::move(visible);
  }
}

}  // namespace

LinkStub ReadLinkStub(const std::filesystem::path& path) {
  const auto buffer = llvm::MemoryBuffer::getFile(path.string());
  if (!buffer) throw std::runtime_error(path.string() + ": " + buffer.getError().message());
  auto file = llvm::MachO::TextAPIReader::get((*buffer)->getMemBufferRef());
  if (!file) throw std::runtime_error(path.string() + ": " + llvm::toString(file.takeError()));
  LinkStub stub{.install_name = (*file)->getInstallName().str(),
                .compatibility = VersionText((*file)->getCompatibilityVersion().rawValue()),
                .symbols = {}};
  AddSymbols(**file, stub);
  for (const auto& document : (*file)->documents()) AddSymbols(*document, stub);
  RemoveHidden(stub);
  return stub;
}

std::map<std::string, LinkStub> ReadLinkStubs(const std::filesystem::path& folder,
                                              const std::filesystem::path& sdk) {
  const auto system = sdk / "usr/lib/libSystem.tbd";
  if (!std::filesystem::exists(system)) {
    throw std::runtime_error(system.string() + " is missing: run ./dev macos first");
  }
  std::vector<std::filesystem::path> paths = {system};
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() == ".tbd") paths.push_back(entry.path());
  }
  std::map<std::string, LinkStub> stubs;
  for (const auto& path : paths) {
    LinkStub stub = ReadLinkStub(path);
    const std::string name = stub.install_name;
    if (!stubs.emplace(name, std::move(stub)).second) {
      throw std::runtime_error(path.string() + ": a second stub of " + name);
    }
  }
  return stubs;
}

Findings CheckLinkStubs(const std::map<std::string, LinkStub>& stubs) {
  std::set<std::string> expected;
  for (const Library& library : KnownLibraries()) {
    expected.insert(library.install_name + " " + library.compatibility);
  }
  std::set<std::string> got;
  for (const auto& [name, stub] : stubs) got.insert(name + " " + stub.compatibility);
  Findings findings;
  ExpectSame("link stubs", expected, got, findings);
  return findings;
}

}  // namespace kelvrin::macos
