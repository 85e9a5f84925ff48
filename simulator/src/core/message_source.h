#pragma once

#include <CoreFoundation/CFRunLoop.h>

#include <functional>
#include <memory>

namespace simulator {

// How the desktop reaches a program: messages that a thread of the desktop posts, and that the run
// loop of the program's thread takes, oldest first over all sources of its mode. This is what
// stands behind a mach port or a scheduled HID manager. All member functions: any thread.
class message_source_t : public std::enable_shared_from_this<message_source_t> {
  public:
    using message_t = std::function<void()>;

    static std::shared_ptr<message_source_t> make();

    // Queues a message; the run loop that takes it calls it on its own thread with no lock held.
    // Returns false, and drops the message, when the source has been closed.
    bool post(message_t message);

    // Drops what is queued and refuses what comes. A message that is running goes on. Run loops
    // forget the source.
    void close();

    // Adds the source to a mode of a run loop (kCFRunLoopDefaultMode or kCFRunLoopCommonModes; any
    // other name ends the program), or removes it. Adding twice is adding once.
    void add_to(CFRunLoopRef loop, CFRunLoopMode mode, const char* function);
    void remove_from(CFRunLoopRef loop, CFRunLoopMode mode, const char* function);

    // Whether it is in a mode that some run loop runs or could run.
    bool scheduled() const;

    // Messages queued or being called at this moment.
    std::size_t pending() const;

    struct state_t;
    const std::shared_ptr<state_t>& state() const { return _state; }

  private:
    explicit message_source_t(std::shared_ptr<state_t> state);
    std::shared_ptr<state_t> _state;
};

}  // namespace simulator
