#import "app/system/ProcessRunner.h"

#include <utility>

#import "app/strings.h"

using kelvrin::app::Command;
using kelvrin::app::ProcessResult;
using kelvrin::app::ToString;

// English texts, whatever the user's language is: they are parsed, and read by who helps.
static NSDictionary *EnglishEnvironment() {
  NSMutableDictionary *environment =
      [[[[NSProcessInfo processInfo] environment] mutableCopy] autorelease];
  [environment setObject:@"C" forKey:@"LC_ALL"];
  return environment;
}

static NSArray *ArgumentsOf(const Command &command) {
  NSMutableArray *arguments = [NSMutableArray array];
  for (const std::string &argument : command.arguments) [arguments addObject:ToString(argument)];
  return arguments;
}

// What a program printed, as UTF-8 without NUL bytes; what is no UTF-8 is read as Latin-1.
static std::string TextOf(NSData *data) {
  std::string text(static_cast<const char *>([data bytes]), [data length]);
  std::erase(text, '\0');
  if ([NSString stringWithUTF8String:text.c_str()] != nil) return text;
  return kelvrin::app::ToText([NSString stringWithCString:text.c_str()
                                                 encoding:NSISOLatin1StringEncoding]);
}

@implementation ProcessRunner

- (instancetype)initWithCommand:(const Command &)command
                           done:(std::function<void(ProcessResult)>)done {
  self = [super init];
  if (self == nil) return nil;
  _done = std::move(done);
  _task = [[NSTask alloc] init];
  [_task setLaunchPath:ToString(command.program)];
  [_task setArguments:ArgumentsOf(command)];
  [_task setEnvironment:EnglishEnvironment()];
  [_task setStandardInput:[NSFileHandle fileHandleWithNullDevice]];
  NSPipe *output = [NSPipe pipe];
  NSPipe *errors = [NSPipe pipe];
  [_task setStandardOutput:output];
  [_task setStandardError:errors];
  _output = [[output fileHandleForReading] retain];
  _errors = [[errors fileHandleForReading] retain];
  [self awaitNotification:NSTaskDidTerminateNotification of:_task action:@selector(ended:)];
  [self readFrom:_output];
  [self readFrom:_errors];
  _timer = [[NSTimer scheduledTimerWithTimeInterval:command.seconds
                                             target:self
                                           selector:@selector(tookTooLong)
                                           userInfo:nil
                                            repeats:NO] retain];
  [_task launch];
  return self;
}

- (void)awaitNotification:(NSString *)name of:(id)object action:(SEL)action {
  [[NSNotificationCenter defaultCenter] addObserver:self selector:action name:name object:object];
  ++_awaited;
}

- (void)readFrom:(NSFileHandle *)handle {
  [self awaitNotification:NSFileHandleReadToEndOfFileCompletionNotification
                       of:handle
                   action:@selector(read:)];
  [handle readToEndOfFileInBackgroundAndNotify];
}

- (void)ended:(NSNotification *)notification {
  (void)notification;
  _result.status = [_task terminationStatus];
  [self countDown];
}

- (void)read:(NSNotification *)notification {
  NSData *data = [[notification userInfo] objectForKey:NSFileHandleNotificationDataItem];
  std::string &text = [notification object] == _output ? _result.output : _result.errors;
  text = TextOf(data);
  [self countDown];
}

- (void)countDown {
  if (--_awaited == 0) [self answer];
}

- (void)tookTooLong {
  _result.end = ProcessResult::End::kTimedOut;
  [self answer];
}

- (void)answer {
  const auto done = std::exchange(_done, nullptr);
  const ProcessResult result = _result;
  [[self retain] autorelease];  // the answer may let go of it
  [self stop];
  if (done) done(result);
}

- (void)stop {
  _done = nullptr;
  [[NSNotificationCenter defaultCenter] removeObserver:self];
  [_timer invalidate];  // which lets go of this object
  [_timer release];
  _timer = nil;
  if ([_task isRunning]) [_task terminate];
}

- (void)dealloc {
  [_task release];
  [_output release];
  [_errors release];
  [super dealloc];
}

@end
