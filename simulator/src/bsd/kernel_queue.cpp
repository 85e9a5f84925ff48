#include <fcntl.h>
#include <poll.h>
#include <sys/event.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "control/kernel_queue.h"
#include "core/failure.h"

namespace simulator {
namespace {

class descriptor_t {
  public:
    explicit descriptor_t(int number) : _number(number) {}
    descriptor_t(descriptor_t&& other) noexcept : _number(std::exchange(other._number, -1)) {}
    descriptor_t& operator=(descriptor_t&&) = delete;
    ~descriptor_t() {
        if (_number >= 0) {
            ::close(_number);
        }
    }

    int get() const { return _number; }
    int release() { return std::exchange(_number, -1); }
    explicit operator bool() const { return _number >= 0; }

  private:
    int _number;
};

// What a number that the caller gave stands for; nothing when it is closed. Another thread may
// close it at any time, which is allowed here: statx, since the thread sanitizer takes fstat for a
// use of the descriptor that must not meet its close.
std::optional<struct statx> described(int number) {
    struct statx description {};
    const unsigned wanted = STATX_TYPE | STATX_INO | STATX_NLINK | STATX_MNT_ID;
    if (statx(number, "", AT_EMPTY_PATH, wanted, &description) != 0) {
        return std::nullopt;
    }
    return description;
}

auto identity(const struct statx& description) {
    return std::tuple(description.stx_dev_major, description.stx_dev_minor, description.stx_ino,
                      description.stx_mnt_id);
}

bool mounted(std::uint64_t mount_id) {
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::uint64_t id = 0; mounts >> id;) {
        if (id == mount_id) {
            return true;
        }
        mounts.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return false;
}

struct change_t {
    int watch;
    std::uint32_t what;
    std::string name;  // of what it happened to, when that stands in the watched folder
};

// The watch over one directory, from its registration until the caller closes its descriptor.
class watch_t {
  public:
    watch_t(const struct kevent& wanted, const struct statx& directory)
        : _wanted(wanted), _directory(directory), _deleted(directory.stx_nlink == 0) {}

    // False, with errno, when the host refuses.
    bool start(int changes) {
        _self = inotify_add_watch(changes, _path().c_str(), IN_MOVE_SELF | IN_ONLYDIR);
        return _self >= 0 && _watch_parent(changes);
    }

    void stop(int changes) {
        inotify_rm_watch(changes, _self);
        inotify_rm_watch(changes, _parent);
    }

    // Whether the descriptor that was registered is still open.
    bool alive() const {
        const auto now = described(_number());
        return now && identity(*now) == identity(_directory);
    }

    // One reading of the host's notifications.
    void note_changes(int changes, const std::vector<change_t>& read) {
        for (const change_t& change : read) {
            if (change.watch == _self && (change.what & IN_MOVE_SELF) != 0) {
                _happened(NOTE_RENAME);
                _watch_parent(changes);
            }
        }
        const auto now = described(_number());
        if (!_deleted && now && now->stx_nlink == 0) {
            _deleted = true;
            const bool replaced = std::ranges::any_of(read, [&](const change_t& change) {
                return change.watch == _parent && (change.what & IN_MOVED_TO) != 0 &&
                       change.name + " (deleted)" == _last_name();
            });
            _happened(replaced ? NOTE_DELETE : NOTE_DELETE | NOTE_LINK);
        }
    }

    void note_mounts() {
        if (!_revoked && !mounted(_directory.stx_mnt_id)) {
            _revoked = true;
            _happened(NOTE_REVOKE);
        }
    }

    // What has happened since it was last taken, if anything. A revocation is told also to a caller
    // who did not ask for it, and is the last that is told.
    std::optional<struct kevent> take() {
        if ((_pending == 0 && !_revoked) || !alive()) {
            return std::nullopt;
        }
        struct kevent event = _wanted;
        event.fflags = std::exchange(_pending, 0);
        if (_revoked) {
            event.flags |= EV_EOF | EV_ONESHOT;
        }
        return event;
    }

