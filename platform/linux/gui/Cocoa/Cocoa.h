// Cocoa over GNUstep: AppKit, and the newer names of what has only older ones there.
#pragma once

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

inline constexpr NSBezelStyle NSBezelStyleRounded = NSRoundedBezelStyle;
inline constexpr NSButtonType NSButtonTypeMomentaryPushIn = NSMomentaryPushInButton;
inline constexpr NSProgressIndicatorStyle NSProgressIndicatorStyleBar = NSProgressIndicatorBarStyle;
inline constexpr NSProgressIndicatorStyle NSProgressIndicatorStyleSpinning =
    NSProgressIndicatorSpinningStyle;
inline constexpr NSUInteger NSEventModifierFlagOption = NSAlternateKeyMask;
inline constexpr NSUInteger NSEventModifierFlagCommand = NSCommandKeyMask;
inline constexpr NSAlertStyle NSAlertStyleWarning = NSWarningAlertStyle;
