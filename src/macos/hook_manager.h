#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "common/action.h"
#include "common/input/input_manager.h"
#include "common/input_value.h"
#include "common/worker.h"
#include "macos/executer.h"

struct mac_impl_t;

// Captures the input of the supported mice and performs what the user bound to it. One at a time in
// a process. It is built, used and destroyed on the thread whose run loop runs the daemon: the
// system's callbacks come from that run loop.
class hook_manager_t : public input_manager_t {
  public:
    // Installs the capture and starts the action worker. Throws std::runtime_error with a short
    // text when the capture cannot be set up, std::bad_alloc, and std::system_error when the worker
    // cannot start.
    hook_manager_t();
    // Performs the actions that are queued, then takes the capture down.
    ~hook_manager_t() override;
    hook_manager_t(const hook_manager_t&) = delete;
    hook_manager_t& operator=(const hook_manager_t&) = delete;

    // Decides on one captured input of the active model: true when its event is to be swallowed.
    // A press only holds the action bound for the application `process_name` (none: unknown); the
    // release runs what is held, for whatever application; a wheel step runs its action at once.
    // Only on the run loop's thread, and quick: a look-up and a queue push.
    bool process_event(input_value_e input, button_state_e state,
                       std::optional<std::string> process_name);

    // What the settings bind to the input for the active model and the application `process_name`
    // (none: the entry "default"); default_action_t when that is nothing.
    action_t resolve_action_for_process(input_value_e input,
                                        std::optional<std::string> process_name);

    // Queues one action for the worker. Any thread.
    void push_action(action_t action);

    // The model of the device that moved the pointer or sent a key last; the HID callback writes
    // it.
    static inline std::atomic<qlx_device_e> current_active_mouse{qlx_device_e::not_a_device};

  private:
    // The capture of the one hook manager; empty while there is none.
    static std::unique_ptr<mac_impl_t> _pimpl;

    executer_t _executer;  // stateless; only the worker's thread uses it
    worker_t<action_t> _worker;
};

// The hook manager, from the start of its construction to its end; otherwise null. For whoever has
// to reach it without having been handed it, a debugger first of all. Only on the run loop's
// thread.
extern hook_manager_t* hook_mng_access;
