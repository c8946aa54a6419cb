// The built library as an application meets it: its name, its configuration, its life.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "adapter/function_names.h"
#include "adapter/testing/card_test.h"
#include "adapter/testing/entries.h"
#include "adapter/testing/loaded_library.h"

namespace kelvrin::adapter {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class LibraryTest : public CardTest {
 protected:
  // What C_Initialize prints and answers with this configuration of libX.dylib.
  std::string InitialiseWith(const std::string& configuration, CK_RV expected) const {
    const auto library = folder_.path() / "libX.dylib";
    std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, library);
    if (!configuration.empty()) folder_.Write("libX.conf", configuration);
    CK_FUNCTION_LIST* p11 = LoadLibrary(library);
    testing::internal::CaptureStderr();
    EXPECT_EQ(p11->C_Initialize(nullptr), expected);
    return testing::internal::GetCapturedStderr();
  }
  std::string Conf() const { return "Kelvrin adapter: " + (folder_.path() / "libX.conf").string(); }
  static std::string Label(CK_FUNCTION_LIST* p11) {
    Card card(p11);
    card.OpenSession();
    CK_TOKEN_INFO info = {};
    EXPECT_EQ(p11->C_GetTokenInfo(card.slot, &info), CKR_OK);
    const std::string label(std::begin(info.label), std::end(info.label));
    return label.substr(0, label.find_last_not_of(' ') + 1);
  }
};

TEST_F(LibraryTest, WithoutConfigurationInitialiseFailsAndNamesTheFile) {
  const std::string line = InitialiseWith("", CKR_GENERAL_ERROR);
  EXPECT_THAT(line, StartsWith(Conf() + ": cannot be read"));
  EXPECT_THAT(line, EndsWith("\n"));
}

TEST_F(LibraryTest, BadConfigurationFailsWithFileLineAndCure) {
  EXPECT_THAT(InitialiseWith("module = m\nreader = x\n", CKR_GENERAL_ERROR),
              StartsWith(Conf() + ":2: unknown key 'reader'; known keys are"));
}

TEST_F(LibraryTest, MissingModuleFailsWithFileLineAndCure) {
  EXPECT_THAT(InitialiseWith("# here\nmodule = none.so\n", CKR_FUNCTION_FAILED),
              StartsWith(Conf() + ":2: module '" + (folder_.path() / "none.so").string() +
                         "' cannot be loaded"));
}

TEST_F(LibraryTest, AdapterBehindItselfIsRefused) {
  EXPECT_THAT(InitialiseWith("module = libX.dylib\n", CKR_FUNCTION_FAILED),
              StartsWith(Conf() + ":1: the module is the adapter itself"));
}

TEST_F(LibraryTest, AdapterBehindAnAdapterBehindItIsRefusedInsteadOfWaitingForEver) {
  const auto other = folder_.path() / "libY.dylib";
  std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, other);
  folder_.Write("libY.conf", "module = libX.dylib\n");
  InitialiseWith("module = libY.dylib\n", CKR_FUNCTION_FAILED);
}

TEST_F(LibraryTest, CorrectedConfigurationIsReadByTheNextInitialise) {
  InitialiseWith("modul = m\n", CKR_GENERAL_ERROR);
  folder_.Write("libX.conf", "module = " + SoftHsmCard::Module().string());
  CK_FUNCTION_LIST* p11 = LoadLibrary(folder_.path() / "libX.dylib");
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
}

void ExpectNothingIsInitialised(CK_FUNCTION_LIST* p11) {
  EXPECT_THAT(EntriesThatDoNotSayNotInitialised(p11), testing::IsEmpty());
}

TEST_F(LibraryTest, BeforeInitialiseAndAfterFinaliseEveryEntrySaysSo) {
  CK_FUNCTION_LIST* p11 = LoadLibrary(Install("libX"));
  ExpectNothingIsInitialised(p11);
  ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  ASSERT_EQ(p11->C_Finalize(nullptr), CKR_OK);
  ExpectNothingIsInitialised(p11);
  EXPECT_EQ(p11->C_GetFunctionList(nullptr), CKR_ARGUMENTS_BAD);
}

TEST_F(LibraryTest, EveryEntryOfTheListIsPresentInVersion240) {
  const CK_FUNCTION_LIST* p11 = LoadLibrary(Install("libX"));
  EXPECT_EQ(p11->version.major, 2);
  EXPECT_EQ(p11->version.minor, 40);
#define KELVRIN_EXPECT_PRESENT(name) EXPECT_NE(p11->name, nullptr) << #name;
  KELVRIN_FOR_EACH_FUNCTION(KELVRIN_EXPECT_PRESENT, KELVRIN_EXPECT_PRESENT)
#undef KELVRIN_EXPECT_PRESENT
}

