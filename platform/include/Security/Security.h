// The part of the Security framework in use, for machines without Apple's SDK.
#pragma once

#import <Security/SecCertificate.h>
#import <Security/SecItem.h>
#import <Security/SecKey.h>
#import <Security/SecKeyAlgorithm.h>
