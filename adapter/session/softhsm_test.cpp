// The adapter in front of SoftHSM: the whole road, objects that another process changes, and
// pkcs11-tool.
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "adapter/testing/behaviour_fixture.h"
#include "softhsm_card.h"

namespace kelvrin::adapter {
namespace {

using testing::HasSubstr;

class SoftHsmTest : public BehaviourTest {
 protected:
  SoftHsmTest() { setenv("KELVRIN_TEST_PIN", card_.pin().c_str(), 1); }
  ~SoftHsmTest() override { unsetenv("KELVRIN_TEST_PIN"); }

  // Runs pkcs11-tool in a process of its own; what it says. The library may need the sanitizer's
  // runtime there.
  std::string Run(const std::filesystem::path& module_path, const std::string& arguments) const {
    const auto said = folder / "said";
    const std::string preload = KELVRIN_SANITIZER_RUNTIME;
    const std::string command = (preload.empty() ? "" : "LD_PRELOAD=" + preload) +
                                " ASAN_OPTIONS=detect_leaks=0 pkcs11-tool --module " +
                                module_path.string() + " --login --pin env:KELVRIN_TEST_PIN " +
                                arguments + " >" + said.string() + " 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << arguments;
    return Contents(said);
  }
  static std::string Contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Changes the card in another process.
  void Change(const std::string& arguments) const { Run(SoftHsmCard::Module(), arguments); }

  SoftHsmCard card_;
  const std::filesystem::path library_ = Adapter("", "libX", SoftHsmCard::Module());
  Extension extension_{library_};
};

TEST_F(SoftHsmTest, WholeRoadWorks) {
  // SoftHSM's order is its own.
  const auto has_no_failure = testing::Each("listed: 2 1");
  EXPECT_THAT(Walk(extension_, card_.pin()), has_no_failure);
  extension_.Remove();
  Extension again(library_);
  EXPECT_THAT(Walk(again, card_.pin()), has_no_failure);
}

TEST_F(SoftHsmTest, KeysThatAnotherProcessAddsExchangesAndDeletesAreSeen) {
  SetUpAndLogIn(extension_, card_.pin());
  EVP_PKEY* const first = extension_.public_keys[2].get();
  const std::string make_key = "--keypairgen --key-type EC:prime256v1 --usage-sign --id ";
  CK_OBJECT_HANDLE key = 0;
  EXPECT_EQ(extension_.FindKey(9, &key), Extension::kNoKey);
  Change(make_key + "09");
  EXPECT_EQ(extension_.FindKey(9, &key), CKR_OK);
  ASSERT_TRUE(extension_.SignsWith(first));
  Change("--set-id 07 --type privkey --id 02");
  Change(make_key + "02");
  Bytes signature;
  EXPECT_EQ(extension_.Sign(2, CKM_ECDSA, Bytes(32, 0x5c), &signature), CKR_OK);
  EXPECT_FALSE(VerifyEcdsa(first, Bytes(32, 0x5c), signature));
  Change("--delete-object --type privkey --id 02");
  EXPECT_EQ(extension_.FindKey(2, &key), Extension::kNoKey);
}

TEST_F(SoftHsmTest, Pkcs11ToolListsAndSigns) {
  const std::string listed = Run(library_, "--list-objects");
  EXPECT_THAT(listed, HasSubstr("Private Key Object; RSA"));
  EXPECT_THAT(listed, HasSubstr("Certificate Object"));
  const auto data = folder.Write("data", "text");
  const auto signature = folder / "signature";
  Run(library_, "--sign --mechanism RSA-PKCS --id 01 --input-file " + data.string() +
                    " --output-file " + signature.string());
  ASSERT_EQ(extension_.SetUp(), CKR_OK);
  const std::string made = Contents(signature);
  const Bytes block = RawRsaPublic(extension_.public_keys[1].get(), {made.begin(), made.end()});
  EXPECT_THAT(std::string(block.begin(), block.end()), testing::EndsWith(std::string("\0text", 5)));
}

}  // namespace
}  // namespace kelvrin::adapter