TEST_F(LibraryTest, ExportsTheFunctionListAndWhatCopiesShareOnly) {
  const auto library = Install("libX");
  void* handle = dlopen(library.c_str(), RTLD_NOW);
  ASSERT_NE(handle, nullptr);
  EXPECT_NE(dlsym(handle, "C_GetFunctionList"), nullptr);
  EXPECT_NE(dlsym(handle, "kelvrin_adapter_shared_3"), nullptr);
  // dlsym would also find a symbol of a library that this one needs; none of these is.
  EXPECT_EQ(dlsym(handle, "C_Initialize"), nullptr);
  EXPECT_EQ(dlsym(handle, "_ZN7kelvrin7adapter12OwnLibraryEv"), nullptr);
  EXPECT_EQ(
      dlsym(
          handle,
          "_ZN7kelvrin7adapter10ReadConfigERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"),
      nullptr);
}

void ExpectToStayMapped(const std::filesystem::path& library) {
  void* handle = dlopen(library.c_str(), RTLD_NOW);
  ASSERT_NE(handle, nullptr);
  CK_FUNCTION_LIST* p11 = LoadLibrary(library);
  EXPECT_EQ(dlclose(handle), 0);
  EXPECT_EQ(dlclose(handle), 0);
  EXPECT_NE(dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(LibraryTest, StaysMappedWhenItIsClosed) { ExpectToStayMapped(Install("libX")); }

TEST_F(LibraryTest, StaysMappedWhereTheLinkerHasNoFlagForThat) {
  ExpectToStayMapped(KELVRIN_ADAPTER_WITHOUT_NODELETE);
}

TEST_F(LibraryTest, TwoCopiesReadTwoConfigurations) {
  soft_card_.Add({.name = "second", .label = "0815 4711", .empty = true});
  CK_FUNCTION_LIST* first = LoadLibrary(Install("libFirst", "token-label = 4711 0815\n"));
  CK_FUNCTION_LIST* second = LoadLibrary(Install("libSecond", "token-label = 0815 4711\n"));
  ASSERT_NE(first, second);
  ASSERT_EQ(first->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(Label(first), "4711 0815");
  ASSERT_EQ(second->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(Label(second), "0815 4711");
  EXPECT_EQ(Label(first), "4711 0815");
  EXPECT_EQ(second->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(Label(first), "4711 0815");
  EXPECT_EQ(first->C_Finalize(nullptr), CKR_OK);
}

TEST_F(LibraryTest, EverythingWorksAgainAfterFinaliseAndInitialise) {
  Card card(LoadLibrary(Install("libX")));
  for (int round = 0; round < 3; ++round) {
    card.Open();
    ASSERT_EQ(card.Login(soft_card_.pin()), CKR_OK);
    EXPECT_EQ(card.p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    ASSERT_EQ(card.SignInit(CKM_RSA_PKCS, card.Find(CKO_PRIVATE_KEY, 1)), CKR_OK);
    Bytes signature;
    EXPECT_EQ(card.Sign(Bytes(20, 1), &signature), CKR_OK);
    EXPECT_EQ(signature.size(), 256u);
    ASSERT_EQ(card.p11->C_Finalize(nullptr), CKR_OK);
  }
}

TEST_F(LibraryTest, OnlyTheChosenSlotIsShownUnderItsReaderName) {
  Card card(LoadLibrary(Install("libX", "reader-name = Reader B 00 00\n")));
  ASSERT_EQ(card.p11->C_Initialize(nullptr), CKR_OK);
  CK_ULONG count = 0;
  ASSERT_EQ(card.p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  EXPECT_EQ(count, 1u);
  card.OpenSession();
  CK_SLOT_INFO info = {};
  ASSERT_EQ(card.p11->C_GetSlotInfo(card.slot, &info), CKR_OK);
  EXPECT_EQ(std::string(std::begin(info.slotDescription), std::end(info.slotDescription)),
            "Reader B 00 00" + std::string(50, ' '));
  EXPECT_EQ(card.p11->C_GetSlotInfo(card.slot + 1, &info), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(card.p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &card.slot, &info), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(card.p11->C_Finalize(nullptr), CKR_OK);
}

TEST_F(LibraryTest, WaitingForASlotEventEndsWithFinalise) {
  CK_FUNCTION_LIST* p11 = LoadLibrary(Install("libX"));
  ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  CK_SLOT_ID slot = 0;
  ASSERT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
  std::thread waiter([&] {
    CK_SLOT_ID changed = 0;
    EXPECT_EQ(p11->C_WaitForSlotEvent(0, &changed, nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  });
  CK_ULONG count = 0;
  EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);  // nobody is kept out
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
  waiter.join();
}

}  // namespace
}  // namespace kelvrin::adapter
