#import "token/SessionErrors.h"

NSError *SessionError(TKErrorCode code, NSString *description) {
  return [NSError errorWithDomain:TKErrorDomain
                             code:code
                         userInfo:@{NSLocalizedDescriptionKey : description}];
}
