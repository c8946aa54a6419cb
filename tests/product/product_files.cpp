#include "tests/product/product_files.h"

#include <cstdlib>

namespace product {
namespace {

using std::filesystem::copy_options;
using std::filesystem::path;

constexpr char kResources[] = "Contents/Resources";

// The folder of the macOS build; null when this build's files are tested.
const char* Shipped() { return getenv("KELVRIN_SHIPPED_FILES"); }

}  // namespace

bool AreShipped() { return Shipped() != nullptr; }

path Adapter() {
  return Shipped() == nullptr ? KELVRIN_ADAPTER : path(Shipped()) / "bin/libkelvrin_adapter.dylib";
}

path Modulecheck() {
  return Shipped() == nullptr ? KELVRIN_MODULECHECK : path(Shipped()) / "bin/modulecheck";
}

void CopyBundle(const path& to) {
  if (Shipped() == nullptr) {
    std::filesystem::copy(KELVRIN_BUNDLE, to, copy_options::recursive);
    return;
  }
  const path bundle = "KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex";
  std::filesystem::copy(Shipped() / bundle, to, copy_options::recursive);
  // What ships names no module; this build's configuration does.
  for (const auto& entry : std::filesystem::directory_iterator(path(KELVRIN_BUNDLE) / kResources)) {
    const path target = to / kResources / entry.path().filename();
    if (entry.path().extension() == ".conf" || !exists(target)) {
      std::filesystem::copy(entry, target, copy_options::overwrite_existing);
    }
  }
}

}  // namespace product
