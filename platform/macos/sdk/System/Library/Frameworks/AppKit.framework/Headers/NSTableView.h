// Tables.
#pragma once

#import <AppKit/NSControl.h>

@class NSNotification, NSTableView;

#pragma clang assume_nonnull begin

@interface NSTableHeaderCell : NSCell
@end

@interface NSTableColumn : NSObject
- (instancetype)initWithIdentifier:(NSString *)identifier;
@property (copy) NSString *identifier;
@property CGFloat width;
@property CGFloat minWidth;
@property (strong) __kindof NSTableHeaderCell *headerCell;
@property (getter=isEditable) BOOL editable;
@property (strong) id dataCell;
@end

@protocol NSTableViewDataSource <NSObject>
@optional
- (NSInteger)numberOfRowsInTableView:(NSTableView *)table;
- (nullable id)tableView:(NSTableView *)table
    objectValueForTableColumn:(nullable NSTableColumn *)column
                          row:(NSInteger)row;
@end

@protocol NSTableViewDelegate <NSObject>
@optional
- (void)tableViewSelectionDidChange:(NSNotification *)notification;
@end

typedef NS_ENUM(NSUInteger, NSTableViewColumnAutoresizingStyle) {
  NSTableViewNoColumnAutoresizing = 0,
  NSTableViewUniformColumnAutoresizingStyle = 1,
  NSTableViewSequentialColumnAutoresizingStyle = 2,
  NSTableViewReverseSequentialColumnAutoresizingStyle = 3,
  NSTableViewLastColumnOnlyAutoresizingStyle = 4,
  NSTableViewFirstColumnOnlyAutoresizingStyle = 5,
};

@interface NSTableView : NSControl
@property (nullable, weak) id<NSTableViewDataSource> dataSource;
@property (nullable, weak) id<NSTableViewDelegate> delegate;
@property BOOL allowsColumnReordering;
@property BOOL allowsEmptySelection;
@property NSTableViewColumnAutoresizingStyle columnAutoresizingStyle;
@property NSSize intercellSpacing;
@property BOOL usesAlternatingRowBackgroundColors;
@property CGFloat rowHeight;
@property (readonly, copy) NSArray<NSTableColumn *> *tableColumns;
@property (readonly) NSInteger selectedRow;
- (void)addTableColumn:(NSTableColumn *)column;
- (void)sizeLastColumnToFit;
- (void)reloadData;
- (void)selectRowIndexes:(NSIndexSet *)indexes byExtendingSelection:(BOOL)extend;
@end

#pragma clang assume_nonnull end
