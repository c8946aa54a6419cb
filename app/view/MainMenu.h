// The menu bar.
#pragma once

#import <Cocoa/Cocoa.h>

#include "app/text/texts.h"

// The application's menus. Their items go to whoever answers them first: what has the focus, its
// window, the window's delegate, the application. Autoreleased.
NSMenu* MakeMainMenu(const kelvrin::app::Texts& texts);
