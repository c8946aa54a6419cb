// The certificates of all cards, of which one is selected.
#pragma once

#import <Cocoa/Cocoa.h>

#include "app/text/texts.h"

@interface CertificateTable : NSObject <NSTableViewDataSource, NSTableViewDelegate> {
  kelvrin::app::WindowModel *_model;
  const kelvrin::app::Texts *_texts;
  NSTableView *_table;
  NSScrollView *_view;
  NSArray<NSArray<NSString *> *> *_rows;  // what each column shows
  CGFloat _width;                         // that the columns share
  BOOL _isRefreshing;
}

// Both outlive it.
- (instancetype)initWithModel:(kelvrin::app::WindowModel *)model
                        texts:(const kelvrin::app::Texts *)texts;

// Shows what the model has; does nothing to a table that shows it already.
- (void)refresh;

// Places the view; columns share a new width.
- (void)placeIn:(NSRect)frame;

// The selected certificate's row in one line; nil when there is none.
- (NSString *)selectedLine;

- (NSTableView *)table;
// The table with its scroller.
- (NSScrollView *)view;

@end
