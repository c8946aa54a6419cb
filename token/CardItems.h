// Makes the keychain items of a card: per certificate a certificate item and a key item.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>
#include <p11-kit/pkcs11.h>

// Reads the card's certificates, at most 20, and makes their items in the order of the card's
// handles.
//   p11      function list, borrowed.
//   session  open session. The searches on it are left open.
// Returns an array that the caller owns (release), or nil when reading the card failed; the log
// tells why. A certificate that cannot be made into an item is left out without a word.
NSArray *CopyCardItems(CK_FUNCTION_LIST *p11, CK_SESSION_HANDLE session)
    __attribute__((ns_returns_retained));
