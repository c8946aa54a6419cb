// What is in use of Security's certificates and of CoreFoundation, whose objects are Objective-C
// objects here. A certificate is the data of its encoding.
#import <Foundation/Foundation.h>
#import <Security/SecCertificate.h>

#include <optional>
#include <string>

#import "platform/linux/ctk/SecKeys.h"
#include "platform/linux/ctk/certificate_details.h"

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeRef CFRetain(CFTypeRef object) { return [(id)object retain]; }

void CFRelease(CFTypeRef object) { [(id)object release]; }

static const uint8_t *BytesOf(NSData *data) { return static_cast<const uint8_t *>([data bytes]); }

// UTF-8; the caller owns the result.
static NSString *NewString(const std::string &text) {
  return [[NSString alloc] initWithBytes:text.data()
                                  length:text.size()
                                encoding:NSUTF8StringEncoding];
}

SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef allocator, CFDataRef data) {
  (void)allocator;
  NSData *der = (NSData *)data;
  if (!certificate::IsCertificate(BytesOf(der), [der length])) return nullptr;
  return (SecCertificateRef)[[NSData alloc] initWithBytes:[der bytes] length:[der length]];
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate) {
  return (CFDataRef)[(NSData *)certificate retain];
}

CFStringRef SecCertificateCopySubjectSummary(SecCertificateRef certificate) {
  NSData *der = (NSData *)certificate;
  const std::optional<std::string> text = certificate::SubjectSummary(BytesOf(der), [der length]);
  return text ? (CFStringRef)NewString(*text) : nullptr;
}

CFDataRef SecCertificateCopySerialNumberData(SecCertificateRef certificate, CFErrorRef *error) {
  (void)error;  // a certificate has a serial number
  NSData *der = (NSData *)certificate;
  const certificate::Bytes number = certificate::SerialNumber(BytesOf(der), [der length]);
  return (CFDataRef)[[NSData alloc] initWithBytes:number.data() length:number.size()];
}

// A value as SecCertificateCopyValues describes it.
static NSDictionary *Described(NSString *type, NSString *label, id value) {
  return @{
    @"type" : type,
    (id)kSecPropertyKeyLabel : label,
    @"localized label" : label,
    (id)kSecPropertyKeyValue : value
  };
}

// A name's parts, as values.
static NSArray *PartsOf(const certificate::Values &values) {
  NSMutableArray *parts = [NSMutableArray array];
  for (const auto &[oid, text] : values.issuer) {
    [parts addObject:Described(@"string", [NewString(oid) autorelease],
                               [NewString(text) autorelease])];
  }
  return parts;
}

// All values, by name.
static NSDictionary *Describe(const certificate::Values &values) {
  const struct {
    NSString *name, *type;
    id value;
  } rows[] = {
      {(id)kSecOIDX509V1ValidityNotBefore, @"number",
       [NSNumber numberWithDouble:values.not_before]},
      {(id)kSecOIDX509V1ValidityNotAfter, @"number", [NSNumber numberWithDouble:values.not_after]},
      {(id)kSecOIDX509V1IssuerName, @"section", PartsOf(values)}};
  NSMutableDictionary *described = [NSMutableDictionary dictionary];
  for (const auto &row : rows) {
    [described setObject:Described(row.type, row.name, row.value) forKey:row.name];
  }
  return described;
}

CFDictionaryRef SecCertificateCopyValues(SecCertificateRef certificate, CFArrayRef oids,
                                         CFErrorRef *error) {
  @autoreleasepool {
    NSData *der = (NSData *)certificate;
    const auto values = certificate::ValuesOf(BytesOf(der), [der length]);
    if (!values) {
      NSError *reason = nil;
      TKSetStatus(&reason, kSecDecodeStatus, @"a date of the certificate cannot be read");
      if (error != nullptr) *error = (CFErrorRef)[reason retain];
      return nullptr;
    }
    NSDictionary *described = Describe(*values);
    if (oids == nullptr) return (CFDictionaryRef)[described retain];
    NSMutableDictionary *wanted = [NSMutableDictionary dictionary];
    for (NSString *oid in (NSArray *)oids)
      [wanted setValue:[described objectForKey:oid] forKey:oid];
    return (CFDictionaryRef)[wanted retain];
  }
}
