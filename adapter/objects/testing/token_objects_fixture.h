// The objects of a token as the adapter shows them.
#pragma once

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
  void SwitchOffAll() {
    for (const RuleName& rule : kRuleNames) rules_.SwitchOff(rule.rule);
  }
};

}  // namespace kelvrin::adapter
