#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

#include "common/log/log.h"
#include "common/thread.h"

// One background thread that hands the pushed items, whose moves must not throw, to one callback,
// one at a time and in the order of their pushing. The owner calls stop() before it destroys a
// started worker; a worker destroyed while its thread runs ends the process.
template <typename item_t>
class worker_t {
  public:
    using callback_t = std::function<void(item_t)>;

    worker_t() = default;
    worker_t(const worker_t&) = delete;
    worker_t& operator=(const worker_t&) = delete;

    // Starts the thread, which owns `callback` and runs it without any lock held. A standard
    // exception of the callback is logged and the next item goes on; any other ends the process.
    // Nothing happens when the worker runs already. Throws std::system_error ("thread constructor
    // failed") when the system gives no thread; the worker can then be started again. A stopped
    // worker that is started again goes on with what it still holds. Only the owner's thread.
    void start(callback_t callback) {
        if (_running.exchange(true)) {
            return;
        }
        try {
            _thread = start_thread(
                [this, owned = std::move(callback)]() mutable { _event_worker(std::move(owned)); });
        } catch (...) {
            _running = false;
            throw;
        }
    }

    // Any thread. Never waits for the callback. An item pushed after the stop is not executed,
    // unless the worker is started again.
    void push_event(item_t item) {
        {
            const std::lock_guard lock(_mutex);
            _queue.push_back(std::move(item));
        }
        _wake_up.notify_one();
    }

    // Returns when every item queued so far is executed and the thread has ended. Only the
    // owner's thread, so not from the callback. May be called again, and without a start.
    void stop() {
        {
            // Under the lock, so that it cannot fall between the thread's look at the flag and its
            // going to sleep, where the wake-up below would be lost.
            const std::lock_guard lock(_mutex);
            _running.exchange(false);
        }
        _wake_up.notify_all();
        if (_thread.joinable()) {
            _thread.join();
        }
    }

  private:
    void _event_worker(callback_t callback) {
        std::unique_lock lock(_mutex);
        while (true) {
            // The queue comes before the flag: stopping does not discard work, not even when it
            // comes before this thread has got to run for the first time.
            _wake_up.wait(lock, [this] { return !_queue.empty() || !_running; });
            if (_queue.empty()) {
                return;
            }
            try {
                callback(_take(lock));
            } catch (const std::exception& error) {
                QLX_LOG_ERROR("Error processing event: {}", error.what());
            }
            lock.lock();
        }
    }

    // The oldest item, which thus becomes the callback's own without another move. Gives the lock
    // back.
    item_t _take(std::unique_lock<std::mutex>& lock) {
        static_assert(std::is_nothrow_move_constructible_v<item_t>,
                      "a move that throws would leave the lock held");
        item_t item = std::move(_queue.front());
        _queue.pop_front();
        lock.unlock();
        return item;
    }

    std::deque<item_t> _queue;
    std::mutex _mutex;  // guards _queue, and orders the clearing of _running with the wait
    std::condition_variable _wake_up;
    std::atomic<bool> _running{false};
    std::thread _thread;
};
