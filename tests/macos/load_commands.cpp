#include "tests/macos/load_commands.h"

#include <map>

namespace kelvrin::macos {
namespace {

using llvm::object::MachOObjectFile;
using Command = MachOObjectFile::LoadCommandInfo;

// The text at an offset of a load command.
std::string TextAt(const Command& command, uint32_t offset) {
  const std::string all(command.Ptr + offset, command.C.cmdsize - offset);
  return all.substr(0, all.find('\0'));
}

// How a command loads a library; empty when it loads none.
std::string LoadsHow(uint32_t command) {
  static const std::map<uint32_t, std::string> hows = {
      {llvm::MachO::LC_LOAD_DYLIB, "plain"},
      {llvm::MachO::LC_LOAD_WEAK_DYLIB, "weak"},
      {llvm::MachO::LC_REEXPORT_DYLIB, "re-exported"},
      {llvm::MachO::LC_LOAD_UPWARD_DYLIB, "upward"},
      {llvm::MachO::LC_LAZY_LOAD_DYLIB, "lazy"},
  };
  const auto how = hows.find(command);
  return how == hows.end() ? "" : how->second;
}

std::string Described(const std::string& install_name, const std::string& compatibility,
                      const std::string& how = "plain") {
  return install_name + " " + compatibility + (how == "plain" ? "" : " (" + how + ")");
}

std::string PlatformText(uint32_t platform) {
  return platform == llvm::MachO::PLATFORM_MACOS ? "macos" : "platform " + std::to_string(platform);
}

// What a command says of the system that the slice is for; empty when it says nothing of it.
std::string BuildVersionText(const MachOObjectFile& file, const Command& command) {
  switch (command.C.cmd) {
    case llvm::MachO::LC_BUILD_VERSION: {
      const auto version = file.getBuildVersionLoadCommand(command);
      return PlatformText(version.platform) + " " + VersionText(version.minos) + " sdk " +
             VersionText(version.sdk);
    }
    case llvm::MachO::LC_VERSION_MIN_MACOSX:
    case llvm::MachO::LC_VERSION_MIN_IPHONEOS:
    case llvm::MachO::LC_VERSION_MIN_TVOS:
    case llvm::MachO::LC_VERSION_MIN_WATCHOS:
      return "an old version command";
    default:
      return "";
  }
}

}  // namespace

std::string VersionText(uint32_t packed) {
  return std::to_string(packed >> 16) + "." + std::to_string(packed >> 8 & 0xff) + "." +
         std::to_string(packed & 0xff);
}

Findings CheckSlices(const MachOFile& file) {
  Findings findings;
  std::vector<std::string> got;
  for (const Slice& slice : file.slices()) got.push_back(slice.architecture);
  ExpectEqual("slices", "x86_64, arm64", Joined(got), findings);
  return findings;
}

Findings CheckHeader(const MachOFile& file, const Binary& expected) {
  namespace macho = llvm::MachO;
  const uint32_t kind = expected.file_type == macho::MH_EXECUTE
                            ? macho::MH_PIE
                            : macho::MH_NO_REEXPORTED_DYLIBS | macho::MH_HAS_TLV_DESCRIPTORS;
  const uint32_t flags = macho::MH_NOUNDEFS | macho::MH_DYLDLINK | macho::MH_TWOLEVEL | kind;
  Findings findings;
  for (const Slice& slice : file.slices()) {
    const llvm::MachO::mach_header& header = slice.file->getHeader();
    ExpectEqual(slice.architecture + ": file type", std::to_string(expected.file_type),
                std::to_string(header.filetype), findings);
    ExpectEqual(slice.architecture + ": flags", std::to_string(flags), std::to_string(header.flags),
                findings);
  }
  return findings;
}

Findings CheckBuildVersion(const MachOFile& file) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    std::vector<std::string> got;
    for (const Command& command : slice.file->load_commands()) {
      const std::string text = BuildVersionText(*slice.file, command);
      if (!text.empty()) got.push_back(text);
    }
    const std::string minimum = slice.architecture == "arm64" ? "11.0.0" : "10.14.6";
    ExpectEqual(slice.architecture + ": build version", "macos " + minimum + " sdk 14.5.0",
                Joined(got), findings);
  }
  return findings;
}

Findings CheckRunPaths(const MachOFile& file, const Binary& expected) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    std::vector<std::string> got;
    for (const Command& command : slice.file->load_commands()) {
      if (command.C.cmd != llvm::MachO::LC_RPATH) continue;
      got.push_back(TextAt(command, slice.file->getRpathCommand(command).path));
    }
    ExpectEqual(slice.architecture + ": run paths", Joined(expected.run_paths), Joined(got),
                findings);
  }
  return findings;
}

Findings CheckLibraries(const MachOFile& file, const Binary& expected) {
  std::vector<std::string> wanted;
  wanted.reserve(expected.libraries.size());
  for (const Library& library : expected.libraries) {
    wanted.push_back(Described(library.install_name, library.compatibility));
  }
  Findings findings;
  for (const Slice& slice : file.slices()) {
    std::vector<std::string> got;
    for (const Command& command : slice.file->load_commands()) {
      const std::string how = LoadsHow(command.C.cmd);
      if (how.empty()) continue;
      const auto& library = slice.file->getDylibIDLoadCommand(command).dylib;
      got.push_back(Described(TextAt(command, library.name),
                              VersionText(library.compatibility_version), how));
    }
    ExpectEqual(slice.architecture + ": libraries", Joined(wanted), Joined(got), findings);
  }
  return findings;
}

Findings CheckInstallName(const MachOFile& file, const Binary& expected) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    std::vector<std::string> got;
    for (const Command& command : slice.file->load_commands()) {
      if (command.C.cmd != llvm::MachO::LC_ID_DYLIB) continue;
      got.push_back(TextAt(command, slice.file->getDylibIDLoadCommand(command).dylib.name));
    }
    ExpectEqual(slice.architecture + ": install name",
                expected.install_name.empty() ? "none" : expected.install_name, Joined(got),
                findings);
  }
  return findings;
}

}  // namespace kelvrin::macos
