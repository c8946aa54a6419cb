// What the application says when it is opened.
#pragma once

#import <Foundation/Foundation.h>

@interface InstallationMessage : NSObject {
  NSBundle *_bundle;
}

// Speaks the languages of the bundle, which is kept, and looks there for the extension and the
// guide.
- (instancetype)initWithBundle:(NSBundle *)bundle;

// One line: the extension is installed, or the application lies where it cannot stay, or the
// extension is missing from it.
- (NSString *)title;

// How to see whether the system uses the extension, and where the guide is; or where to move the
// application; or what to do about a missing extension.
- (NSString *)explanation;

// The words on the button that closes the message, and on the one that shows the guide.
- (NSString *)closeButton;
- (NSString *)guideButton;

// The guide's file, or nil when the application lacks it.
- (NSString *)guidePath;

@end