  private:
    int _number() const { return static_cast<int>(_wanted.ident); }
    std::string _path() const { return "/proc/self/fd/" + std::to_string(_number()); }
    std::string _last_name() const {
        std::error_code ignored;
        return std::filesystem::read_symlink(_path(), ignored).filename();
    }
    // Told as a whole, also what was not asked for with the rest.
    void _happened(std::uint32_t what) {
        if ((what & _wanted.fflags) != 0) {
            _pending |= what;
        }
    }

    // The host tells of a directory's removal only when the last descriptor on it is closed, and
    // the caller keeps one. The folder above tells at once that something in it was removed or
    // replaced.
    bool _watch_parent(int changes) {
        if (_parent >= 0) {
            inotify_rm_watch(changes, _parent);
        }
        _parent = inotify_add_watch(changes, (_path() + "/..").c_str(),
                                    IN_DELETE | IN_MOVED_TO | IN_ONLYDIR | IN_MASK_ADD);
        return _parent >= 0;
    }

    const struct kevent _wanted;
    const struct statx _directory;
    int _self = -1;
    int _parent = -1;
    std::uint32_t _pending = 0;
    bool _deleted;
    bool _revoked = false;
};

// The caller's queue is one end of a pair of sockets. A wait sleeps on the other end as well, which
// the host wakes when the caller closes its own; nothing else comes through the pair.
class queue_t {
  public:
    queue_t(descriptor_t other_end, descriptor_t changes, descriptor_t mounts)
        : _other_end(std::move(other_end)),
          _changes(std::move(changes)),
          _mounts(std::move(mounts)) {}

    // As kevent() for one change.
    int add(const struct kevent& change) {
        constexpr std::uint32_t modelled = NOTE_DELETE | NOTE_RENAME | NOTE_REVOKE;
        if (change.filter != EVFILT_VNODE || change.flags != (EV_ADD | EV_CLEAR) ||
            (change.fflags & ~modelled) != 0 || change.data != 0) {
            not_modelled("kevent",
                         "a change other than adding, with EV_CLEAR, a watch for "
                         "deletion, renaming or revocation");
        }
        const auto directory = described(static_cast<int>(change.ident));
        if (!directory) {
            errno = EBADF;
            return -1;
        }
        if (!S_ISDIR(directory->stx_mode)) {
            not_modelled("kevent", "watching something that is not a directory");
        }
        if (!mounted(directory->stx_mnt_id)) {
            errno = ENOENT;
            return -1;
        }
        const std::lock_guard lock(_mutex);
        if (_watch && _watch->alive()) {
            not_modelled("kevent", "a second watch on a queue");
        }
        _forget_watch();
        _watch.emplace(change, *directory);
        if (!_watch->start(_changes.get())) {
            const int reason = errno;
            _forget_watch();
            errno = reason;
            return -1;
        }
        // What happened between the look at the directory and the start of the watch.
        _watch->note_changes(_changes.get(), {});
        return 0;
    }

    // As kevent() for one event without a time-out.
    int wait(struct kevent& event) {
        while (!_take(event)) {
            pollfd sources[] = {
                {_other_end.get(), 0, 0}, {_changes.get(), POLLIN, 0}, {_mounts.get(), POLLPRI, 0}};
            if (::poll(sources, std::size(sources), -1) < 0) {
                return -1;
            }
            if (sources[0].revents != 0) {
                errno = EBADF;
                return -1;
            }
            const std::lock_guard lock(_mutex);
            const auto changes = _read_changes();
            if (_watch) {
                _watch->note_changes(_changes.get(), changes);
                if (sources[2].revents != 0) {
                    _watch->note_mounts();
                }
            }
        }
        return 1;
    }

    bool closed_by_caller() const {
        pollfd source{_other_end.get(), 0, 0};
        return ::poll(&source, 1, 0) > 0;
    }

  private:
    bool _take(struct kevent& event) {
        const std::lock_guard lock(_mutex);
        const auto taken = _watch ? _watch->take() : std::nullopt;
        if (taken) {
            event = *taken;
            if ((event.flags & EV_ONESHOT) != 0) {
                _forget_watch();
            }
        }
        return taken.has_value();
    }

