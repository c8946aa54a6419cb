// As declarations.mm, for what the windows ask of AppKit.
#import <Cocoa/Cocoa.h>

#import "tests/macos/declarations.h"

// What asks and tells the person, and other programs.
HAS_TYPE(NSModalResponse, [(NSAlert *)nil runModal]);
HAS_TYPE(NSString *, ((NSAlert *)nil).messageText);
HAS_TYPE(NSString *, ((NSAlert *)nil).informativeText);
HAS_TYPE(NSAlertStyle, ((NSAlert *)nil).alertStyle);
HAS_TYPE(NSSavePanel *, [NSSavePanel savePanel]);
HAS_TYPE(NSModalResponse, [(NSSavePanel *)nil runModal]);
HAS_TYPE(NSString *, ((NSSavePanel *)nil).nameFieldStringValue);
HAS_TYPE(NSURL *, ((NSSavePanel *)nil).URL);
HAS_TYPE(NSPasteboard *, NSPasteboard.generalPasteboard);
HAS_TYPE(NSInteger, [(NSPasteboard *)nil declareTypes:(NSArray *)nil owner:nil]);
HAS_TYPE(BOOL, [(NSPasteboard *)nil setString:@"" forType:@""]);
HAS_TYPE(BOOL, [NSWorkspace.sharedWorkspace selectFile:nil inFileViewerRootedAtPath:@""]);
HAS_TYPE(BOOL, [NSWorkspace.sharedWorkspace openFile:@"" withApplication:nil]);
HAS_TYPE(void, [NSApplication.sharedApplication activateIgnoringOtherApps:YES]);
HAS_TYPE(void, [NSApplication.sharedApplication run]);
HAS_TYPE(NSMenu *, NSApplication.sharedApplication.mainMenu);
HAS_TYPE(id<NSApplicationDelegate>, NSApplication.sharedApplication.delegate);

// Menus.
HAS_TYPE(NSMenu *, [(NSMenu *)nil initWithTitle:@""]);
HAS_TYPE(void, [(NSMenu *)nil addItem:(NSMenuItem *)nil]);
HAS_TYPE(NSMenuItem *, [NSMenuItem separatorItem]);
HAS_TYPE(NSMenuItem *, [(NSMenuItem *)nil initWithTitle:@"" action:nullptr keyEquivalent:@""]);
HAS_TYPE(NSMenu *, ((NSMenuItem *)nil).submenu);
HAS_TYPE(NSEventModifierFlags, ((NSMenuItem *)nil).keyEquivalentModifierMask);
HAS_TYPE(SEL, ((NSMenuItem *)nil).action);

// Windows and views.
HAS_TYPE(NSWindow *, [(NSWindow *)nil initWithContentRect:NSRect {}
                                                styleMask:NSWindowStyleMaskTitled
                                                  backing:NSBackingStoreBuffered
                                                    defer:NO]);
HAS_TYPE(NSString *, ((NSWindow *)nil).title);
HAS_TYPE(BOOL, ((NSWindow *)nil).isReleasedWhenClosed);
HAS_TYPE(id<NSWindowDelegate>, ((NSWindow *)nil).delegate);
HAS_TYPE(NSSize, ((NSWindow *)nil).contentMinSize);
HAS_TYPE(NSView *, ((NSWindow *)nil).initialFirstResponder);
HAS_TYPE(NSResponder *, ((NSWindow *)nil).firstResponder);
HAS_TYPE(BOOL, [(NSWindow *)nil makeFirstResponder:nil]);
HAS_TYPE(BOOL, [(NSWindow *)nil setFrameAutosaveName:@""]);
HAS_TYPE(void, [(NSWindow *)nil makeKeyAndOrderFront:nil]);
HAS_TYPE(void, [(NSWindow *)nil performClose:nil]);
HAS_TYPE(void, [(NSWindow *)nil close]);
HAS_TYPE(void, [(NSWindow *)nil center]);
HAS_TYPE(NSView *, [(NSView *)nil initWithFrame:NSRect{}]);
HAS_TYPE(void, [(NSView *)nil addSubview:(NSView *)nil]);
HAS_TYPE(BOOL, ((NSView *)nil).isHidden);
HAS_TYPE(BOOL, ((NSView *)nil).isHiddenOrHasHiddenAncestor);
HAS_TYPE(NSRect, ((NSView *)nil).frame);
HAS_TYPE(void, [(NSView *)nil setFrameSize:NSSize{}]);
HAS_TYPE(BOOL, ((NSView *)nil).isFlipped);
HAS_TYPE(BOOL, ((NSView *)nil).needsDisplay);
HAS_TYPE(NSString *, ((NSView *)nil).toolTip);
HAS_TYPE(NSView *, ((NSView *)nil).nextKeyView);
HAS_TYPE(NSSize, ((NSScrollView *)nil).contentSize);
HAS_TYPE(NSBorderType, ((NSScrollView *)nil).borderType);
HAS_TYPE(BOOL, ((NSScrollView *)nil).hasVerticalScroller);
HAS_TYPE(NSProgressIndicatorStyle, ((NSProgressIndicator *)nil).style);
HAS_TYPE(BOOL, ((NSProgressIndicator *)nil).isIndeterminate);
HAS_TYPE(BOOL, ((NSProgressIndicator *)nil).isDisplayedWhenStopped);
HAS_TYPE(double, ((NSProgressIndicator *)nil).doubleValue);
HAS_TYPE(double, ((NSProgressIndicator *)nil).maxValue);
HAS_TYPE(void, [(NSProgressIndicator *)nil startAnimation:nil]);
HAS_TYPE(void, [(NSProgressIndicator *)nil stopAnimation:nil]);

