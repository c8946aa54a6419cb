#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/ctk_fixture.h"

namespace {

TKTokenSmartCardPINAuthOperation *PinOperation() {
  return [[[TKTokenSmartCardPINAuthOperation alloc] init] autorelease];
}

TEST(AuthOperation, ArchiveNeverHoldsThePin) {
  TKTokenSmartCardPINAuthOperation *operation = PinOperation();
  [operation setPIN:@"271828"];
  [operation setAPDUTemplate:[NSData dataWithBytes:"\x00\x20" length:2]];
  NSData *archive = [NSKeyedArchiver archivedDataWithRootObject:operation];
  NSData *pin = [@"271828" dataUsingEncoding:NSUTF8StringEncoding];
  EXPECT_EQ([archive rangeOfData:pin options:0 range:NSMakeRange(0, [archive length])].location,
            static_cast<NSUInteger>(NSNotFound));
  TKTokenSmartCardPINAuthOperation *read = [NSKeyedUnarchiver unarchiveObjectWithData:archive];
  EXPECT_EQ([read PIN], nil);
  EXPECT_TRUE([[read APDUTemplate] isEqual:[operation APDUTemplate]]);
}

TEST(AuthOperation, SupportsSecureCoding) {
  EXPECT_NE([TKTokenAuthOperation supportsSecureCoding], NO);
  EXPECT_NE([TKTokenSmartCardPINAuthOperation supportsSecureCoding], NO);
}

TEST(AuthOperation, HasNoPinAndNoTemplateAtTheStart) {
  EXPECT_EQ([PinOperation() PIN], nil);
  EXPECT_EQ([PinOperation() APDUTemplate], nil);
}

TEST(AuthOperation, PlainOneSucceedsWithoutAnError) {
  TKTokenAuthOperation *operation = [[[TKTokenAuthOperation alloc] init] autorelease];
  NSError *error = nil;
  EXPECT_NE([operation finishWithError:&error], NO);
  EXPECT_EQ(error, nil);
}

TEST(AuthOperation, CopiesThePin) {
  TKTokenSmartCardPINAuthOperation *operation = PinOperation();
  NSMutableString *pin = [NSMutableString stringWithString:@"1234"];
  [operation setPIN:pin];
  [pin setString:@"changed"];
  EXPECT_EQ(TextOf([operation PIN]), "1234");
  [operation setPIN:nil];
  EXPECT_EQ([operation PIN], nil);
}

}  // namespace
