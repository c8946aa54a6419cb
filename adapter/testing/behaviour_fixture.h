// Tests of the built adapter in front of the memory module, with the module itself beside it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "adapter/testing/extension.h"
#include "tests/module/memory_module.h"
#include "tests/product/product_files.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {

class BehaviourTest : public testing::Test {
 protected:
  using Bytes = std::vector<CK_BYTE>;

  BehaviourTest() { module.Reset(); }
  ~BehaviourTest() override { module.Reset(); }

  // A copy of the adapter under `name`, with a configuration of the module and these lines.
  std::filesystem::path Adapter(const std::string& lines = "", const std::string& name = "libX",
                                const std::string& behind = MEMORY_MODULE_PATH) const {
    const auto library = folder / (name + ".dylib");
    std::filesystem::copy_file(product::Adapter(), library);
    folder.Write(name + ".conf", "module = " + behind + "\n" + lines);
    return library;
  }

  // A card with an RSA key 01 and a P-256 key 02.
  MemoryCard& AddCard(const MemoryCardOptions& options = {}, const MemoryKeyOptions& keys = {}) {
    MemoryCard& card = module.AddCard(options);
    rsa = card.AddRsaKey({1}, keys);
    ec = card.AddEcKey({2}, keys);
    return card;
  }

  // A set-up and a login.
  static void SetUpAndLogIn(Extension& extension, const std::string& pin) {
    ASSERT_EQ(extension.SetUp(), CKR_OK);
    ASSERT_EQ(extension.LogIn(pin), CKR_OK);
  }

  TemporaryFolder folder;
  MemoryModule& module = LoadMemoryModule(MEMORY_MODULE_PATH);
  MemoryKey rsa, ec;  // of the card added last
};

}  // namespace kelvrin::adapter
