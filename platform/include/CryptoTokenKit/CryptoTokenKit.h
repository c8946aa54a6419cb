// The part of CryptoTokenKit in use, for machines without Apple's SDK.
#pragma once

#import <CryptoTokenKit/TKBase.h>
#import <CryptoTokenKit/TKSmartCardSlot.h>
#import <CryptoTokenKit/TKSmartCardToken.h>
#import <CryptoTokenKit/TKToken.h>
#import <CryptoTokenKit/TKTokenAuthOperation.h>
#import <CryptoTokenKit/TKTokenKeychain.h>
#import <CryptoTokenKit/TKTokenWatcher.h>
