// Menus.
#pragma once

#import <Foundation/Foundation.h>

@class NSMenuItem;

#pragma clang assume_nonnull begin

typedef NS_OPTIONS(NSUInteger, NSEventModifierFlags) {
  NSEventModifierFlagShift = 1 << 17,
  NSEventModifierFlagControl = 1 << 18,
  NSEventModifierFlagOption = 1 << 19,
  NSEventModifierFlagCommand = 1 << 20,
};

@interface NSMenu : NSObject <NSCopying>
- (instancetype)initWithTitle:(NSString *)title;
- (void)addItem:(NSMenuItem *)item;
@end

@interface NSMenuItem : NSObject <NSCopying>
+ (NSMenuItem *)separatorItem;
- (instancetype)initWithTitle:(NSString *)title
                       action:(nullable SEL)action
                keyEquivalent:(NSString *)key;
@property (nullable, strong) NSMenu *submenu;
@property NSEventModifierFlags keyEquivalentModifierMask;
@property (nullable) SEL action;
@end

#pragma clang assume_nonnull end
