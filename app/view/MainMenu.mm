#import "app/view/MainMenu.h"

#import "app/view/Controls.h"

using kelvrin::app::Texts;
using kelvrin::app::ToString;

namespace {

// Adds an item with its key, which the Command key goes with.
NSMenuItem *Add(NSMenu *menu, const Texts &texts, const char *title, SEL action, NSString *key) {
  NSMenuItem *item = [[[NSMenuItem alloc] initWithTitle:ToString(texts.Get(title))
                                                 action:action
                                          keyEquivalent:key] autorelease];
  [menu addItem:item];
  return item;
}

// Adds a menu to the bar.
NSMenu *AddMenu(NSMenu *bar, const Texts &texts, const char *title) {
  NSMenu *menu = [[[NSMenu alloc] initWithTitle:ToString(texts.Get(title))] autorelease];
  [Add(bar, texts, title, nullptr, @"") setSubmenu:menu];
  return menu;
}

void AddApplicationMenu(NSMenu *bar, const Texts &texts) {
  NSMenu *menu = AddMenu(bar, texts, "MENU_APPLICATION");
  Add(menu, texts, "MENU_ABOUT", @selector(orderFrontStandardAboutPanel:), @"");
  [menu addItem:[NSMenuItem separatorItem]];
  Add(menu, texts, "MENU_HIDE", @selector(hide:), @"h");
  NSMenuItem *others =
      Add(menu, texts, "MENU_HIDE_OTHERS", @selector(hideOtherApplications:), @"h");
  [others setKeyEquivalentModifierMask:NSEventModifierFlagCommand | NSEventModifierFlagOption];
  Add(menu, texts, "MENU_SHOW_ALL", @selector(unhideAllApplications:), @"");
  [menu addItem:[NSMenuItem separatorItem]];
  Add(menu, texts, "MENU_QUIT", @selector(terminate:), @"q");
}

void AddCertificateMenu(NSMenu *bar, const Texts &texts) {
  NSMenu *menu = AddMenu(bar, texts, "MENU_CERTIFICATE");
  Add(menu, texts, "BUTTON_TRY", @selector(tryKey:), @"t");
  Add(menu, texts, "BUTTON_COPY_SSH", @selector(copySSHKey:), @"");
  Add(menu, texts, "BUTTON_SAVE", @selector(saveCertificate:), @"s");
  [menu addItem:[NSMenuItem separatorItem]];
  Add(menu, texts, "BUTTON_REPORT", @selector(diagnose:), @"d");
}

}  // namespace

NSMenu *MakeMainMenu(const Texts &texts) {
  NSMenu *bar = [[[NSMenu alloc] initWithTitle:@""] autorelease];
  AddApplicationMenu(bar, texts);
  NSMenu *edit = AddMenu(bar, texts, "MENU_EDIT");
  Add(edit, texts, "MENU_COPY", @selector(copy:), @"c");
  Add(edit, texts, "MENU_SELECT_ALL", @selector(selectAll:), @"a");
  AddCertificateMenu(bar, texts);
  NSMenu *window = AddMenu(bar, texts, "MENU_WINDOW");
  Add(window, texts, "MENU_MINIMISE", @selector(performMiniaturize:), @"m");
  Add(window, texts, "MENU_CLOSE", @selector(performClose:), @"w");
  NSMenu *help = AddMenu(bar, texts, "MENU_HELP");
  Add(help, texts, "MENU_GUIDE", @selector(openGuide:), @"?");
  return bar;
}
