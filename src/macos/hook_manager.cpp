#include "macos/hook_manager.h"

#include <utility>

#include "common/config/config.h"
#include "common/log/log.h"
#include "macos/hook_manager_impl.h"

hook_manager_t* hook_mng_access = nullptr;
std::unique_ptr<mac_impl_t> hook_manager_t::_pimpl;

namespace {

bool is_handled(const action_t& action) {
    return action.index() != 0;
}

std::unique_ptr<mac_impl_t> capture_for(hook_manager_t& owner) {
    auto capture = std::make_unique<mac_impl_t>(owner);
    try {
        capture->setup_hid_manager();
        capture->setup_event_tap();
        capture->setup_event_tap_keyboard();
    } catch (...) {
        // The daemon ends now and never runs its run loop again, so what the system has handed out
        // so far is not taken back and goes with the process; a tap is only disabled. The callbacks
        // still know this object though: while any of it stands, so does the object, cut off from
        // its owner.
        capture->abandon();
        if (capture->can_be_called_back()) {
            static_cast<void>(capture.release());
        }
        throw;
    }
    return capture;
}

}  // namespace

hook_manager_t::hook_manager_t() {
    hook_mng_access = this;
    try {
        _pimpl = capture_for(*this);
        _worker.start([this](const action_t& action) {
            QLX_LOG_INFO("Action {}", action_name(action));
            _executer.process_action(action);
        });
    } catch (...) {
        if (_pimpl != nullptr && _pimpl->owner == this) {
            _pimpl.reset();  // the worker could not start
        }
        hook_mng_access = nullptr;
        throw;
    }
}

hook_manager_t::~hook_manager_t() {
    // The reverse of the start: the worker, which still performs what is queued, then the capture.
    // Its callbacks may come until it is gone and use the base and the queue, so both outlive it;
    // an action that is queued this late goes with the queue.
    _worker.stop();
    std::exchange(_pimpl, nullptr).reset();
    hook_mng_access = nullptr;
}

bool hook_manager_t::process_event(input_value_e input, button_state_e state,
                                   std::optional<std::string> process_name) {
    // What a button does is decided by its press, for the application that the pointer is over
    // then, and done by its release, wherever that comes: so both halves of a click are swallowed
    // or both reach the application, as long as the same model stays active. The held action is
    // copied, not taken, so a release whose press was not seen runs what the button did last. An
    // action that does nothing is queued too: the log shows every release of a captured button.
    switch (state) {
        case button_state_e::released: {
            action_t action = get_action(current_active_mouse.load(), input);
            const bool swallow = is_handled(action);
            push_action(std::move(action));
            return swallow;
        }
        case button_state_e::instant: {
            action_t action = resolve_action_for_process(input, std::move(process_name));
            const bool swallow = is_handled(action);
            push_action(std::move(action));
            return swallow;
        }
        case button_state_e::pressed: {
            // An input that cannot be held (corvane_extra_key) is answered by its binding all the
            // same: bound, its press is swallowed here, while its release finds nothing held, so it
            // passes and nothing runs. Meant: only the inputs 1 to 9 can be held.
            action_t action = resolve_action_for_process(input, std::move(process_name));
            const bool swallow = is_handled(action);
            store_action(current_active_mouse.load(), input, std::move(action));
            return swallow;
        }
    }
    return false;  // a number that is no state
}

action_t hook_manager_t::resolve_action_for_process(input_value_e input,
                                                    std::optional<std::string> process_name) {
    const std::string name = process_name ? std::move(*process_name) : "default";
    return config_t::instance().retrieve_action(current_active_mouse.load(), input, name);
}

void hook_manager_t::push_action(action_t action) {
    _worker.push_event(std::move(action));
}
