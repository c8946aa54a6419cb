// The tokens and readers that the system has, and word of each change.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <functional>

#include "app/model/system.h"

// For the main thread, though changes come on others.
@interface PresenceObserver : NSObject {
  TKTokenWatcher *_watcher;
  TKSmartCardSlotManager *_manager;  // nil where the system does not let us see readers
  NSMutableDictionary *_slots;       // by reader name
  std::function<void()> _changed;
}

- (instancetype)init;

// Called after each change, on the main thread. Null ends that.
- (void)setChanged:(std::function<void()>)changed;

// Tells what is there now.
- (void)readPresence:(kelvrin::app::Presence *)presence;

// Ends the observation; nothing else may be asked afterwards.
- (void)stop;

@end
