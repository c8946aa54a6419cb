// The token of one inserted card: brings the PKCS#11 module up, publishes the card's certificates
// and keys as keychain items, and owns the module until it is released.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>
#include <p11-kit/pkcs11.h>

@class TokenDriver;

// 1 once a token's set-up or re-initialisation has succeeded, until any token's set-up starts or
// any token goes. One flag for the whole process.
extern CK_BBOOL initialized;

@interface Token : TKSmartCardToken <TKTokenDelegate> {
  TokenDriver *_driver;
  void *_module;
  CK_FUNCTION_LIST *_p11;
  CK_SLOT_ID _slotID;
  CK_SESSION_HANDLE _session;
}

@property (readonly, strong) TokenDriver *driver;         // never assigned: always nil
@property (nonatomic, assign) void *module;               // module handle, owned
@property (nonatomic, assign) CK_FUNCTION_LIST *p11;      // the module's function list
@property (nonatomic, assign) CK_SLOT_ID slotID;          // the card's slot
@property (nonatomic, assign) CK_SESSION_HANDLE session;  // the one session, shared by all

// Sets the token up.
//   smartCard    handed to the superclass.
//   AID          handed to the superclass; may be nil.
//   tokenDriver  handed to the superclass.
//   error        never written; may be null.
// After a failure the receiver comes back without its superclass initialised, or nil when that
// initialiser failed.
- (instancetype)initWithSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                      tokenDriver:(TKSmartCardTokenDriver *)tokenDriver
                            error:(NSError **)error;

@end
