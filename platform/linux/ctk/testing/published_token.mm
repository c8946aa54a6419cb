#import "platform/linux/ctk/testing/published_token.h"

#include <atomic>
#include <utility>

static std::atomic<int> services = 0;
static std::function<NSError *()> during_call;

void OnAnotherThread(const std::function<void()> &work) {
  std::thread([&work] {
    @autoreleasepool {
      work();
    }
  }).join();
}

@implementation WordService

+ (int)count {
  return services;
}

+ (void)setDuringCall:(std::function<NSError *()>)call {
  during_call = std::move(call);
}

- (instancetype)init {
  self = [super init];
  ++services;
  return self;
}

- (BOOL)supportsOperation:(SecKeyOperationType)operation
                 usingKey:(TKTokenKeychainKey *)key
                algorithm:(NSString *)algorithm {
  (void)operation, (void)key;
  return [algorithm isEqual:@"known"];
}

- (NSData *)performOperation:(SecKeyOperationType)operation
                        data:(NSData *)data
                    usingKey:(TKTokenKeychainKey *)key
                   algorithm:(NSString *)algorithm
                       error:(NSError **)error {
  NSError *reason = during_call ? std::exchange(during_call, nullptr)() : nil;
  if (reason != nil) {
    *error = reason;
    return nil;
  }
  NSString *text = [[NSString alloc] initWithData:data encoding:NSUTF8StringEncoding];
  NSString *words = [NSString stringWithFormat:@"%ld %@ %@ %@", static_cast<long>(operation),
                                               [key label], algorithm, [text autorelease]];
  return [words dataUsingEncoding:NSUTF8StringEncoding];
}

- (void)dealloc {
  --services;
  [super dealloc];
}

@end

PublishedToken::PublishedToken(NSString *token_id, NSArray<TKTokenKeychainItem *> *items)
    : token_id_([token_id retain]) {
  OnAnotherThread([&] {
    WordService *service = [[[WordService alloc] init] autorelease];
    TKSystemAddToken([[[TKSystemToken alloc] initWithTokenID:token_id
                                                    slotName:@"Reader"
                                                       items:items
                                                     service:service] autorelease]);
  });
}

void PublishedToken::Remove() {
  if (token_id_ == nil) return;
  OnAnotherThread([this] { TKSystemRemoveToken(token_id_); });
  [token_id_ release];
  token_id_ = nil;
}
