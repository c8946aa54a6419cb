// Tests of the built adapter in front of SoftHSM, with SoftHSM itself beside it.
#ifndef KELVRIN_ADAPTER_TESTING_CARD_TEST_H_
#define KELVRIN_ADAPTER_TESTING_CARD_TEST_H_

#include <gtest/gtest.h>
#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <string>
#include <vector>

#include "adapter/testing/loaded_library.h"
#include "softhsm_card.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {

using Bytes = std::vector<CK_BYTE>;

// A token reached through one function list, with a read-write session that is open for good.
class Card {
 public:
  explicit Card(CK_FUNCTION_LIST* functions) : p11(functions) {}

  // Initialises, and opens a session on the first slot.
  void Open() {
    ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
    OpenSession();
  }
  void OpenSession() {
    CK_ULONG count = 0;
    ASSERT_EQ(p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
    ASSERT_GE(count, 1u);
    std::vector<CK_SLOT_ID> slots(count);
    ASSERT_EQ(p11->C_GetSlotList(CK_FALSE, slots.data(), &count), CKR_OK);
    slot = slots[0];
    constexpr CK_FLAGS kFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;
    ASSERT_EQ(p11->C_OpenSession(slot, kFlags, nullptr, nullptr, &session), CKR_OK);
  }
  CK_RV Login(std::string pin) const {
    return p11->C_Login(session, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
  }
  // Begins a search for class and CKA_ID.
  CK_RV FindInit(CK_OBJECT_CLASS object_class, CK_BYTE id) const {
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)},
                             {CKA_ID, &id, sizeof(id)}};
    return p11->C_FindObjectsInit(session, wanted, 2);
  }
  // The first object of a class with a CKA_ID, found as the extension does: the search is never
  // finished. 0 when there is none.
  CK_OBJECT_HANDLE Find(CK_OBJECT_CLASS object_class, CK_BYTE id) const {
    CK_OBJECT_HANDLE found[10] = {};
    CK_ULONG count = 10;
    EXPECT_EQ(FindInit(object_class, id), CKR_OK);
    EXPECT_EQ(p11->C_FindObjects(session, found, 10, &count), CKR_OK);
    return found[0];
  }
  CK_RV SignInit(CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key) const {
    CK_MECHANISM mechanism = {type, nullptr, 0};
    return p11->C_SignInit(session, &mechanism, key);
  }
  CK_RV Sign(Bytes data, Bytes* signature, std::size_t room = 1024) const {
    signature->assign(room, 0);
    CK_ULONG size = room;
    const CK_RV result = p11->C_Sign(session, data.data(), data.size(), signature->data(), &size);
    if (result == CKR_OK) signature->resize(size);
    return result;
  }

  CK_FUNCTION_LIST* p11;
  CK_SLOT_ID slot = 0;
  CK_SESSION_HANDLE session = 0;
};

class CardTest : public testing::Test {
 protected:
  // A copy of the adapter under `name`, with a configuration of the module and these lines.
  std::filesystem::path Install(const std::string& name, const std::string& lines = "",
                                const std::filesystem::path& module = SoftHsmCard::Module()) const {
    const auto library = folder_.path() / (name + ".dylib");
    std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, library);
    folder_.Write(name + ".conf", "module = " + module.string() + "\n" + lines);
    return library;
  }

  TemporaryFolder folder_;
  SoftHsmCard soft_card_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_CARD_TEST_H_
