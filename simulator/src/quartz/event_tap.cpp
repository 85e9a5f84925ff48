#include "quartz/event_tap.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "core/calls.h"
#include "core/failure.h"
#include "core/permissions.h"
#include "core_foundation/mach_port.h"

namespace simulator {
namespace {

struct tap_t {
    CGEventMask mask = 0;
    CGEventTapCallBack callback = nullptr;
    void* user_info = nullptr;
    std::shared_ptr<message_source_t> messages;
    std::atomic<bool> enabled{true};
    // Disabled by a lost permission, of which the program is told with the next event.
    std::atomic<bool> to_be_told{false};

    CGEventRef call(CGEventType type, CGEventRef event) {
        return callback(reinterpret_cast<CGEventTapProxy>(this), type, event, user_info);
    }
};

// One event before one tap: the desktop's thread waits, the program's thread answers.
class question_t {
  public:
    using answer_t = std::optional<event_values_t>;  // nothing: swallowed

    // Only the first answer counts, and none that comes too late.
    void answer(const answer_t& what) {
        const std::lock_guard lock(_mutex);
        if (!_answer) {
            _answer = what;
            _answered.notify_one();
        }
    }

    // Nothing when the answer took too long.
    std::optional<answer_t> wait_for_answer(std::chrono::milliseconds patience) {
        std::unique_lock lock(_mutex);
        _answered.wait_for(lock, patience, [this] { return _answer.has_value(); });
        return _answer;
    }

  private:
    std::mutex _mutex;
    std::condition_variable _answered;
    std::optional<answer_t> _answer;
};

// Holds the program's thread in a callback, as a slow program does itself.
class hold_t {
  public:
    void hold_next() {
        const std::lock_guard lock(_mutex);
        _state = state_e::next;
    }

    void let_go() {
        const std::lock_guard lock(_mutex);
        _state = state_e::none;
        _let_go.notify_all();
    }

    void at_end_of_callback(std::chrono::milliseconds at_most) {
        std::unique_lock lock(_mutex);
        if (_state == state_e::next) {
            _state = state_e::holding;
            _let_go.wait_for(lock, at_most, [this] { return _state != state_e::holding; });
        }
    }

  private:
    enum class state_e { none, next, holding };

    std::mutex _mutex;
    std::condition_variable _let_go;
    state_e _state = state_e::none;
};

// What the hand can do; a tap that asks for more would wait for it in vain.
constexpr CGEventMask types_of_the_hand =
    CGEventMaskBit(kCGEventLeftMouseDown) | CGEventMaskBit(kCGEventLeftMouseUp) |
    CGEventMaskBit(kCGEventLeftMouseDragged) | CGEventMaskBit(kCGEventRightMouseDown) |
    CGEventMaskBit(kCGEventRightMouseUp) | CGEventMaskBit(kCGEventRightMouseDragged) |
    CGEventMaskBit(kCGEventOtherMouseDown) | CGEventMaskBit(kCGEventOtherMouseUp) |
    CGEventMaskBit(kCGEventOtherMouseDragged) | CGEventMaskBit(kCGEventMouseMoved) |
    CGEventMaskBit(kCGEventScrollWheel) | CGEventMaskBit(kCGEventKeyDown) |
    CGEventMaskBit(kCGEventKeyUp) | CGEventMaskBit(kCGEventFlagsChanged);

void notify(const std::shared_ptr<tap_t>& tap, CGEventType reason) {
    tap->messages->post([tap, reason] { tap->call(reason, nullptr); });
}

void disable_late(tap_t& tap) {
    if (tap.enabled.exchange(false)) {
        tap.to_be_told = true;
    }
}

class taps_t {
  public:
    static taps_t& instance() {
        // Never destroyed: the desktop's thread goes on until the process is gone.
        static taps_t& taps = *new taps_t;
        return taps;
    }

    void add(std::shared_ptr<tap_t> tap) {
        const std::lock_guard lock(_mutex);
        _taps.insert(_taps.begin(), std::move(tap));
    }

    void remove(const tap_t* tap) {
        const std::lock_guard lock(_mutex);
        _taps.erase(std::remove_if(_taps.begin(), _taps.end(),
                                   [tap](const auto& one) { return one.get() == tap; }),
                    _taps.end());
    }

    std::vector<std::shared_ptr<tap_t>> all() const {
        const std::lock_guard lock(_mutex);
        return _taps;
    }

    void disable_all() const {
        for (const auto& tap : all()) {
            disable_late(*tap);
        }
    }

    std::atomic<std::chrono::milliseconds> patience{std::chrono::seconds(1)};
    hold_t hold;

  private:
    taps_t() {
        on_permission_change([this](permission_e permission, bool is_granted) {
            if (permission == permission_e::accessibility && !is_granted) {
                disable_all();
            }
        });
    }

    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<tap_t>> _taps;
};

// On the program's thread: the event is lent to the callback.
question_t::answer_t answer_of(tap_t& tap, const event_values_t& event) {
    constexpr auto function = "an event tap's callback";
    const CGEventRef lent = publish_event(event, function);
    const CGEventRef returned = tap.call(event.type, lent);
    if (returned != nullptr && returned != lent) {
        not_modelled(function, "another event than it was given is returned");
    }
    question_t::answer_t answer;
    if (returned != nullptr) {
        answer = object_of<event_t>(lent, function).values;
    }
    release(lent, function);
    return answer;
}

// The way of one event through the taps.
class passage_t {
  public:
    // Puts the event to the first of the taps that is to see it.
    passage_t(std::vector<std::shared_ptr<tap_t>> taps, const event_values_t& event)
        : _taps(std::move(taps)), _event(event) {
        _ask_next();
    }

