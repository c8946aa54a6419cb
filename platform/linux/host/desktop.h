// A computer with readers and cards, as an application sees it through CryptoTokenKit and Security:
// cards go in and out, and the extension's tokens come and go with them.
//
//   host::Desktop desktop(*extension, "org.example.token", ask_pin);
//   desktop.AddReader("Reader 1");
//   desktop.InsertCard("Reader 1");
//   desktop.Settle();  // now the keychain has the card's items
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/linux/host/hosted_extension.h"
#include "platform/linux/host/result.h"

namespace host {

// May be used from any thread. One at a time in a process: applications see one system.
class Desktop {
 public:
  // `class_id`: the extension's, which begins the IDs of its tokens. `pin` is asked on the thread
  // that uses a key.
  Desktop(HostedExtension extension, std::string class_id, PinSource pin);
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  // Makes the changes that are left, then removes all readers.
  ~Desktop();

  // Each of these queues a change and returns at once. Changes are made in order on a thread of
  // the desktop's, where observers are told of them.

  void AddReader(const std::string& name);
  // A card in the reader is removed first.
  void RemoveReader(const std::string& name);
  // Into a reader that is there and empty. When the extension sets no token up there is none.
  void InsertCard(const std::string& reader);
  // The token goes at once. Its extension hears of it as soon as the call that it is in is over.
  void RemoveCard(const std::string& reader);

  // Waits until the changes queued before are made. Not for observers.
  void Settle();

 private:
  void Queue(std::function<void()> change);
  void MakeChanges();
  // On the desktop's thread:
  void Insert(const std::string& reader);
  void Remove(const std::string& reader);
  void Unplug(const std::string& reader);

  const HostedExtension extension_;
  const std::string class_id_;
  const PinSource pin_;
  // The readers, each with its card if there is one; of the desktop's thread.
  std::map<std::string, std::optional<InsertedCard>> readers_;

  std::mutex mutex_;  // guards the queue
  std::condition_variable changed_;
  std::deque<std::function<void()>> queue_;  // the first is the one being made
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace host
