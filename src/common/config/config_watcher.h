#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

// Notices changes of one file by polling its time and size on a thread of its own, and tells the
// subscribers once the file has had a moment to settle. Appearing and disappearing are changes too.
// The contents are never read: a file rewritten with as many bytes within one granule of the file
// system's time goes unseen.
class config_watcher_t {
  public:
    using callback_t = std::function<void(const std::filesystem::path&)>;

    // Starts watching. `poll_period` (above 0; with 0 it looks without a pause) is the time between
    // two looks at the file; `settle_delay` (0 for none) the time from a change to the telling.
    // Throws std::system_error ("thread constructor failed") when the system gives no thread.
    config_watcher_t(std::filesystem::path path, std::chrono::milliseconds poll_period,
                     std::chrono::milliseconds settle_delay);
    // Stops. Not from a subscriber.
    ~config_watcher_t();
    config_watcher_t(const config_watcher_t&) = delete;
    config_watcher_t& operator=(const config_watcher_t&) = delete;

    // `callback` is called with the watched path, on the watcher's thread, after those subscribed
    // before it. It must not call back into the watcher. A standard exception that it throws is
    // logged; any other ends the process.
    // Any thread, but not from a subscriber; waits for a call of the subscribers that is under way.
    void subscribe(callback_t callback);
    // No subscriber is called after it has returned. Threads and waiting as for subscribe().
    void unsubscribe_all();

    // Ends the watching; a call of the subscribers that is under way is waited for. Any thread but
    // the watcher's own. May be called again; a second call that overlaps the first returns at
    // once, when the thread may not have ended yet.
    void stop();

  private:
    struct snapshot_t {
        std::filesystem::file_time_type last_write_time{};  // zero for a file that does not exist
        std::uint64_t size = UINT64_MAX;                    // bytes; all ones when unknown
        bool exists = false;
    };

    // Nothing, with a line in the log, when the file system refuses to tell.
    static std::optional<snapshot_t> _check(const std::filesystem::path& path);
    static bool _is_same(const snapshot_t& one, const snapshot_t& other);
    void _watch_loop();
    void _notify();

    const std::filesystem::path _path;
    const std::chrono::milliseconds _poll_period;
    const std::chrono::milliseconds _settle_delay;
    std::mutex _subscribers_mutex;  // taken after _state_mutex where both are
    std::vector<callback_t> _subscribers;
    std::thread _thread;
    std::mutex _state_mutex;  // held by the loop, except while it waits
    std::condition_variable _wake_up;
    std::atomic<bool> _running{true};
};
