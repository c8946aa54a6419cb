#import "app/view/CertificateTable.h"

#include <cmath>
#include <optional>

#import "app/view/Controls.h"

using kelvrin::app::Certificate;
using kelvrin::app::Texts;
using kelvrin::app::ToString;
using kelvrin::app::WindowModel;

namespace {

struct Column {
  const char *key;  // of its heading
  CGFloat share;    // of the table's width
};
constexpr Column kColumns[] = {
    {"NAME", 0.215}, {"ISSUER", 0.215}, {"VALID_UNTIL", 0.24}, {"KEY", 0.155}, {"CAN", 0.175}};

// Two lines of text in a row: names are long, and so is what a key can do.
constexpr CGFloat kRowHeight = 36;
constexpr CGFloat kLeastWidth = 40;  // to which the user can make a column narrower

}  // namespace

@implementation CertificateTable

- (instancetype)initWithModel:(WindowModel *)model texts:(const Texts *)texts {
  self = [super init];
  if (self != nil) {
    _model = model;
    _texts = texts;
    _rows = [[NSArray alloc] init];
    _table = [[NSTableView alloc] initWithFrame:NSMakeRect(0, 0, 0, 0)];
    for (NSUInteger i = 0; i < std::size(kColumns); ++i) [self addColumn:i];
    [_table setRowHeight:kRowHeight];
    [_table setAllowsEmptySelection:NO];
    [_table setAllowsColumnReordering:NO];
    [_table setUsesAlternatingRowBackgroundColors:YES];
    [_table setColumnAutoresizingStyle:NSTableViewLastColumnOnlyAutoresizingStyle];
    [_table setDataSource:self];
    [_table setDelegate:self];
    SetName(_table, texts->Get("CERTIFICATES"));
    _view = [Scrolled(_table) retain];
  }
  return self;
}

// Adds a column of text that wraps; its identifier is its number.
- (void)addColumn:(NSUInteger)number {
  NSString *identifier = [NSString stringWithFormat:@"%lu", (unsigned long)number];
  NSTableColumn *column = [[[NSTableColumn alloc] initWithIdentifier:identifier] autorelease];
  [[column headerCell] setStringValue:ToString(_texts->Get(kColumns[number].key))];
  [column setMinWidth:kLeastWidth];
  [column setEditable:NO];
  [[column dataCell] setWraps:YES];
  [_table addTableColumn:column];
}

- (void)placeIn:(NSRect)frame {
  [_view setFrame:frame];
  const CGFloat width = [_view contentSize].width;
  if (width == _width) return;  // else the widths that the user gave to columns would be lost
  _width = width;
  const CGFloat room = width - std::size(kColumns) * [_table intercellSpacing].width;
  NSArray<NSTableColumn *> *columns = [_table tableColumns];
  for (NSUInteger i = 0; i < std::size(kColumns); ++i) {
    [[columns objectAtIndex:i] setWidth:std::floor(room * kColumns[i].share)];
  }
  [_table sizeLastColumnToFit];
}

// Returns what a certificate's row shows, autoreleased.
- (NSArray<NSString *> *)rowOf:(const Certificate &)certificate {
  return @[
    ToString(certificate.name), ToString(certificate.issuer),
    ToString(_texts->ValidUntil(certificate, _model->system().Now())),
    ToString(_texts->Key(certificate)), ToString(_texts->Capabilities(certificate))
  ];
}

- (void)refresh {
  NSMutableArray<NSArray<NSString *> *> *rows = [NSMutableArray array];
  for (const Certificate &certificate : _model->certificates()) {
    [rows addObject:[self rowOf:certificate]];
  }
  // What the table itself selects meanwhile is no choice of the user's.
  _isRefreshing = YES;
  if (![_rows isEqual:rows]) {
    [_rows release];
    _rows = [rows retain];
    [_table reloadData];
  }
  const std::optional<size_t> selection = _model->selection();
  if (selection && [_table selectedRow] != static_cast<NSInteger>(*selection)) {
    [_table selectRowIndexes:[NSIndexSet indexSetWithIndex:*selection] byExtendingSelection:NO];
  }
  _isRefreshing = NO;
}

- (NSString *)selectedLine {
  const std::optional<size_t> selection = _model->selection();
  if (!selection) return nil;
  return [[self rowOf:_model->certificates()[*selection]] componentsJoinedByString:@"\t"];
}

- (NSInteger)numberOfRowsInTableView:(NSTableView *)table {
  return static_cast<NSInteger>([_rows count]);
}

- (id)tableView:(NSTableView *)table
    objectValueForTableColumn:(NSTableColumn *)column
                          row:(NSInteger)row {
  const NSInteger number = [[column identifier] integerValue];
  return [[_rows objectAtIndex:static_cast<NSUInteger>(row)]
      objectAtIndex:static_cast<NSUInteger>(number)];
}

- (void)tableViewSelectionDidChange:(NSNotification *)notification {
  if (_isRefreshing || [_table selectedRow] < 0) return;
  _model->Select(static_cast<size_t>([_table selectedRow]));
}

- (NSTableView *)table {
  return _table;
}

- (NSScrollView *)view {
  return _view;
}

- (void)dealloc {
  [_table setDataSource:nil];
  [_table setDelegate:nil];
  [_table release];
  [_view release];
  [_rows release];
  [super dealloc];
}

@end