// Texts, buttons and tables.
HAS_TYPE(NSColor *, NSColor.labelColor);
HAS_TYPE(NSColor *, NSColor.secondaryLabelColor);
HAS_TYPE(NSColor *, NSColor.systemGreenColor);
HAS_TYPE(NSColor *, NSColor.systemOrangeColor);
HAS_TYPE(NSFont *, [NSFont systemFontOfSize:0]);
HAS_TYPE(NSFont *, [NSFont boldSystemFontOfSize:0]);
HAS_TYPE(NSFont *, [NSFont userFixedPitchFontOfSize:0]);
HAS_TYPE(NSString *, ((NSText *)nil).string);
HAS_TYPE(BOOL, ((NSText *)nil).isEditable);
HAS_TYPE(BOOL, ((NSText *)nil).isRichText);
HAS_TYPE(BOOL, ((NSText *)nil).isHorizontallyResizable);
HAS_TYPE(BOOL, ((NSText *)nil).isVerticallyResizable);
HAS_TYPE(NSSize, ((NSText *)nil).minSize);
HAS_TYPE(NSSize, ((NSText *)nil).maxSize);
HAS_TYPE(NSRange, ((NSText *)nil).selectedRange);
HAS_TYPE(void, [(NSText *)nil sizeToFit]);
HAS_TYPE(NSTextContainer *, ((NSTextView *)nil).textContainer);
HAS_TYPE(BOOL, ((NSTextContainer *)nil).widthTracksTextView);
HAS_TYPE(BOOL, ((NSCell *)nil).wraps);
HAS_TYPE(NSSize, [(NSCell *)nil cellSizeForBounds:NSRect{}]);
HAS_TYPE(id, ((NSControl *)nil).target);
HAS_TYPE(SEL, ((NSControl *)nil).action);
HAS_TYPE(BOOL, ((NSControl *)nil).isEnabled);
HAS_TYPE(NSFont *, ((NSControl *)nil).font);
HAS_TYPE(NSString *, ((NSControl *)nil).stringValue);
HAS_TYPE(NSTextAlignment, ((NSControl *)nil).alignment);
HAS_TYPE(NSColor *, ((NSTextField *)nil).textColor);
HAS_TYPE(BOOL, ((NSTextField *)nil).drawsBackground);
HAS_TYPE(BOOL, ((NSTextField *)nil).isBordered);
HAS_TYPE(BOOL, ((NSTextField *)nil).isBezeled);
HAS_TYPE(BOOL, ((NSTextField *)nil).isEditable);
HAS_TYPE(BOOL, ((NSTextField *)nil).isSelectable);
HAS_TYPE(NSString *, ((NSButton *)nil).title);
HAS_TYPE(void, [(NSButton *)nil setButtonType:NSButtonTypeMomentaryPushIn]);
HAS_TYPE(NSBezelStyle, ((NSButton *)nil).bezelStyle);
HAS_TYPE(NSString *, ((NSButton *)nil).keyEquivalent);
HAS_TYPE(NSTableColumn *, [(NSTableColumn *)nil initWithIdentifier:@""]);
HAS_TYPE(NSString *, ((NSTableColumn *)nil).identifier);
HAS_TYPE(CGFloat, ((NSTableColumn *)nil).width);
HAS_TYPE(CGFloat, ((NSTableColumn *)nil).minWidth);
HAS_TYPE(BOOL, ((NSTableColumn *)nil).isEditable);
HAS_TYPE(id, ((NSTableColumn *)nil).dataCell);
HAS_TYPE(id<NSTableViewDataSource>, ((NSTableView *)nil).dataSource);
HAS_TYPE(id<NSTableViewDelegate>, ((NSTableView *)nil).delegate);
HAS_TYPE(BOOL, ((NSTableView *)nil).allowsColumnReordering);
HAS_TYPE(BOOL, ((NSTableView *)nil).allowsEmptySelection);
HAS_TYPE(NSTableViewColumnAutoresizingStyle, ((NSTableView *)nil).columnAutoresizingStyle);
HAS_TYPE(NSSize, ((NSTableView *)nil).intercellSpacing);
HAS_TYPE(BOOL, ((NSTableView *)nil).usesAlternatingRowBackgroundColors);
HAS_TYPE(CGFloat, ((NSTableView *)nil).rowHeight);
HAS_TYPE(NSArray<NSTableColumn *> *, ((NSTableView *)nil).tableColumns);
HAS_TYPE(NSInteger, ((NSTableView *)nil).selectedRow);
HAS_TYPE(void, [(NSTableView *)nil addTableColumn:(NSTableColumn *)nil]);
HAS_TYPE(void, [(NSTableView *)nil sizeLastColumnToFit]);
HAS_TYPE(void, [(NSTableView *)nil reloadData]);
HAS_TYPE(void, [(NSTableView *)nil selectRowIndexes:(NSIndexSet *)nil byExtendingSelection:NO]);
