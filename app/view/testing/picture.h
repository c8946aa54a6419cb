// Pictures of windows.
#pragma once

#import <Cocoa/Cocoa.h>

#include <filesystem>

// Draws a window's content into a PNG file, whose folder is made if it is missing.
inline void SavePicture(NSWindow *window, const std::filesystem::path &file) {
  std::filesystem::create_directories(file.parent_path());
  NSView *content = [window contentView];
  [content display];
  [content lockFocus];
  NSBitmapImageRep *bitmap =
      [[[NSBitmapImageRep alloc] initWithFocusedViewRect:[content bounds]] autorelease];
  [content unlockFocus];
  NSData *png = [bitmap representationUsingType:NSPNGFileType properties:nil];
  [png writeToFile:[NSString stringWithUTF8String:file.c_str()] atomically:YES];
}