    // Waits for each answer as long as the patience lasts.
    question_t::answer_t result() {
        while (_asked != nullptr) {
            if (const auto answer = _question->wait_for_answer(taps_t::instance().patience)) {
                if (!*answer) {
                    return std::nullopt;
                }
                _event = **answer;
            } else if (_asked->enabled.exchange(false)) {
                notify(_asked, kCGEventTapDisabledByTimeout);
            }
            _ask_next();
        }
        return _event;
    }

  private:
    void _ask_next() {
        for (_asked = nullptr; _asked == nullptr && _next < _taps.size(); ++_next) {
            const auto& tap = _taps[_next];
            if ((tap->mask & CGEventMaskBit(_event.type)) == 0) {
                continue;
            }
            if (tap->to_be_told.exchange(false)) {
                notify(tap, kCGEventTapDisabledByUserInput);
            }
            if (tap->enabled) {
                _asked = tap;
                _ask();
            }
        }
    }

    void _ask() {
        _question = std::make_shared<question_t>();
        // A tap that goes away drops its messages: nobody waits for those.
        const std::shared_ptr<void> dropped(
            nullptr, [question = _question, event = _event](void*) { question->answer(event); });
        _asked->messages->post([tap = _asked, event = _event, question = _question, dropped] {
            const auto answer = answer_of(*tap, event);
            taps_t& taps = taps_t::instance();
            taps.hold.at_end_of_callback(taps.patience.load() * 10);
            question->answer(answer);
        });
    }

    std::vector<std::shared_ptr<tap_t>> _taps;
    std::size_t _next = 0;
    std::shared_ptr<tap_t> _asked;  // null: no tap is to see it any more
    std::shared_ptr<question_t> _question;
    event_values_t _event;
};

}  // namespace

void pass_taps(const std::vector<event_values_t>& events,
               const std::function<void(std::size_t, const std::optional<event_values_t>&)>& then) {
    std::vector<passage_t> passages;
    passages.reserve(events.size());
    for (const event_values_t& event : events) {
        passages.emplace_back(taps_t::instance().all(), event);
    }
    for (std::size_t index = 0; index < passages.size(); ++index) {
        then(index, passages[index].result());
    }
}

std::vector<std::shared_ptr<message_source_t>> tap_messages() {
    std::vector<std::shared_ptr<message_source_t>> messages;
    for (const auto& tap : taps_t::instance().all()) {
        messages.push_back(tap->messages);
    }
    return messages;
}

std::size_t taps_alive() {
    return taps_t::instance().all().size();
}

std::size_t taps_enabled() {
    const auto taps = taps_t::instance().all();
    return static_cast<std::size_t>(std::count_if(
        taps.begin(), taps.end(), [](const auto& tap) { return tap->enabled.load(); }));
}

void set_tap_patience(std::chrono::milliseconds patience) {
    taps_t::instance().patience = patience;
}

void hold_next_tap_callback() {
    taps_t::instance().hold.hold_next();
}

void let_tap_callbacks_go() {
    taps_t::instance().hold.let_go();
}

}  // namespace simulator

using simulator::granted;
using simulator::mach_port_t;
using simulator::not_modelled;
using simulator::permission_e;
using simulator::tap_t;
using simulator::taps_t;

extern "C" {

CFMachPortRef CGEventTapCreate(CGEventTapLocation tap, CGEventTapPlacement place,
                               CGEventTapOptions options, CGEventMask eventsOfInterest,
                               CGEventTapCallBack callback, void* userInfo) {
    const simulator::call_t call(__func__);
    if (tap != kCGHIDEventTap) {
        not_modelled(__func__, "a location other than where the hardware's events enter");
    }
    if (place != kCGHeadInsertEventTap) {
        not_modelled(__func__, "a place other than the head");
    }
    if (options != kCGEventTapOptionDefault) {
        not_modelled(__func__, "options other than the default");
    }
    if ((eventsOfInterest & ~simulator::types_of_the_hand) != 0) {
        not_modelled(__func__, "a type of event that never comes here");
    }
    if (callback == nullptr) {
        simulator::misuse(__func__, "no callback");
    }
    taps_t& taps = taps_t::instance();
    if (simulator::shall_fail(__func__) || !granted(permission_e::accessibility)) {
        return nullptr;
    }
    const auto made = std::make_shared<tap_t>();
    made->mask = eventsOfInterest;
    made->callback = callback;
    made->user_info = userInfo;
    auto port = std::make_unique<mach_port_t>([&taps, made] { taps.remove(made.get()); });
    made->messages = port->messages();
    taps.add(made);
    if (!granted(permission_e::accessibility)) {
        // Revoked before the tap was in the list.
        simulator::disable_late(*made);
    }
    return static_cast<CFMachPortRef>(
        const_cast<void*>(simulator::publish(std::move(port), __func__)));
}

void CGEventTapEnable(CFMachPortRef tap, bool enable) {
    const simulator::call_t call(__func__);
    const auto& messages = simulator::object_of<mach_port_t>(tap, __func__).messages();
    for (const auto& one : taps_t::instance().all()) {
        if (one->messages == messages) {
            one->enabled = enable && granted(permission_e::accessibility);
        }
    }
}

}  // extern "C"
