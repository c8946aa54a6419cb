// Object IDs of keychain items: one byte for the kind, then the certificate's CKA_ID.
#pragma once

#import <Foundation/Foundation.h>
#include <p11-kit/pkcs11.h>

// The kind byte. A certificate and its key share the CKA_ID and differ in this byte alone.
enum { kObjectKindCertificate = 1, kObjectKindKey = 2 };

// A CKA_ID read back from an object ID.
struct ObjectIdBuffer {
  CK_BYTE bytes[512];
  CK_ULONG length;  // valid bytes
};

// Makes an object ID.
//   kind  kind byte; the low 8 bits count.
//   ckaID CKA_ID bytes, copied; null yields nil.
//   len   their number, may be 0.
// Returns the object ID of len + 1 bytes, autoreleased, or nil when there is no memory for as many.
NSData *idToData(int kind, const void *ckaID, size_t len);

// Reads the CKA_ID back; the kind is not looked at. An object ID of 513 to 520 bytes runs on into
// the length; a longer one ends the process.
//   objectID  an object ID, borrowed; empty yields length 0.
ObjectIdBuffer dataToId(NSData *objectID);
