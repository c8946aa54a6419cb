#include "platform/macho/stand_ins.h"

#include <dlfcn.h>

#include <cstdio>
#include <map>
#include <string>

#include "platform/macho/libsystem/libcxx.h"
#include "platform/macho/libsystem/tables.h"
#include "platform/macho/objc/functions.h"

namespace macho {
namespace {

using Table = std::map<std::string_view, void*>;

// Foundation's entry of extensions, which only the system calls; here the host opens the file.
int ExtensionMain() {
  fputs("macho: an extension is opened by its host, not run\n", stderr);
  return 1;
}

Table JoinTables() {
  Table all;
  for (const auto table :
       {libsystem::Characters(), libsystem::Cxx(), libsystem::DynamicLinker(), libsystem::Errors(),
        libsystem::Files(), libsystem::Log(), libsystem::Processes(), libsystem::Signals(),
        libsystem::Threads(), objc::Functions()}) {
    for (const StandIn& each : table) all[each.symbol] = each.address;
  }
#ifdef __aarch64__
  for (const StandIn& each : libsystem::Arm64()) all[each.symbol] = each.address;
#endif
  all["_NSExtensionMain"] = Address(ExtensionMain);
  return all;
}

}  // namespace

void* FindStandIn(std::string_view library, std::string_view symbol) {
  static const Table replaced = JoinTables();
  if (const auto found = replaced.find(symbol); found != replaced.end()) return found->second;
  if (void* found = objc::FindClass(symbol)) return found;
  const std::string name(symbol.substr(1));
  // The same library, built for this system.
  if (library == "libc++") return dlsym(LibCxx(), name.c_str());
  if (library == "libobjc") return nullptr;
  if (library != "libSystem") return dlsym(RTLD_DEFAULT, name.c_str());  // a framework's stand-in
  return libsystem::Agrees(name) ? dlsym(RTLD_DEFAULT, name.c_str()) : nullptr;
}

}  // namespace macho
