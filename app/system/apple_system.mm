#include "app/system/apple_system.h"

#include <stdlib.h>
#include <time.h>

#import "app/strings.h"
#import "app/system/PresenceObserver.h"
#import "app/system/ProcessRunner.h"
#import "app/system/key_trial.h"
#import "app/system/keychain.h"
#import "app/system/main_thread.h"

// Sends one message later, unless it is told not to.
@interface Alarm : NSObject {
  NSTimer *_timer;
  std::function<void()> _done;
}
- (instancetype)initWithSeconds:(int)seconds done:(std::function<void()>)done;
- (void)stop;
@end

@implementation Alarm

- (instancetype)initWithSeconds:(int)seconds done:(std::function<void()>)done {
  self = [super init];
  if (self == nil) return nil;
  _done = std::move(done);
  _timer = [[NSTimer scheduledTimerWithTimeInterval:seconds
                                             target:self
                                           selector:@selector(ring)
                                           userInfo:nil
                                            repeats:NO] retain];
  return self;
}

- (void)ring {
  const auto done = std::exchange(_done, nullptr);
  if (done) done();
}

- (void)stop {
  _done = nullptr;
  [_timer invalidate];  // which lets go of this object
}

- (void)dealloc {
  [_timer release];
  [super dealloc];
}

@end

namespace kelvrin::app {
namespace {

// Owns an object that answers later, and stops it.
template <typename Object>
class ObjectTask : public Task {
 public:
  explicit ObjectTask(Object *object) : object_(object) {}
  ~ObjectTask() override {
    [object_ stop];
    [object_ release];
  }
  ObjectTask(const ObjectTask &) = delete;
  ObjectTask &operator=(const ObjectTask &) = delete;

 private:
  Object *object_;
};

NSDictionary *InfoOfExtension(NSString *path) {
  return [NSDictionary
      dictionaryWithContentsOfFile:[path stringByAppendingPathComponent:@"Contents/Info.plist"]];
}

Installation ReadInstallation(NSBundle *application) {
  const char *home = getenv("HOME");
  NSString *path = [application bundlePath];
  NSString *extension =
      [path stringByAppendingPathComponent:@"Contents/PlugIns/KelvrinToken.appex"];
  NSDictionary *info = InfoOfExtension(extension);
  NSDictionary *attributes =
      [[info objectForKey:@"NSExtension"] objectForKey:@"NSExtensionAttributes"];
  return {.application = ToText(path),
          .home = home == nullptr ? "" : home,
          .version = ToText([application objectForInfoDictionaryKey:@"CFBundleShortVersionString"]),
          .system_version = ToText([[NSProcessInfo processInfo] operatingSystemVersionString]),
          .extension = info == nil ? "" : ToText(extension),
          .extension_id = ToText([info objectForKey:@"CFBundleIdentifier"]),
          .class_id = ToText([attributes objectForKey:@"com.apple.ctk.class-id"])};
}

}  // namespace

AppleSystem::AppleSystem(NSBundle *application)
    : installation_(ReadInstallation(application)), observer_([[PresenceObserver alloc] init]) {}

AppleSystem::~AppleSystem() {
  [observer_ stop];
  [observer_ release];
}

Time AppleSystem::Now() const { return time(nullptr); }

Presence AppleSystem::Look() {
  Presence presence;
  [observer_ readPresence:&presence];
  return presence;
}

void AppleSystem::OnChange(std::function<void()> changed) {
  [observer_ setChanged:std::move(changed)];
}

TaskPointer AppleSystem::ReadCertificates(const std::string &token_id,
                                          std::function<void(std::vector<Certificate>)> done) {
  return Compute<std::vector<Certificate>>([id = token_id] { return app::ReadCertificates(id); },
                                           std::move(done));
}

TaskPointer AppleSystem::Try(const Certificate &certificate, Scheme scheme,
                             std::function<void(Attempt)> done) {
  // What was cancelled may still be at it, and ask for the PIN.
  static pthread_mutex_t alone = PTHREAD_MUTEX_INITIALIZER;
  return Compute<Attempt>(
      [certificate = certificate, scheme] { return TryKey(certificate, scheme); }, std::move(done),
      &alone);
}

TaskPointer AppleSystem::Run(const Command &command, std::function<void(ProcessResult)> done) {
  // Starting a program that is not there would raise an exception.
  if (![[NSFileManager defaultManager] isExecutableFileAtPath:ToString(command.program)]) {
    return After(0, [done = std::move(done)] { done({ProcessResult::End::kNoProgram}); });
  }
  ProcessRunner *runner = [[ProcessRunner alloc] initWithCommand:command done:std::move(done)];
  return std::make_unique<ObjectTask<ProcessRunner>>(runner);
}

TaskPointer AppleSystem::After(int seconds, std::function<void()> done) {
  Alarm *alarm = [[Alarm alloc] initWithSeconds:seconds done:std::move(done)];
  return std::make_unique<ObjectTask<Alarm>>(alarm);
}

}  // namespace kelvrin::app
