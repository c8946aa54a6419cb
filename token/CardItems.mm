#import "token/CardItems.h"

#include <os/log.h>

#include "p11/bringup.h"
#include "p11/diagnostics.h"
#include "p11/lookup.h"
#import "token/KeyCapabilities.h"
#import "token/KeychainItemName.h"
#import "token/ObjectId.h"

// Certificates that are read at most.
static const CK_ULONG kMaxCertificates = 20;

// What the making of one card's items shares.
struct Card {
  CK_FUNCTION_LIST *p11;
  CK_SESSION_HANDLE session;
  KeyFlags flags;        // outlive a key: see AddCapabilities
  CertInfo certificate;  // the one at hand
  NSMutableArray *items;
};

// Finds the certificates' handles. The search is never finished, as everywhere.
static CK_RV FindCertificates(const Card &card, CK_OBJECT_HANDLE *handles, CK_ULONG *count) {
  CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
  CK_ATTRIBUTE attribute = {CKA_CLASS, &objectClass, sizeof(objectClass)};
  CK_RV rv = card.p11->C_FindObjectsInit(card.session, &attribute, 1);
  if (rv != CKR_OK) {
    p11_error("C_FindObjectsInit: CKO_CERTIFICATE", rv);
    return rv;
  }
  *count = kMaxCertificates;
  rv = card.p11->C_FindObjects(card.session, handles, kMaxCertificates, count);
  if (rv != CKR_OK) p11_error("C_FindObjects: CKO_CERTIFICATE", rv);
  return rv;
}

// Makes a string of NUL-terminated ASCII; nil when a byte is not ASCII.
static NSString *AsciiString(const void *text) {
  return [NSString stringWithCString:static_cast<const char *>(text)
                            encoding:NSASCIIStringEncoding];
}

// Adds the key item of the certificate at hand; what is missing skips it silently.
static void AddKeyItem(Card *card, SecCertificateRef certificate, CK_OBJECT_HANDLE publicKey) {
  char label[kLabelSize] = {};
  const CK_RV rv = get_label(card->p11, card->session, publicKey, label);
  if (rv != CKR_OK) p11_error("get_label für pubKey", rv);

  NSData *objectID = idToData(kObjectKindKey, card->certificate.id, card->certificate.id_len);
  NSString *name = AsciiString(label);
  TKTokenKeychainKey *key = nil;
  if (objectID != nil) {
    key = [[TKTokenKeychainKey alloc] initWithCertificate:certificate objectID:objectID];
  }
  if (objectID == nil || name == nil || key == nil) {
    [key release];
    return;
  }
  [key setName:name];
  AddCapabilities(key, card->p11, card->session, publicKey, &card->flags);
  [card->items addObject:key];
  [key release];
}

// Adds the items of the certificate at hand. Returns whether the set-up can go on.
static BOOL AddItems(Card *card, SecCertificateRef certificate, NSData *objectID, NSString *name) {
  TKTokenKeychainCertificate *item =
      [[TKTokenKeychainCertificate alloc] initWithCertificate:certificate objectID:objectID];
  if (item == nil) return YES;
  [item setName:name];
  [card->items addObject:item];
  [item release];

  // A key that is not there is a success of the search: its item is made all the same, and its
  // label and flags are asked of handle 0.
  CK_OBJECT_HANDLE publicKey = CK_INVALID_HANDLE;
  const CK_RV rv = get_pub_key(card->p11, card->session, card->certificate.id,
                               card->certificate.id_len, &publicKey);
  if (rv != CKR_OK) {
    p11_error("get_pub_key", rv);
    return NO;
  }
  AddKeyItem(card, certificate, publicKey);
  return YES;
}

// Reads one certificate and adds its items. Returns whether the set-up can go on.
static BOOL AddCertificate(Card *card, CK_OBJECT_HANDLE handle) {
  os_log(OS_LOG_DEFAULT, "CertID: 0x%02X, ", static_cast<unsigned int>(handle));
  const CertInfo &info = card->certificate;
  const CK_RV rv = get_cert_info(card->p11, card->session, handle, &card->certificate);
  if (rv != CKR_OK) {
    p11_error("get_cert_info", rv);
    return NO;
  }

  NSData *data = [NSData dataWithBytes:info.value length:info.value_len];
  NSData *objectID = idToData(kObjectKindCertificate, info.id, info.id_len);
  NSString *name = AsciiString(info.label);
  SecCertificateRef certificate = nullptr;
  if (data != nil) certificate = SecCertificateCreateWithData(kCFAllocatorDefault, (CFDataRef)data);
  BOOL goOn = YES;
  if (data != nil && objectID != nil && name != nil && certificate != nullptr) {
    goOn = AddItems(card, certificate, objectID, name);
  }
  if (certificate != nullptr) CFRelease(certificate);
  return goOn;
}

NSArray *CopyCardItems(CK_FUNCTION_LIST *p11, CK_SESSION_HANDLE session) {
  Card card = {};
  card.p11 = p11;
  card.session = session;
  CK_OBJECT_HANDLE handles[kMaxCertificates] = {};
  CK_ULONG count = 0;
  if (FindCertificates(card, handles, &count) != CKR_OK) return nil;
  os_log(OS_LOG_DEFAULT, "Zertifikate gefunden: Anzahl %d", static_cast<int>(count));
  if (count > kMaxCertificates) count = kMaxCertificates;  // a module that claims more lies
  card.items = [[NSMutableArray alloc] initWithCapacity:count];
  os_log(OS_LOG_DEFAULT, "\nZertifikate:\n");
  for (CK_ULONG i = 0; i < count; ++i) {
    if (AddCertificate(&card, handles[i])) continue;
    [card.items release];
    return nil;
  }
  return card.items;
}
