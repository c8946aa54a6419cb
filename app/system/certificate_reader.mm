#include "app/system/certificate_reader.h"

#import <CommonCrypto/CommonDigest.h>

#import "app/strings.h"

namespace kelvrin::app {
namespace {

// Seconds between 1970, where ours begin, and 2001, where the system's do.
constexpr Time kReferenceDate = 978'307'200;

Bytes Sha256(const Bytes &bytes) {
  Bytes digest(CC_SHA256_DIGEST_LENGTH);
  CC_SHA256(bytes.data(), static_cast<CC_LONG>(bytes.size()), digest.data());
  return digest;
}

// A value that SecCertificateCopyValues gave, which may be any property-list value; nil for none.
id ValueOf(NSDictionary *values, CFStringRef oid) {
  id property = [values objectForKey:(NSString *)oid];
  if (![property isKindOfClass:[NSDictionary class]]) return nil;
  return [property objectForKey:(NSString *)kSecPropertyKeyValue];
}

// A point in time, given as seconds or as a date; 0 for neither.
Time TimeOf(id value) {
  if ([value isKindOfClass:[NSDate class]]) value = @([value timeIntervalSinceReferenceDate]);
  if (![value isKindOfClass:[NSNumber class]]) return 0;
  return static_cast<Time>([value doubleValue]) + kReferenceDate;
}

// The text of one attribute of a name; nil when it has none.
NSString *AttributeOf(id name, CFStringRef oid) {
  if (![name isKindOfClass:[NSArray class]]) return nil;
  for (NSUInteger i = 0; i < [name count]; ++i) {
    id attribute = [name objectAtIndex:i];
    if (![attribute isKindOfClass:[NSDictionary class]]) continue;
    if (![[attribute objectForKey:(NSString *)kSecPropertyKeyLabel] isEqual:(NSString *)oid]) {
      continue;
    }
    id value = [attribute objectForKey:(NSString *)kSecPropertyKeyValue];
    if ([value isKindOfClass:[NSString class]]) return value;
  }
  return nil;
}

void ReadValues(SecCertificateRef ref, Certificate *certificate) {
  NSArray *oids = [NSArray arrayWithObjects:(NSString *)kSecOIDX509V1ValidityNotBefore,
                                            (NSString *)kSecOIDX509V1ValidityNotAfter,
                                            (NSString *)kSecOIDX509V1IssuerName, nil];
  NSDictionary *values =
      [(NSDictionary *)SecCertificateCopyValues(ref, (CFArrayRef)oids, nullptr) autorelease];
  certificate->not_before = TimeOf(ValueOf(values, kSecOIDX509V1ValidityNotBefore));
  certificate->not_after = TimeOf(ValueOf(values, kSecOIDX509V1ValidityNotAfter));
  id issuer = ValueOf(values, kSecOIDX509V1IssuerName);
  NSString *name = AttributeOf(issuer, kSecOIDCommonName);
  if (name == nil) name = AttributeOf(issuer, kSecOIDOrganizationName);
  certificate->issuer = ToText(name);
}

// Of a kind of key that the system does not know, nothing is read.
void ReadKey(SecCertificateRef ref, Certificate *certificate) {
  SecKeyRef key = SecCertificateCopyKey(ref);
  if (key == nullptr) return;
  NSDictionary *attributes = [(NSDictionary *)SecKeyCopyAttributes(key) autorelease];
  id type = [[attributes objectForKey:(NSString *)kSecAttrKeyType] description];
  if ([type isEqual:(NSString *)kSecAttrKeyTypeRSA]) {
    certificate->key_type = KeyType::kRsa;
  } else if ([type isEqual:(NSString *)kSecAttrKeyTypeECSECPrimeRandom]) {
    certificate->key_type = KeyType::kEllipticCurve;
  }
  id bits = [attributes objectForKey:(NSString *)kSecAttrKeySizeInBits];
  certificate->key_bits = static_cast<size_t>([bits integerValue]);
  certificate->public_key =
      ToBytes([(NSData *)SecKeyCopyExternalRepresentation(key, nullptr) autorelease]);
  CFRelease(key);
}

}  // namespace

Certificate ReadCertificate(SecCertificateRef ref) {
  Certificate certificate;
  certificate.der = ToBytes([(NSData *)SecCertificateCopyData(ref) autorelease]);
  certificate.fingerprint = Sha256(certificate.der);
  certificate.name = ToText([(NSString *)SecCertificateCopySubjectSummary(ref) autorelease]);
  certificate.serial_number =
      ToBytes([(NSData *)SecCertificateCopySerialNumberData(ref, nullptr) autorelease]);
  ReadValues(ref, &certificate);
  ReadKey(ref, &certificate);
  return certificate;
}

}  // namespace kelvrin::app
