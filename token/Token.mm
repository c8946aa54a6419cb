#import "token/Token.h"

#include <os/log.h>

#include "p11/bringup.h"
#include "p11/diagnostics.h"
#include "p11/loader.h"
#import "token/BundleResources.h"
#import "token/CardItems.h"
#import "token/TokenSession.h"

CK_BBOOL initialized = 0;

// Returns the card number as the token's instance ID; empty when it cannot be read or is not ASCII,
// since the platform takes no token without one.
static NSString *InstanceID(CK_FUNCTION_LIST *p11, CK_SLOT_ID slotID) {
  char cardNumber[kCardNumberSize] = {};
  const CK_RV rv = get_card_no(p11, slotID, cardNumber);
  if (rv != CKR_OK) p11_error("Kartennummer kann nicht ermittelt werden.", rv);
  NSString *instanceID = [NSString stringWithCString:cardNumber encoding:NSASCIIStringEncoding];
  if (instanceID == nil) instanceID = @"";
  os_log(OS_LOG_DEFAULT, "instanceID:  %{public}@", instanceID);
  return instanceID;
}

// Finalises what a failed set-up left behind; a token that took the module over keeps it.
static void CleanUp(Token *token, CK_FUNCTION_LIST *p11, void *module) {
  if ([token p11] == nullptr && p11 != nullptr) {
    p11->C_Finalize(nullptr);
    os_log(OS_LOG_DEFAULT, "(end) C_Finalize aufgerufen.");
  }
  if ([token module] == nullptr && module != nullptr) {
    // The token's handle, which is null, and not the one at hand, deliberately: the module stays
    // loaded after a failed set-up.
    C_UnloadModule([token module]);
    os_log(OS_LOG_DEFAULT, "(end) C_UnloadModule aufgerufen.");
  }
}

@implementation Token

- (instancetype)initWithSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                      tokenDriver:(TKSmartCardTokenDriver *)tokenDriver
                            error:(NSError **)error {
  (void)error;  // never written: the log alone tells what failed
  [smartCard retain];
  [AID retain];
  [tokenDriver retain];
  void *module = nullptr;
  CK_FUNCTION_LIST *p11 = nullptr;
  CK_SLOT_ID slotID = 0;
  CK_SESSION_HANDLE session = 0;
  [self setModule:nullptr];
  [self setP11:nullptr];
  [self setSlotID:0];
  [self setSession:0];
  __atomic_store_n(&initialized, CK_FALSE, __ATOMIC_RELAXED);

  NSString *path = [ModulePath(@"libpkcs11qarn_Lindel_PCSC") retain];
  NSDictionary *configuration = [Configuration() retain];
  const CK_RV rv =
      init([path UTF8String], &module, &p11, &slotID, &session, ReaderName(configuration));
  // init turns "already initialised" into success itself; the second test is a safeguard.
  if (rv == CKR_OK || rv == CKR_CRYPTOKI_ALREADY_INITIALIZED) {
    NSString *instanceID = [InstanceID(p11, slotID) retain];
    NSArray *items = CopyCardItems(p11, session);
    if (items != nil) {
      self = [super initWithSmartCard:smartCard
                                  AID:AID
                           instanceID:instanceID
                          tokenDriver:tokenDriver];
      if (self != nil) {
        [[self keychainContents] fillWithItems:items];
        [self setModule:module];
        [self setP11:p11];
        [self setSlotID:slotID];
        [self setSession:session];
        __atomic_store_n(&initialized, CK_TRUE, __ATOMIC_RELAXED);
      }
    }
    [items release];
    [instanceID release];
  } else {
    os_log_error(OS_LOG_DEFAULT, "Fehler beim Initialisieren.");
  }

  CleanUp(self, p11, module);
  [path release];
  [configuration release];
  [tokenDriver release];
  [AID release];
  [smartCard release];
  return self;
}

// Ends the module under every session of this process; nothing is logged out or closed before,
// since C_Finalize ends it all.
- (void)dealloc {
  if ([self p11] != nullptr) {  // null after a failed set-up
    [self p11]->C_Finalize(nullptr);
    os_log(OS_LOG_DEFAULT, "(dealloc) C_Finalize aufgerufen.");
  }
  // Null after a failed set-up, and then refused; the line is written all the same.
  C_UnloadModule([self module]);
  os_log(OS_LOG_DEFAULT, "(dealloc) C_UnloadModule aufgerufen.");
  [self setModule:nullptr];
  [self setP11:nullptr];
  [self setSlotID:0];
  [self setSession:0];
  __atomic_store_n(&initialized, CK_FALSE, __ATOMIC_RELAXED);
  [_driver release];
  [super dealloc];
}

- (TKTokenSession *)token:(TKToken *)token createSessionWithError:(NSError **)error {
  (void)token;
  (void)error;  // never written
  return [[[TokenSession alloc] initWithToken:self] autorelease];
}

@synthesize driver = _driver;
@synthesize module = _module;
@synthesize p11 = _p11;
@synthesize slotID = _slotID;
@synthesize session = _session;

@end
