#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "quartz/event.h"

namespace simulator {

// The desktop's own thread, on which everything happens that the hand does, in order. It is started
// when it is needed.
class event_server_t {
  public:
    static event_server_t& instance();

    // Queues an action. Any thread; waits while stop() is under way.
    void carry_out(std::function<void()> action);

    // Whether everything queued has been carried out.
    bool idle() const;

    // Carries out what is queued and joins the thread. Any thread but that one.
    void stop();

  private:
    event_server_t() = default;
    void _run();

    std::mutex _life;  // of _thread; taken before _mutex
    std::thread _thread;

    mutable std::mutex _mutex;  // of the rest
    std::condition_variable _changed;
    std::deque<std::function<void()>> _actions;
    bool _busy = false;
    bool _stopping = false;
};

// Sends an event of the hardware on its way: taps, session, application. On the desktop's thread.
void send(const event_values_t& event);

// Runs `acts`, and sends only then, all at once, the events that they send. On the desktop's
// thread.
void send_together(const std::function<void()>& acts);

}  // namespace simulator
