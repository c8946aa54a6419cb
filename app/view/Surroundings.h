// What leaves the windows: for the pasteboard, files, and other programs.
#pragma once

#import <Cocoa/Cocoa.h>

@interface Surroundings : NSObject {
  NSString *_guide;
}

// `guide`: the guide's file.
- (instancetype)initWithGuide:(NSString *)guide;

- (void)copyText:(NSString *)text;

// Asks where to save, offering a name; nil when nowhere. Returns when the question is answered.
- (NSString *)pathToSave:(NSString *)name;

// Writes UTF-8; returns nil, or what went wrong, in a sentence, which may be empty.
- (NSString *)writeText:(NSString *)text toPath:(NSString *)path;

// Shows a file in the Finder.
- (void)showFile:(NSString *)path;

// Opens the guide.
- (void)openGuide;

// Says that something went wrong, and what; returns when that has been read.
- (void)showProblem:(NSString *)title explanation:(NSString *)explanation;

@end
