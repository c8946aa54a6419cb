// Tests of the built adapter in front of the fault module, with the module itself beside it.
#ifndef KELVRIN_ADAPTER_TESTING_FAULT_MODULE_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_FAULT_MODULE_FIXTURE_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "adapter/testing/fault_module.h"
#include "adapter/testing/fault_module_road.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {

// KELVRIN_ADAPTER_LIBRARY and KELVRIN_FAULT_MODULE are the paths of the two libraries.
class FaultTest : public testing::Test {
 protected:
  // The module may have served another test of this process.
  FaultTest() { control_ = FaultControl(); }

  static std::filesystem::path Module() { return KELVRIN_FAULT_MODULE; }

  // A copy of the adapter in front of the module, under `name`, its configuration with these lines
  // besides.
  std::filesystem::path Adapter(const std::string& lines = "",
                                const std::string& name = "libX") const {
    const auto library = folder_ / (name + ".dylib");
    std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, library);
    folder_.Write(name + ".conf", "module = " + Module().string() + "\n" + lines);
    return library;
  }

  TemporaryFolder folder_;
  FaultControl& control_ = LoadFaultModule(Module());
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_FAULT_MODULE_FIXTURE_H_
