// The names that queries and certificate values use, with the strings that Apple's framework gives
// them.
#import <Foundation/Foundation.h>

// Defined as the strings they are, without their headers, as in SecKeyAlgorithm.mm.
// NOLINTBEGIN(bugprone-macro-parentheses): a literal is no expression
#define CONSTANT(name, text) extern "C" constinit NSString *const kSec##name = @text;
// NOLINTEND(bugprone-macro-parentheses)

CONSTANT(Class, "class")
CONSTANT(ClassCertificate, "cert")
CONSTANT(ClassKey, "keys")

CONSTANT(AttrAccessGroup, "agrp")
CONSTANT(AttrAccessGroupToken, "com.apple.token")
CONSTANT(AttrTokenID, "tkid")
CONSTANT(AttrLabel, "labl")
CONSTANT(AttrApplicationLabel, "klbl")
CONSTANT(AttrPublicKeyHash, "pkhh")
CONSTANT(AttrKeyType, "type")
CONSTANT(AttrKeyTypeRSA, "42")
CONSTANT(AttrKeyTypeECSECPrimeRandom, "73")
CONSTANT(AttrKeySizeInBits, "bsiz")
CONSTANT(AttrCanSign, "sign")
CONSTANT(AttrCanDecrypt, "decr")
CONSTANT(AttrKeyClass, "kcls")
CONSTANT(AttrKeyClassPrivate, "1")

CONSTANT(MatchLimit, "m_Limit")
CONSTANT(MatchLimitAll, "m_LimitAll")
CONSTANT(ReturnRef, "r_Ref")
CONSTANT(ReturnAttributes, "r_Attributes")
CONSTANT(ValueRef, "v_Ref")

CONSTANT(OIDX509V1ValidityNotBefore, "2.16.840.1.113741.2.1.1.1.6")
CONSTANT(OIDX509V1ValidityNotAfter, "2.16.840.1.113741.2.1.1.1.7")
CONSTANT(OIDX509V1IssuerName, "2.16.840.1.113741.2.1.1.1.5")
CONSTANT(OIDCommonName, "2.5.4.3")
CONSTANT(OIDOrganizationName, "2.5.4.10")
CONSTANT(PropertyKeyLabel, "label")
CONSTANT(PropertyKeyValue, "value")
