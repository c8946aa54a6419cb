#include "token/testing/test_bundle.h"

#import <Foundation/Foundation.h>
#include <stdlib.h>

#include <fstream>

#import "platform/linux/ctk/MainBundle.h"
#include "token/testing/leaks.h"

namespace token_testing {
namespace {

namespace fs = std::filesystem;

fs::path MakeFolder() {
  // Not ASCII, as a home folder's name may be.
  std::string name = fs::temp_directory_path() / "kelvrin-bündel-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    perror("mkdtemp");
    abort();
  }
  return name;
}

void WritePlist(const fs::path &path, const std::string &element) {
  std::ofstream(path) << R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">)"
                      << element << "</plist>\n";
}

}  // namespace

TestBundle::TestBundle(const std::string &language) : root_(MakeFolder()) {
  fs::create_directories(resources());
  for (const char *module : {kLindelModule, kVumoModule}) {
    fs::copy_file(SCRIPTED_MODULE_PATH, ModulePath(module));
  }
  for (const char *folder : {"de.lproj", "en.lproj"}) {
    fs::copy(fs::path(KELVRIN_RESOURCES) / folder, resources() / folder);
  }
  SetReaderName(kReaderName);
  WritePlist(resources().parent_path() / "Info.plist",
             "<dict><key>CFBundleIdentifier</key><string>org.kelvrin.test</string></dict>");
  setenv("LANGUAGES", language.c_str(), 1);
  const LeaksAllowed allowed;  // Foundation keeps some of what it makes at first use
  @autoreleasepool {
    TKSetMainBundle([NSString stringWithUTF8String:(root_ / "X.appex").c_str()]);
  }
}

TestBundle::~TestBundle() {
  @autoreleasepool {
    TKSetMainBundle(nil);
  }
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string TestBundle::ModulePath(const std::string &module) const {
  return resources() / (module + ".dylib");
}

void TestBundle::SetReaderName(const std::string &reader_name) const {
  SetConfiguration("<dict><key>readerName</key><string>" + reader_name + "</string></dict>");
}

void TestBundle::SetConfiguration(const std::string &element) const {
  WritePlist(resources() / "config.plist", element);
}

void TestBundle::Remove(const std::string &resource) const {
  fs::remove_all(resources() / resource);
}

}  // namespace token_testing
