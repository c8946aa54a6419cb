// Compiled for macOS by a test that reads what our headers of Apple's frameworks declare: classes,
// methods and properties from the metadata in the object file.
#import <Cocoa/Cocoa.h>
#import <CryptoTokenKit/CryptoTokenKit.h>

// The C library's headers declare them.
static_assert(__is_same(NSInteger, long) && __is_same(NSUInteger, unsigned long));

// What the collections' parameters stand for when nothing is said about them.
typedef id ObjectType;
typedef id KeyType;

#include "declarations_of_headers.inc"  // made by the test
