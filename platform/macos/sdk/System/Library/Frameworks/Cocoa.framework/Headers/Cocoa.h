// Cocoa, for builds without Apple's SDK.
#pragma once

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
