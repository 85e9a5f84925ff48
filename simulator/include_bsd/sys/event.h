#pragma once

// Kernel event queues for hosts without them: the names, types and numbers that macOS has, for the
// watch over a directory.

#include <cstdint>
#include <ctime>

#pragma pack(push, 4)
struct kevent {
    std::uintptr_t ident;  // what is watched: a file descriptor
    std::int16_t filter;
    std::uint16_t flags;
    std::uint32_t fflags;  // of the filter: what is asked for, or what has happened
    std::intptr_t data;
    void* udata;  // comes back with the event
};
#pragma pack(pop)

#define EVFILT_VNODE (-4)

#define EV_ADD 0x0001
#define EV_ONESHOT 0x0010
#define EV_CLEAR 0x0020
#define EV_EOF 0x8000

#define NOTE_DELETE 0x00000001
#define NOTE_LINK 0x00000010
#define NOTE_RENAME 0x00000020
#define NOTE_REVOKE 0x00000040

// The function has the name of the structure, as on the platform.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"

extern "C" {

// A new queue, closed with close(), or -1 and errno. A close from another thread ends a wait at
// once with EBADF.
int kqueue();

// Registers `change_count` changes, then waits for at most `event_count` events. Returns how many
// events it stored, or -1 and errno. A null `timeout` waits without end.
int kevent(int queue, const struct kevent* changes, int change_count, struct kevent* events,
           int event_count, const struct timespec* timeout);

}  // extern "C"

#pragma GCC diagnostic pop
