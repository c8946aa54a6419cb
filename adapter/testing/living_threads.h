// Threads that stay alive, so that no two of them share an identity.
#ifndef KELVRIN_ADAPTER_TESTING_LIVING_THREADS_H_
#define KELVRIN_ADAPTER_TESTING_LIVING_THREADS_H_

#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace kelvrin::adapter {

class LivingThreads {
 public:
  LivingThreads() = default;
  ~LivingThreads() {
    release_.set_value();
    for (std::thread& thread : threads_) thread.join();
  }
  LivingThreads(const LivingThreads&) = delete;
  LivingThreads& operator=(const LivingThreads&) = delete;

  // Runs `work` on a new thread, to its end.
  void Run(const std::function<void()>& work) {
    std::promise<void> done;
    threads_.emplace_back([&, released = released_] {
      work();
      done.set_value();
      released.wait();
    });
    done.get_future().wait();
  }

 private:
  std::promise<void> release_;
  std::shared_future<void> released_ = release_.get_future().share();
  std::vector<std::thread> threads_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_LIVING_THREADS_H_
