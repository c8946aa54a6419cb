// The objects of a token as the adapter shows them, searched for as the extension does.
#pragma once

#include <array>

#include "adapter/objects/token_objects.h"
#include "adapter/testing/card_fixture.h"
#include "encoding/testing/certificates.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {

class TokenObjectsTest : public CardTest {
 protected:
  CK_OBJECT_HANDLE AddObject(CK_OBJECT_CLASS object_class, const Bytes& id) {
    return Add(object_class, id, {{CKA_LABEL, {'x'}}});
  }
  CK_OBJECT_HANDLE AddCertificate(const Bytes& id, const Bytes& der) {
    return card_.AddCertificate(id, "x", der);
  }
  CK_OBJECT_HANDLE AddCertificate(const Bytes& id) {
    return AddCertificate(id, encoding::MakeCertificateOf(TestEcKey().get(), {}));
  }
  Handles Find(CK_OBJECT_CLASS object_class, Bytes id) {
    std::array<CK_ATTRIBUTE, 2> wanted = {
        {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, id.data(), id.size()}}};
    Handles found = {99};
    EXPECT_EQ(objects_.Find(session_, wanted, &found), CKR_OK);
    return found;
  }
  Handles FindAllOf(CK_OBJECT_CLASS object_class) {
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    Handles found;
    EXPECT_EQ(objects_.Find(session_, {&wanted, 1}, &found), CKR_OK);
    return found;
  }
  std::size_t Searches() const { return module.Count("C_FindObjectsInit"); }
  void SwitchOffAll() {
    for (const RuleName& rule : kRuleNames) rules_.SwitchOff(rule.rule);
  }

  TokenObjects objects_{inner_, rules_, slot_};
};

}  // namespace kelvrin::adapter
