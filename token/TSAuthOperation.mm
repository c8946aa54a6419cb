#import "token/TSAuthOperation.h"

#include <os/log.h>
#include <string.h>

#include "p11/diagnostics.h"
#import "token/Token.h"
#import "token/TokenSession.h"

@implementation TSAuthOperation

- (instancetype)initWithSession:(TokenSession *)session authID:(NSData *)authID {
  self = [super init];
  if (self != nil) {
    _session = [session retain];
    _authID = [authID retain];
  }
  return self;
}

- (BOOL)finishWithError:(NSError **)error {
  (void)error;  // on purpose: the platform's own handling of a NO takes over
  os_log(OS_LOG_DEFAULT, "PIN verifizieren...");
  NSString *pin = [self PIN];
  if (pin == nil) {
    os_log_error(OS_LOG_DEFAULT, "Fehler: PIN nicht gefunden.");
    return NO;
  }
  const char *bytes = [pin UTF8String];
  const size_t length = bytes == nullptr ? 0 : strlen(bytes);
  // Nobody logs out again: the login is the module's and ends with it.
  CK_FUNCTION_LIST *p11 = [[[self session] tsToken] p11];
  const CK_RV rv = p11->C_Login([[[self session] tsToken] session], CKU_USER,
                                reinterpret_cast<CK_UTF8CHAR *>(const_cast<char *>(bytes)), length);
  if (rv != CKR_OK) {  // CKR_USER_ALREADY_LOGGED_IN is a failure too
    p11_error("C_Login", rv);
    os_log_error(OS_LOG_DEFAULT, "PIN kann NICHT verifiziert werden.");
    return NO;
  }
  os_log(OS_LOG_DEFAULT, "PIN-Verifizierung war erfolgreich.");
  return YES;
}

@synthesize session = _session;
@synthesize authID = _authID;

// The accessors are written out to stand before dealloc: synthesized ones come last. Nobody sets
// the two after the initialiser, so that this is as good as an atomic getter.
- (TokenSession *)session {
  return [[_session retain] autorelease];
}

- (NSData *)authID {
  return [[_authID retain] autorelease];
}

- (void)dealloc {
  [_authID release];
  [_session release];
  [super dealloc];
}

@end
