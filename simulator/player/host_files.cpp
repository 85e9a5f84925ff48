#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstdlib>
#include <string>

#include "player/session.h"

// The daemon names places of a Mac's disk: /Applications and /Library. On a simulated desktop they
// stand in the folder of the desktop, and the user's home is where HOME says. The linker sends the
// daemon's calls of these functions here (--wrap); the system's libraries keep their own.

namespace {

std::string on_the_desktop(const char* path) {
    const char* const root = std::getenv(simulator::player::variable_root);
    const std::string given = path;
    const bool of_the_system =
        given.rfind("/Applications/", 0) == 0 || given.rfind("/Library/", 0) == 0;
    return root != nullptr && of_the_system ? root + given : given;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker asks for.
extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_stat(const char* path, struct stat* result);
int __real_mkdir(const char* path, mode_t mode);
passwd* __real_getpwuid(uid_t user);

int __wrap_open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        // Started in the line above, which clang 14 forgets when it reads the file a second time.
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return __real_open(on_the_desktop(path).c_str(), flags, mode);
}

int __wrap_stat(const char* path, struct stat* result) {
    return __real_stat(on_the_desktop(path).c_str(), result);
}

int __wrap_mkdir(const char* path, mode_t mode) {
    return __real_mkdir(on_the_desktop(path).c_str(), mode);
}

passwd* __wrap_getpwuid(uid_t user) {
    passwd* const entry = __real_getpwuid(user);
    char* const home = std::getenv("HOME");
    if (entry != nullptr && home != nullptr) {
        entry->pw_dir = home;
    }
    return entry;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
