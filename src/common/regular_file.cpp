#include "common/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace {

[[noreturn]] void fail(const char* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

// Why an open file is not taken; 0 when it is.
int refusal(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        return errno;
    }
    if (S_ISREG(status.st_mode)) {
        return 0;
    }
    return S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP;
}

}  // namespace

void descriptor_t::close() {
    if (is_open()) {
        ::close(std::exchange(_number, -1));
    }
}

// Looked at once it is open: what a look at the path sees could be replaced before the opening.
descriptor_t open_regular_file(const std::string& path, int flags, mode_t mode) {
    const int descriptor = open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode);
    if (descriptor < 0) {
        return descriptor_t(-1);
    }
    if (const int reason = refusal(descriptor); reason != 0) {
        close(descriptor);
        errno = reason;
        return descriptor_t(-1);
    }
    return descriptor_t(descriptor);
}

std::string read_file(const descriptor_t& file, std::size_t limit) {
    std::string text;
    std::string chunk(std::size_t{8} * 1024, '\0');
    while (text.size() <= limit) {
        const ssize_t size = read(file.get(), chunk.data(), chunk.size());
        if (size == 0) {
            break;
        }
        if (size > 0) {
            text.append(chunk, 0, static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            fail("read");
        }
    }
    return text;
}

void write_file(const descriptor_t& file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t size = write(file.get(), content.data(), content.size());
        if (size >= 0) {
            content.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            fail("write");
        }
    }
}
