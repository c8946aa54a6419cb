// The application's window: the state at the top, below it the certificates and the selected one.
#pragma once

#import <Cocoa/Cocoa.h>

#include "app/text/texts.h"
#import "app/view/CertificateTable.h"
#import "app/view/DetailView.h"
#import "app/view/LayoutView.h"
#import "app/view/ReportWindow.h"
#import "app/view/StatusView.h"
#import "app/view/Surroundings.h"

@interface MainWindow : NSObject <Arranging, DetailActions, NSWindowDelegate> {
  kelvrin::app::WindowModel *_model;
  const kelvrin::app::Texts *_texts;
  Surroundings *_surroundings;
  NSWindow *_window;
  LayoutView *_content;
  StatusView *_status;
  CertificateTable *_certificates;
  DetailView *_detail;
  ReportWindow *_report;
}

// Model and texts outlive it; the surroundings are kept.
- (instancetype)initWithModel:(kelvrin::app::WindowModel *)model
                        texts:(const kelvrin::app::Texts *)texts
                 surroundings:(Surroundings *)surroundings;

- (void)show;

// Shows what the model has become. To be called on the main thread after each change of it; focus,
// selection and scroll position stay.
- (void)refresh;

- (NSWindow *)window;
- (StatusView *)status;
- (CertificateTable *)certificates;
- (DetailView *)detail;
- (ReportWindow *)report;

@end