    std::vector<change_t> _read_changes() {
        std::vector<change_t> changes;
        alignas(inotify_event) std::byte buffer[4096];
        for (ssize_t size = 0; (size = ::read(_changes.get(), buffer, sizeof(buffer))) > 0;) {
            for (ssize_t at = 0; at < size;) {
                const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
                changes.push_back({event.wd, event.mask, event.len > 0 ? event.name : ""});
                at += static_cast<ssize_t>(sizeof(event) + event.len);
            }
        }
        return changes;
    }

    void _forget_watch() {
        if (_watch) {
            _watch->stop(_changes.get());
            _watch.reset();
        }
    }

    const descriptor_t _other_end;
    const descriptor_t _changes;
    const descriptor_t _mounts;
    std::mutex _mutex;
    std::optional<watch_t> _watch;
};

// The queues by the inode of the caller's end, which no other open descriptor has: a number that
// was closed and given out again is not mistaken for the queue.
struct queues_t {
    std::mutex mutex;
    std::map<std::uint64_t, std::shared_ptr<queue_t>> by_inode;
};

queues_t& queues() {
    static auto* const all = new queues_t;  // waited on by threads that may outlive static objects
    return *all;
}

std::shared_ptr<queue_t> queue_of(int number) {
    const auto end = described(number);
    if (!end || !S_ISSOCK(end->stx_mode)) {
        return nullptr;
    }
    const std::lock_guard lock(queues().mutex);
    const auto found = queues().by_inode.find(end->stx_ino);
    return found == queues().by_inode.end() ? nullptr : found->second;
}

void free_closed_queues() {
    std::vector<std::shared_ptr<queue_t>> closed;
    const std::lock_guard lock(queues().mutex);
    std::erase_if(queues().by_inode, [&](const auto& entry) {
        if (!entry.second->closed_by_caller()) {
            return false;
        }
        closed.push_back(entry.second);
        return true;
    });
}

int make_queue() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return -1;
    }
    descriptor_t callers_end(ends[0]);
    descriptor_t other_end(ends[1]);
    descriptor_t changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!changes) {
        return -1;
    }
    descriptor_t mounts(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    const auto identity = described(callers_end.get());
    if (!mounts || !identity) {
        return -1;
    }
    auto queue =
        std::make_shared<queue_t>(std::move(other_end), std::move(changes), std::move(mounts));
    const std::lock_guard lock(queues().mutex);
    queues().by_inode.insert_or_assign(identity->stx_ino, std::move(queue));
    return callers_end.release();
}

}  // namespace

std::size_t kernel_queues_open() {
    free_closed_queues();
    const std::lock_guard lock(queues().mutex);
    return queues().by_inode.size();
}

}  // namespace simulator

extern "C" {

int kqueue() {
    if (simulator::shall_fail("kqueue")) {
        errno = EMFILE;
        return -1;
    }
    simulator::free_closed_queues();
    return simulator::make_queue();
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"  // the function has the name of the structure

int kevent(int queue, const struct kevent* changes, int change_count, struct kevent* events,
           int event_count, const struct timespec* timeout) {
    if (simulator::shall_fail("kevent")) {
        errno = ENOMEM;
        return -1;
    }
    const auto found = simulator::queue_of(queue);
    if (!found) {
        errno = EBADF;
        return -1;
    }
    if (timeout == nullptr && changes != nullptr && change_count == 1 && event_count == 0) {
        return found->add(*changes);
    }
    if (timeout == nullptr && change_count == 0 && events != nullptr && event_count == 1) {
        const int count = found->wait(*events);
        if (count < 0) {
            const int reason = errno;
            simulator::free_closed_queues();
            errno = reason;
        }
        return count;
    }
    simulator::not_modelled("kevent",
                            "anything but one change, or the wait for one event without "
                            "a time-out");
}

#pragma GCC diagnostic pop

}  // extern "C"
