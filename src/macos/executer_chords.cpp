#include "macos/executer_chords.h"

#include <ApplicationServices/ApplicationServices.h>

#include <algorithm>
#include <utility>

#include "macos/cpf.h"
#include "macos/executer_keys.h"

namespace {

constexpr std::uint16_t no_key = 0xFFFF;  // stands for no key; no input has it

struct modifier_t {
    std::uint16_t code = 0;
    std::uint64_t mask = 0;
};

// A press that has been posted.
struct press_t {
    std::uint16_t code = 0;
    cpf_t<CGEventRef> event;
    bool owes_release = false;  // the system did not make it
};

void owe_release(std::vector<press_t>& presses, std::uint16_t code) {
    const auto press = std::find_if(presses.begin(), presses.end(), [code](const press_t& one) {
        return one.code == code && !one.owes_release;
    });
    if (press != presses.end()) {
        press->owes_release = true;
    }
}

}  // namespace

key_list_t split_key_list(const std::vector<input_value_e>& list) {
    key_list_t parts;
    for (const input_value_e input : list) {
        (is_modifier(input) ? parts.modifiers : parts.keys).push_back(input);
    }
    return parts;
}

std::vector<key_event_t> chord_events(const std::vector<input_value_e>& modifiers,
                                      const std::vector<input_value_e>& keys) {
    std::vector<modifier_t> held;
    for (const input_value_e input : modifiers) {
        if (const std::uint32_t key = input_to_vk(input); (key & vk_present) != 0) {
            held.push_back({static_cast<std::uint16_t>(key), modifier_mask(input)});
        }
    }
    std::vector<std::uint16_t> typed;
    for (const input_value_e input : keys) {
        if (const std::uint32_t key = input_to_vk(input); (key & vk_present) != 0) {
            typed.push_back(static_cast<std::uint16_t>(key));
        }
    }

    std::vector<key_event_t> events;
    events.reserve(2 * (held.size() + typed.size()));
    std::uint64_t flags = 0;
    for (const modifier_t& modifier : held) {
        flags |= modifier.mask;
        events.push_back({modifier.code, true, flags});
    }
    for (const std::uint16_t code : typed) {
        events.push_back({code, true, flags});
    }
    // The keys come up in the order in which they went down, as fingers roll over keys; only the
    // modifiers nest. Applications see this order, so it stays.
    for (const std::uint16_t code : typed) {
        events.push_back({code, false, flags});
    }
    // A modifier's own release still carries its flag, as its press does.
    for (auto modifier = held.rbegin(); modifier != held.rend(); ++modifier) {
        events.push_back({modifier->code, false, flags});
        flags &= ~modifier->mask;
    }
    return events;
}

void post_key_events(const std::vector<key_event_t>& events) {
    if (events.empty()) {
        return;
    }
    // Events can be made without a source too.
    const auto source = cpf_t<CGEventSourceRef>::adopt(
        CGEventSourceCreate(kCGEventSourceStateCombinedSessionState));
    if (source) {
        // Setting what was just read is no idle step: it pins the type, so that all events of the
        // chord carry the same one, whatever keyboard the user types on meanwhile.
        CGEventSourceSetKeyboardType(source.get(), CGEventSourceGetKeyboardType(source.get()));
    }
    std::vector<press_t> presses;
    presses.reserve(events.size());
    for (const key_event_t& key : events) {
        if (key.code == no_key) {
            continue;
        }
        auto event =
            cpf_t<CGEventRef>::adopt(CGEventCreateKeyboardEvent(source.get(), key.code, key.down));
        if (!event) {
            if (!key.down) {
                owe_release(presses, key.code);
            }
            continue;
        }
        CGEventSetFlags(event.get(), key.flags);
        CGEventPost(kCGSessionEventTap, event.get());
        if (key.down) {
            presses.push_back({key.code, std::move(event)});
        }
    }
    // The chord goes on without an event that the system does not make, but no key stays down for
    // that: the event of its press is there to release it. That of a modifier may be a change of
    // flags, which stays one.
    for (auto press = presses.rbegin(); press != presses.rend(); ++press) {
        if (press->owes_release) {
            if (CGEventGetType(press->event.get()) == kCGEventKeyDown) {
                CGEventSetType(press->event.get(), kCGEventKeyUp);
            }
            CGEventSetFlags(press->event.get(), 0);
            CGEventPost(kCGSessionEventTap, press->event.get());
        }
    }
}
