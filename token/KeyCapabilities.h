// What a key can do, as its public half's usage attributes say.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>
#include <p11-kit/pkcs11.h>

// The usage attributes as last read.
struct KeyFlags {
  CK_BBOOL sign;
  CK_BBOOL encrypt;
  CK_BBOOL wrap;
  CK_BBOOL derive;
};

// Sets the key item's capabilities and puts the constraint "PIN" on each operation it can do.
//   key        the key item.
//   p11        function list, borrowed.
//   session    open session.
//   publicKey  the key's public half, whose attributes decide.
//   flags      in/out: one record for all keys of a card, all zero before a card's first key. A
//              failed read keeps the flag of the key before, deliberately.
void AddCapabilities(TKTokenKeychainKey* key, CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session,
                     CK_OBJECT_HANDLE publicKey, KeyFlags* flags);
