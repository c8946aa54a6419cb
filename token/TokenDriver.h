// The driver that the platform instantiates and asks for a token when a card is inserted.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

@interface TokenDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
@end
