// Queues that hand items from threads to threads.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace qel {

enum class QueueResult : int32_t {
  Ok = 0,
  Aborted = 1,
  Empty = 2,  // nothing to pop within the allowed wait
  Full = 3,   // no room within the allowed wait; the caller still owns the item
  Interrupted = 6,
};

// A capacity that never makes a push wait.
inline constexpr int32_t kUnbounded = 2147483647;

class iWaitable;

// Told of every change of the queues it is attached to. The queue is locked meanwhile, so `changed`
// must not call it back.
class iWaiter {
 public:
  virtual void changed(iWaitable* queue) = 0;

 protected:
  ~iWaiter() = default;
};

class iWaitable {
 public:
  virtual void set_waiter(iWaiter* waiter) = 0;
  virtual int32_t size() = 0;

 protected:
  ~iWaitable() = default;
};

// First in, first out, bounded by what each push allows. Owns the items in it through `disposer`.
// Any thread may call anything; the destructor must be the last call. After `abort` nothing goes in
// or out any more, and what is left is disposed of with the queue.
template <typename T>
class BlockingQueue : public iWaitable {
 public:
  using Disposer = std::function<void(T&)>;

  explicit BlockingQueue(Disposer dispose = {}) : disposer(std::move(dispose)) {}
  virtual ~BlockingQueue() { clear(); }
  BlockingQueue(const BlockingQueue&) = delete;
  BlockingQueue& operator=(const BlockingQueue&) = delete;

  // The waiter must outlive the queue, or be taken away with null.
  void set_waiter(iWaiter* told) override {
    const std::lock_guard<std::mutex> lock(mutex);
    waiter = told;
  }
  int32_t size() override {
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int32_t>(items.size());
  }

  // Appends while fewer than `capacity` items are queued. Waits for room: without limit, or once
  // for `timeout_ms`.
  [[nodiscard]] QueueResult push(const T& item, int32_t capacity, bool wait_forever,
                                 uint32_t timeout_ms) {
    if (aborted) return QueueResult::Aborted;
    std::unique_lock<std::mutex> lock(mutex);
    const auto full = [&] { return static_cast<int64_t>(items.size()) >= capacity; };
    const QueueResult room = wait_while_locked(full, lock, not_full, wait_forever, timeout_ms,
                                               push_interrupt, QueueResult::Full);
    if (room != QueueResult::Ok) return room;
    items.push_back(item);
    on_pushed(items.back());
    not_empty.tell_one_locked();
    after_push(items.back());
    tell_waiter_locked();
    return QueueResult::Ok;
  }

  // Copies the oldest item to `out`, and takes it off the queue when `remove` is set. Waits for an
  // item: without limit, or once for `timeout_ms`.
  [[nodiscard]] QueueResult pop(T& out, bool wait_forever, uint32_t timeout_ms, bool remove) {
    if (aborted) return QueueResult::Aborted;
    std::unique_lock<std::mutex> lock(mutex);
    const auto empty = [&] { return items.empty(); };
    const QueueResult found = wait_while_locked(empty, lock, not_empty, wait_forever, timeout_ms,
                                                pop_interrupt, QueueResult::Empty);
    if (found != QueueResult::Ok) return found;
    out = items.front();
    if (!remove) return QueueResult::Ok;
    items.pop_front();
    on_popped(out);
    not_full.tell_one_locked();
    after_pop(out);
    tell_waiter_locked();
    return QueueResult::Ok;
  }

  // Ends every wait and every later push and pop with `Aborted`. Cannot be undone.
  void abort() {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      aborted = true;
    }
    not_empty.changed.notify_all();
    not_full.changed.notify_all();
    on_abort();
    const std::lock_guard<std::mutex> lock(mutex);
    tell_waiter_locked();
  }

  bool is_aborted() const { return aborted; }

  // Applied to every item that is left when the queue is destroyed. Set before threads use the
  // queue.
  Disposer disposer;

  // While set, a wait without limit on that side gives up with `Interrupted` when it wakes.
  std::atomic<bool> pop_interrupt{false};
  std::atomic<bool> push_interrupt{false};

 protected:
  // All but `on_abort` are called with the queue locked.
  virtual void on_popped(T&) {}
  virtual void after_pop(T&) {}
  virtual void on_pushed(T&) {}
  virtual void after_push(T&) {}
  virtual void on_clear() {}
  virtual void on_abort() {}

  // Disposes of what is queued. A derived class whose `on_clear` or `disposer` needs the derived
  // part calls it in its own destructor.
  void clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    for (T& item : items) {
      if (disposer) disposer(item);
    }
    items.clear();
    on_clear();
    tell_waiter_locked();
    not_full.changed.notify_all();
  }

  std::mutex mutex;

 private:
  // A condition that costs nothing to tell while nobody waits for it, as in a stream that flows.
  struct Condition {
    std::condition_variable_any changed;
    int waiting = 0;  // guarded by mutex
    void tell_one_locked() {
      if (waiting > 0) changed.notify_one();
    }
  };
  // While a thread waits for a condition.
  class Waiting {
   public:
    explicit Waiting(Condition& waited_for) : condition(waited_for) { ++condition.waiting; }
    ~Waiting() { --condition.waiting; }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

   private:
    Condition& condition;
  };

  template <typename Blocked>
  QueueResult wait_while_locked(Blocked blocked, std::unique_lock<std::mutex>& lock,
                                Condition& condition, bool wait_forever, uint32_t timeout_ms,
                                const std::atomic<bool>& interrupt, QueueResult timed_out) {
    if (aborted) return QueueResult::Aborted;
    while (blocked()) {
      const Waiting waiting(condition);
      if (wait_forever) {
        condition.changed.wait(lock);
        if (interrupt) return QueueResult::Interrupted;
      } else {
        if (timeout_ms == 0) return timed_out;
        const auto limit = std::chrono::milliseconds(timeout_ms);
        if (condition.changed.wait_for(lock, limit) == std::cv_status::timeout) return timed_out;
        timeout_ms = 0;
      }
      if (aborted) return QueueResult::Aborted;
    }
    return QueueResult::Ok;
  }

  void tell_waiter_locked() {
    if (waiter != nullptr) waiter->changed(this);
  }

  std::atomic<bool> aborted{false};  // set under `mutex`, so that no wait misses it
  Condition not_empty;
  Condition not_full;

  // Guarded by mutex.
  std::deque<T> items;
  iWaiter* waiter = nullptr;
};

}  // namespace qel
