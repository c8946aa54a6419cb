#include "platform/linux/host/testing/test_bundle.h"

namespace host::testing {
namespace {

constexpr char kInfo[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
<key>CFBundleExecutable</key><string>Executable</string>
<key>CFBundleIdentifier</key><string>org.example.test</string>
<key>CFBundlePackageType</key><string>XPC!</string>
<key>NSExtension</key>
<dict>
<key>NSExtensionPointIdentifier</key><string>com.apple.ctk-tokens</string>
<key>NSExtensionAttributes</key>
<dict>
<key>com.apple.ctk.class-id</key><string>org.example.test.class</string>
<key>com.apple.ctk.driver-class</key><string>Driver</string>
<key>com.apple.ctk.token-type</key><string>smartcard</string>
</dict>
</dict>
</dict>
</plist>
)";

constexpr char kConfiguration[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>readerName</key><string>Reader</string></dict></plist>
)";

}  // namespace

TestBundle::TestBundle(const std::string& library, const std::string& driver_class) {
  WriteText(File("Info.plist"), kInfo);
  EditInfo("<string>Driver<", "<string>" + driver_class + "<");
  WriteText(File("MacOS/Executable"), library.empty() ? "no library" : ReadText(library));
  WriteText(File("Resources/config.plist"), kConfiguration);
  for (const char* name : {"Lindel", "Vumo"}) {
    WriteText(File("Resources/libpkcs11qarn_" + std::string(name) + "_PCSC.dylib"), "module");
  }
}

void TestBundle::EditInfo(const std::string& text, const std::string& replacement) const {
  std::string info = ReadText(File("Info.plist"));
  const size_t position = info.find(text);
  if (position == std::string::npos) throw std::runtime_error("Info.plist has no " + text);
  info.replace(position, text.size(), replacement);
  WriteText(File("Info.plist"), info);
}

}  // namespace host::testing
