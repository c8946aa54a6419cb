// Authentication operations: the system fills in what the user entered and sends finishWithError:.
#pragma once

#import <CryptoTokenKit/TKBase.h>

#pragma clang assume_nonnull begin

@interface TKTokenAuthOperation : NSObject <NSSecureCoding>
- (BOOL)finishWithError:(NSError **)error;
@end

// Without an APDU template the system sends nothing to the card itself and sets PIN.
@interface TKTokenSmartCardPINAuthOperation : TKTokenAuthOperation
TK_INSTANCE_VARIABLES(NSData *_APDUTemplate; NSString * _PIN;)
@property (copy, nullable) NSData *APDUTemplate;
@property (copy, nullable) NSString *PIN;
@end

#pragma clang assume_nonnull end
