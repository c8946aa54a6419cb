// Cards with certificates, and what their keychain items say.
#pragma once

#include <string>
#include <vector>

#import "token/CardItems.h"
#include "token/testing/card_fixture.h"
#include "token/testing/test_certificates.h"

namespace token_testing {

class CardItemsFixture : public CardFixture {
 public:
  // The certificate that AddCertificateAndKey puts on the card: an EC key's, for "Subject".
  static const scripted::Bytes &Der() { return CertificateDer(KeyKind::kEllipticCurve, "Subject"); }

  // Adds a certificate and the public key under its ID, which verifies only. Returns the key.
  scripted::Object &AddCertificateAndKey(const scripted::Bytes &id,
                                         const std::string &label = "Certificate") {
    card_.AddCertificate(id, label, Der());
    return card_.AddPublicKey(id)
        .SetText(CKA_LABEL, "Key")
        .SetFlag(CKA_VERIFY, true)
        .SetFlag(CKA_ENCRYPT, false)
        .SetFlag(CKA_WRAP, false)
        .SetFlag(CKA_DERIVE, false);
  }

  // Adds certificates with keys under the IDs 1 to `count`.
  void AddCertificates(int count) {
    for (int id = 1; id <= count; ++id) AddCertificateAndKey({static_cast<CK_BYTE>(id)});
  }

  // The unit under test, without its lines on standard output. Copy's result is the caller's.
  NSArray *Copy() {
    NSArray *items = nil;
    StandardOutputOf([&] { items = CopyCardItems(p11_, kSession); });
    return items;
  }
  NSArray *MakeItems() { return [Copy() autorelease]; }

  static std::vector<std::string> Labels(NSArray *items) {
    std::vector<std::string> labels;
    for (TKTokenKeychainItem *item in items) labels.push_back(Text([item label]));
    return labels;
  }

  static std::vector<scripted::Bytes> ObjectIds(NSArray *items) {
    std::vector<scripted::Bytes> ids;
    for (TKTokenKeychainItem *item in items) ids.push_back(BytesOf([item objectID]));
    return ids;
  }
};

}  // namespace token_testing
