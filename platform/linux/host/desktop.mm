#include "platform/linux/host/desktop.h"

#import "platform/linux/ctk/TKSystem.h"
#import "platform/linux/host/foundation.h"
#import "platform/linux/host/key_service.h"

namespace host {

Desktop::Desktop(HostedExtension extension, std::string class_id, PinSource pin)
    : extension_(std::move(extension)), class_id_(std::move(class_id)), pin_(std::move(pin)) {
  // GNUstep deadlocks when its first run loop is made while another thread sends a message there.
  [NSRunLoop currentRunLoop];
  thread_ = std::thread([this] { MakeChanges(); });
}

Desktop::~Desktop() {
  Queue([this] {
    while (!readers_.empty()) Unplug(std::string(readers_.begin()->first));
  });
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Desktop::AddReader(const std::string &name) {
  Queue([this, name] {
    readers_.try_emplace(name);
    TKSystemAddReader(ToString(name));
  });
}

void Desktop::RemoveReader(const std::string &name) {
  Queue([this, name] { Unplug(name); });
}

void Desktop::InsertCard(const std::string &reader) {
  Queue([this, reader] { Insert(reader); });
}

void Desktop::RemoveCard(const std::string &reader) {
  Queue([this, reader] { Remove(reader); });
}

void Desktop::Settle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return queue_.empty(); });
}

void Desktop::Queue(std::function<void()> change) {
  const std::lock_guard lock(mutex_);
  queue_.push_back(std::move(change));
  changed_.notify_all();
}

// The desktop's thread: makes the changes in order, until the desktop ends and none is left.
void Desktop::MakeChanges() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return ending_ || !queue_.empty(); });
    if (queue_.empty()) return;
    const std::function<void()> change = queue_.front();
    lock.unlock();
    @autoreleasepool {
      change();
    }
    lock.lock();
    queue_.pop_front();
    changed_.notify_all();
  }
}

void Desktop::Insert(const std::string &reader) {
  NSString *slot = ToString(reader);
  TKSystemSetReaderState(slot, TKSmartCardSlotStateProbing);
  TKSystemSetReaderState(slot, TKSmartCardSlotStateValidCard);
  InsertedCard &card = readers_.at(reader).emplace(extension_.InsertCard());
  if (card.error()) return;
  const std::vector<Item> items = card.items();
  NSMutableArray *objects = [NSMutableArray array];
  for (const Item &item : items) [objects addObject:(id)item.object.get()];
  KeyService *service = [[[KeyService alloc] initWithClient:card.OpenClient() items:items
                                                        pin:pin_] autorelease];
  NSString *token_id = ToString(class_id_ + ":" + card.instance_id());
  TKSystemAddToken([[[TKSystemToken alloc] initWithTokenID:token_id
                                                  slotName:slot
                                                     items:objects
                                                   service:service] autorelease]);
}

// Applications hear first: the extension may be in the middle of a call.
void Desktop::Remove(const std::string &reader) {
  std::optional<InsertedCard> &card = readers_.at(reader);
  if (!card) return;
  if (!card->error()) TKSystemRemoveToken(ToString(class_id_ + ":" + card->instance_id()));
  TKSystemSetReaderState(ToString(reader), TKSmartCardSlotStateEmpty);
  card.reset();
}

void Desktop::Unplug(const std::string &reader) {
  Remove(reader);
  readers_.erase(reader);
  TKSystemRemoveReader(ToString(reader));
}

}  // namespace host
