#include "macos/uninstall_watcher.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/event.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "common/log/log.h"
#include "common/regular_file.h"
#include "common/thread.h"

namespace {

// The front application finds the trigger by this name and content.
constexpr const char* trigger_name = "/.uninstall_request";
constexpr std::string_view trigger_content = "front_removed\n";
constexpr const char* user_support_folder = "/Library/Application Support/QlxControlCenter";

bool is_directory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// False, with errno, when it cannot be opened. The file's being there is the message; a content cut
// short changes nothing about it.
bool write_trigger(const std::string& path) {
    const descriptor_t file = open_regular_file(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (!file.is_open()) {
        return false;
    }
    [[maybe_unused]] const auto written =
        write(file.get(), trigger_content.data(), trigger_content.size());
    return true;
}

// The system lends each thread an entry of its own, until that thread asks again.
std::string home_folder() {
    const passwd* entry = getpwuid(getuid());
    if (entry != nullptr && entry->pw_dir != nullptr && *entry->pw_dir != '\0') {
        return entry->pw_dir;
    }
    const char* home = std::getenv("HOME");
    return home != nullptr ? home : "";
}

}  // namespace

uninstall_watcher_t::uninstall_watcher_t(std::function<void()> on_quit, std::string bundle,
                                         std::string system_folder, std::optional<std::string> home)
    : _on_quit(std::move(on_quit)),
      _bundle(std::move(bundle)),
      _system_folder(std::move(system_folder)),
      _home(std::move(home)) {
    _thread = start_thread([this] { watcher_loop(); });
}

// The flag comes before the queue is closed: a thread that is still setting up makes its queue
// before it reads the flag, so that either the queue is seen here or the flag there. Closing the
// queue is the only thing that wakes a thread that waits, since the wait has no time limit.
uninstall_watcher_t::~uninstall_watcher_t() {
    _stop_requested = true;
    _close_descriptors();
    if (_thread.joinable()) {
        _thread.join();
    }
}

void uninstall_watcher_t::watcher_loop() {
    if (!is_directory(_bundle)) {
        // No callback: a daemon that is started without its front application goes on to run, and
        // what it left is removed by whoever sees the trigger.
        QLX_LOG_INFO("Front not present at startup → uninstall");
        request_uninstall(_system_folder, _home);
        return;
    }
    if (!_arm()) {
        _close_descriptors();
        return;
    }
    _wait();
    _close_descriptors();
    QLX_LOG_INFO("Uninstall watcher stopped");
    _consume_on_quit();
}

// False when there is no watch. The destructor closes nothing in the middle of this: a number that
// it closes may be given out again at once, to be watched or used for a queue by mistake.
bool uninstall_watcher_t::_arm() {
    const std::lock_guard lock(_mutex);
    _bundle_descriptor = open(_bundle.c_str(), O_EVTONLY);
    if (_bundle_descriptor < 0) {
        const int error = errno;
        QLX_LOG_ERROR("open(O_EVTONLY) failed for {} (errno={}) → uninstall", _bundle, error);
        request_uninstall(_system_folder, _home);
        return false;
    }
    _queue_descriptor = kqueue();
    if (_queue_descriptor < 0) {
        const int error = errno;
        QLX_LOG_ERROR("kqueue() failed (errno={})", error);
        return false;
    }
    struct kevent change {};
    change.ident = static_cast<decltype(change.ident)>(_bundle_descriptor);
    change.filter = EVFILT_VNODE;
    change.flags = EV_ADD | EV_CLEAR;
    change.fflags = NOTE_DELETE | NOTE_RENAME | NOTE_REVOKE;
    if (kevent(_queue_descriptor, &change, 1, nullptr, 0, nullptr) < 0) {
        const int error = errno;
        QLX_LOG_ERROR("kevent(ADD) failed (errno={})", error);
        return false;
    }
    QLX_LOG_INFO("Uninstall watcher armed on {}", _bundle);
    return true;
}

void uninstall_watcher_t::_wait() {
    while (!_stop_requested) {
        struct kevent event {};
        // Read anew each time: once the destructor has taken the queue away this is -1, which the
        // system refuses at once.
        const int count = kevent(_queue(), nullptr, 0, &event, 1, nullptr);
        const int error = errno;
        if (count > 0) {
            // Only the ways of going have been asked for, so whichever came means the same.
            QLX_LOG_INFO("Front app changed (DELETE/RENAME/REVOKE) → uninstall");
            _close_descriptors();
            request_uninstall(_system_folder, _home);
            return;
        }
        if (count < 0 && error != EINTR) {
            // Also the road of an ordered end: the destructor has closed the queue.
            QLX_LOG_ERROR("kevent(wait) failed (errno={}), stopping watcher", error);
            return;
        }
    }
}

int uninstall_watcher_t::_queue() {
    const std::lock_guard lock(_mutex);
    return _queue_descriptor;
}

// Called by the watcher's thread and by the owner's, and twice on the way of an event. That is
// harmless because whoever closes a number forgets it: by the second time it could be another
// file's. The queue goes first, since that wakes the thread.
void uninstall_watcher_t::_close_descriptors() {
    const std::lock_guard lock(_mutex);
    for (int* descriptor : {&_queue_descriptor, &_bundle_descriptor}) {
        if (*descriptor >= 0) {
            close(std::exchange(*descriptor, -1));
        }
    }
}

void uninstall_watcher_t::_consume_on_quit() {
    if (_on_quit) {
        _on_quit();
        _on_quit = nullptr;
    }
}

void request_uninstall(const std::string& system_folder, const std::optional<std::string>& home) {
    if (is_directory(system_folder)) {
        const std::string path = system_folder + trigger_name;
        if (write_trigger(path)) {
            QLX_LOG_INFO("Wrote uninstall trigger (system): {}", path);
            return;
        }
        const int error = errno;
        QLX_LOG_ERROR("Cannot write system trigger ({}), errno={} — will try user dir", path,
                      error);
    }

    const std::string folder = (home ? *home : home_folder()) + user_support_folder;
    if (!is_directory(folder)) {
        mkdir(folder.c_str(), 0777);
        if (!is_directory(folder)) {
            QLX_LOG_ERROR("Failed to create user support dir for trigger: {}", folder);
            return;
        }
    }
    const std::string path = folder + trigger_name;
    if (touch_file(path)) {
        QLX_LOG_INFO("Wrote uninstall trigger (user): {}", path);
    }
}

bool touch_file(const std::string& path) {
    if (write_trigger(path)) {
        return true;
    }
    const int error = errno;
    QLX_LOG_ERROR("Failed to create trigger at {} (errno={})", path, error);
    return false;
}
