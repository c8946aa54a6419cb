// The part of AppKit in use, for builds without Apple's SDK.
#pragma once

#import <AppKit/NSApplication.h>
#import <AppKit/NSColor.h>
#import <AppKit/NSControl.h>
#import <AppKit/NSMenu.h>
#import <AppKit/NSPanel.h>
#import <AppKit/NSResponder.h>
#import <AppKit/NSTableView.h>
#import <AppKit/NSText.h>
#import <AppKit/NSView.h>
#import <AppKit/NSWindow.h>
