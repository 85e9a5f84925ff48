#include "failures/failing_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <utility>

#include "control/objects.h"

namespace {

thread_local int g_test_s_own = 0;

struct commands_t {
    std::mutex mutex;
    std::vector<std::string> all;
};

commands_t& commands() {
    static auto* const all = new commands_t;
    return *all;
}

struct next_read_t {
    std::mutex mutex;
    std::function<void()> what;
};

next_read_t& next_read() {
    static auto* const next = new next_read_t;
    return *next;
}

// True, with errno, when the call is to fail.
bool fails(const char* function, int error) {
    if (g_test_s_own > 0) {
        return false;
    }
    const failing_calls::test_s_own_t asking;
    if (!simulator::shall_fail(function)) {
        return false;
    }
    errno = error;
    return true;
}

// The library's own function of that name.
template <typename function_t>
function_t* next(function_t* /*of this type*/, const char* name) {
    return reinterpret_cast<function_t*>(dlsym(RTLD_NEXT, name));
}

// The desktop reads what its own files tell, the daemon files of the disk.
bool is_on_disk(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

void take_time() {
    std::function<void()> what;
    {
        const std::lock_guard lock(next_read().mutex);
        what = std::exchange(next_read().what, {});
    }
    if (what) {
        const failing_calls::test_s_own_t own;
        what();
    }
}

}  // namespace

namespace failing_calls {

test_s_own_t::test_s_own_t() {
    ++g_test_s_own;
}

test_s_own_t::~test_s_own_t() {
    --g_test_s_own;
}

void during_next_read(std::function<void()> what) {
    const std::lock_guard lock(next_read().mutex);
    next_read().what = std::move(what);
}

std::vector<std::string> shell_commands() {
    const std::lock_guard lock(commands().mutex);
    return commands().all;
}

}  // namespace failing_calls

extern "C" {

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (std::string_view(path).substr(0, 6) != "/proc/" && fails("open", EMFILE)) {
        return -1;
    }
    return next(&open, "open")(path, flags, mode);
}

ssize_t read(int file, void* buffer, size_t size) {
    if (g_test_s_own == 0 && is_on_disk(file)) {
        take_time();
        if (fails("read", EIO)) {
            return -1;
        }
    }
    return next(&read, "read")(file, buffer, size);
}

ssize_t write(int file, const void* data, size_t size) {
    return is_on_disk(file) && fails("write", ENOSPC) ? -1
                                                      : next(&write, "write")(file, data, size);
}

int fsync(int file) {
    return fails("fsync", EIO) ? -1 : next(&fsync, "fsync")(file);
}

int flock(int file, int operation) noexcept {
    return fails("flock", ENOLCK) ? -1 : next(&flock, "flock")(file, operation);
}

int rename(const char* from, const char* to) noexcept {
    return fails("rename", EIO) ? -1 : next(&rename, "rename")(from, to);
}

int stat(const char* path, struct stat* status) noexcept {
    return fails("stat", EACCES) ? -1 : next(&stat, "stat")(path, status);
}

int mkdir(const char* path, mode_t mode) noexcept {
    return fails("mkdir", ENOSPC) ? -1 : next(&mkdir, "mkdir")(path, mode);
}

FILE* fopen(const char* path, const char* mode) {
    return fails("fopen", EMFILE) ? nullptr : next(&fopen, "fopen")(path, mode);
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* file) {
    return is_on_disk(fileno(file)) && fails("fwrite", ENOSPC)
               ? 0
               : next(&fwrite, "fwrite")(data, size, count, file);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    // Answers its error, and leaves errno alone.
    return fails("pthread_create", errno)
               ? EAGAIN
               : next(&pthread_create, "pthread_create")(thread, attributes, start, argument);
}

int system(const char* command) {
    if (fails("system", ENOMEM)) {
        return -1;
    }
    const std::lock_guard lock(commands().mutex);
    commands().all.emplace_back(command);
    return 0;
}

}  // extern "C"
