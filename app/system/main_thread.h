// Work on other threads, whose results are for the main one.
#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "app/model/system.h"

namespace kelvrin::app {

// Calls a function on the main thread, when that is at its run loop next.
void OnMainThread(std::function<void()> function);

// Calls a function on a thread of its own, with a pool.
void OnOtherThread(std::function<void()> function);

// A task whose answer comes to the main thread unless nobody wants it any more by then. But for
// IsWanted it is used on the main thread alone; copies share the answer.
template <typename Answer>
class Awaited {
 public:
  explicit Awaited(std::function<void(Answer)> done)
      : state_(std::make_shared<State>(std::move(done))) {}

  // What is handed to whoever asks: letting go of it ends the wish for an answer.
  TaskPointer task() const { return std::make_unique<Wish>(state_); }

  // Whether the task is still held; on any thread.
  bool IsWanted() const { return state_->is_wanted; }

  // Gives the answer, once.
  void Give(Answer answer) const {
    if (!state_->done) return;
    const auto done = std::exchange(state_->done, nullptr);
    done(std::move(answer));
  }

 private:
  struct State {
    explicit State(std::function<void(Answer)> function) : done(std::move(function)) {}
    std::function<void(Answer)> done;
    std::atomic<bool> is_wanted = true;
  };
  class Wish : public Task {
   public:
    explicit Wish(std::shared_ptr<State> state) : state_(std::move(state)) {}
    ~Wish() override {
      state_->done = nullptr;
      state_->is_wanted = false;
    }
    Wish(const Wish&) = delete;
    Wish& operator=(const Wish&) = delete;

   private:
    std::shared_ptr<State> state_;
  };

  std::shared_ptr<State> state_;
};

// Computes an answer on a thread of its own. Work that nobody wants any more when its turn comes is
// left undone.
//   turn   held while the work is done; outlives it. None where the work need not be alone.
template <typename Answer>
TaskPointer Compute(std::function<Answer()> work, std::function<void(Answer)> done,
                    pthread_mutex_t* turn = nullptr) {
  const Awaited<Answer> awaited(std::move(done));
  OnOtherThread([awaited, turn, work = std::move(work)] {
    if (turn != nullptr) pthread_mutex_lock(turn);
    if (awaited.IsWanted()) OnMainThread([awaited, answer = work()] { awaited.Give(answer); });
    if (turn != nullptr) pthread_mutex_unlock(turn);
  });
  return awaited.task();
}

}  // namespace kelvrin::app
