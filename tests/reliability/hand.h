#pragma once

#include <nlohmann/json.hpp>

#include "macos/executer_keys.h"
#include "support/supported_mouse.h"
#include "support/test.h"

// What the inputs 3 to 9 do there: a letter is a chord with a key of its own, so that the keys on
// the desktop tell which it was; a capital one is that of the default bindings; 0 does nothing.
struct place_t {
    const char* application;
    CGPoint at;
    const char* bindings;
};
inline constexpr std::array<place_t, 5> places{{{"Mail", {100, 100}, "0ef--gD"},
                                                {"Photos", {600, 100}, "hiC---D"},
                                                {"Help", {100, 600}, "jkl---D"},
                                                {"nobody", {900, 900}, "ABC---D"},
                                                {"Default", {}, "abc---d"}}};
inline constexpr std::size_t helper = 2;
inline constexpr std::size_t default_place = 4;  // which is none

// After every other reload each is another letter, with another key.
inline constexpr char second_letters = 12;

inline char letter_of(char binding, bool second) {
    const bool moves = second && std::isalpha(binding) != 0;
    return static_cast<char>(std::tolower(binding) + (moves ? second_letters : 0));
}

inline std::uint32_t key_of(char letter) {
    return static_cast<std::uint32_t>(
        letter < 'a' + second_letters ? 106 + letter - 'a' : 191 + letter - 'a' - second_letters);
}

// What comes on the desktop of a letter: Command, and its key.
inline std::string chord(char letter) {
    const auto input = static_cast<input_value_e>(key_of(letter));
    const std::string key = std::to_string(input_to_vk(input) & 0xFFFFU);
    return "+55 +" + key + " -" + key + " -55 ";
}

inline std::string settings(bool second) {
    nlohmann::json apps;
    for (const place_t& place : places) {
        for (std::uint32_t input = 3; input <= 9; ++input) {
            const char binding = place.bindings[input - 3];
            auto& list = apps[place.application][std::to_string(input)] = nlohmann::json::array();
            if (std::islower(binding) != 0) {
                const nlohmann::json keys{146, key_of(letter_of(binding, second))};  // with Command
                list.push_back({{"action", 22}, {"params", {{"combination", keys}}}});
            } else if (std::isdigit(binding) != 0) {
                list.push_back({{"action", 0}});
            }
        }
    }
    return nlohmann::json{{"appState", {{{"type", 1}, {"appConfigs", apps}}}}}.dump();
}

// A hand that never rests, and what the daemon must make of what it does.
class hand_t {
  public:
    struct means_t {
        std::function<unsigned()> choose;
        simulator::run_loop_e run_loop;  // of its thread, when it waits
        std::function<void(const std::string&)> reload;
        bool reloads_at_once;  // before it returns
    };

    explicit hand_t(means_t means) : _means(std::move(means)) {
        _open(0, "Mail");
        _open(1, "My Photos");              // found by a part of its name
        _open(helper, "Help for Photos ");  // by its beginning, though a part would be longer
        _foreign = simulator::connect(
            {.name = "Foreign", .vendor_id = 0xE7D4, .keyboard = simulator::keyboard_pairs});
        _connect_mouse();
    }
    // Leaves nothing behind.
    ~hand_t() {
        for (const auto& [place, application] : _applications) {
            simulator::quit_application(application);
        }
        simulator::disconnect(_mouse);
        simulator::disconnect(_foreign);
        EXPECT_TRUE(simulator::settle(_means.run_loop));
        EXPECT_TRUE(simulator::events().empty()) << "more than its batches expected";
    }

    // Does something so many times and looks at what has come of it.
    void play_batch(unsigned acts, bool with_reload) {
        ++_batches;
        simulator::quit_application(_applications[helper]);
        _open(helper, "Help for Photos " + std::to_string(_batches));
        if (_any(48) == 16) {
            _plug_another_in();
        }
        _go(_any(default_place));
        _act(acts);
        _settle();
        if (with_reload && !_reload_awaited) {
            _means.reload(settings(!_second));
            _reload_awaited = true;
        }
    }

    std::size_t events = 0;    // that it has caused
    std::size_t survived = 0;  // of them, in batches in which all have the fate that they must have
    std::size_t reloads = 0;   // that it has seen come
    std::size_t changes = 0;   // of the mouse

  private:
    void _open(std::size_t place, const std::string& name) {
        const CGPoint at = places[place].at;
        _applications[place] = simulator::launch_application(name);
        simulator::open_window(_applications[place], name, {{at.x - 50, at.y - 50}, {100, 100}});
    }

    void _connect_mouse() {
        _mouse = connect_supported(_any(device_mappings.size()), simulator::key_page_pairs);
    }

    // One of `count` choices.
    unsigned _any(std::size_t count) { return static_cast<unsigned>(_means.choose() % count); }

    void _go(std::size_t place) { simulator::move_to(_mouse, places[_place = place].at); }

    // What the input does here; '-' for nothing. Its events are all swallowed or all delivered.
    char _bound(std::uint32_t input) const {
        return input == 0 ? '-' : letter_of(places[_place].bindings[input - 3], _second);
    }
    void _expect(char binding) { _fates += binding != '-' ? 's' : 'd'; }
    void _run(char binding) {
        _expect(binding);
        _letters += std::islower(binding) != 0 ? std::string(1, binding) : "";
    }

    // One of the buttons, or of the keys that stand for the first side button: 6 is such a key.
    // Between the halves it does something else, or the same.
    void _click(std::uint32_t button, unsigned acts) {
        const bool types = button == 6;
        const std::uint32_t input = types ? 4 : button >= 2 && button <= 4 ? button + 1 : 0;
        types ? simulator::press_key(_mouse, 33) : simulator::press(_mouse, button);
        _expect(_held[input] = _bound(input));
        _act(acts);
        types ? simulator::release_key(_mouse, 33) : simulator::release(_mouse, button);
        _run(_held[input]);
    }
    void _step_wheel(int vertical, int horizontal) {
        simulator::scroll(_mouse, vertical, horizontal);
        _run(_bound(vertical != 0 ? 0 : horizontal < 0 ? 8 : 9));
    }

    void _act(unsigned times) {
        for (; times > 0; --times) {
            _act();
        }
    }
    void _act() {
        switch (_any(10)) {
            case 0:
                return _go(_any(default_place));
            case 1: {
                const auto vertical = static_cast<int>(_any(2));
                return _step_wheel(vertical, _any(2) == 0 ? 1 : -1);
            }
            case 2:
                simulator::scroll(_foreign,
                                  {.line_axis_2 = 1, .point_axis_2 = 1, .continuous = true});
                return _expect('-');
            case 3:
                simulator::press_key(_foreign, 33);
                simulator::repeat_key(_mouse, 33);
                simulator::drag(_mouse, 3, 1, 0);
                _fates += "ddd";
                return _go(_place);
            case 4:
                _use_foreign_mouse(_foreign);
                return _go(_place);
            case 5:
                if (_means.reloads_at_once) {
                    EXPECT_TRUE(simulator::settle(_means.run_loop));  // what was done comes before
                    _second = !_second;
                    return _means.reload(settings(_second));
                }
                [[fallthrough]];
            default: {
                const unsigned button = _any(7);
                return _click(button, _any(3));
            }
        }
    }

    // Its clicks are its own.
    void _use_foreign_mouse(simulator::device_id_t clicking) {
        simulator::move(_foreign, 0, 0);
        simulator::press(clicking, 3);
        simulator::release(clicking, 3);
        _fates += "dd";
    }

    // While Input Monitoring is missing, a mouse that comes is not heard, and so not the active
    // one.
    void _plug_another_in() {
        ++changes;
        simulator::disconnect(_mouse);
        simulator::revoke(simulator::permission_e::input_monitoring);
        _connect_mouse();
        _use_foreign_mouse(_mouse);
        simulator::disconnect(_mouse);
        EXPECT_TRUE(simulator::settle(_means.run_loop));
        simulator::grant(simulator::permission_e::input_monitoring);
        _connect_mouse();
        EXPECT_TRUE(simulator::settle(_means.run_loop));
    }

    // What has come of the batch: fates, and whole chords in order. Until a reload is through,
    // either key may come; from the batch on after the first new one, only that. A button that was
    // pressed before it brings the old one later.
    void _settle() {
        EXPECT_TRUE(simulator::settle(_means.run_loop));
        EXPECT_TRUE(simulator::wait_for_posted(_letters.size() * 4));
        std::string fates;
        std::string keys;
        for (const auto& event : simulator::events()) {
            if (event.origin == simulator::event_origin_e::posted) {
                keys += (event.type == kCGEventKeyDown ? "+" : "-") +
                        std::to_string(event.key_code) + " ";
            } else {
                fates += event.outcome == simulator::event_outcome_e::swallowed ? 's' : 'd';
            }
        }
        simulator::forget_events();
        EXPECT_EQ(fates, _fates) << "batch " << _batches;
        bool reloaded = false;
        std::string wanted;
        for (const char letter : _letters) {
            const std::string other = chord(letter + (_second ? -second_letters : second_letters));
            const bool is_new = _reload_awaited && wanted.size() < keys.size() &&
                                keys.compare(wanted.size(), other.size(), other) == 0;
            reloaded = reloaded || is_new;
            wanted += is_new ? other : chord(letter);
        }
        EXPECT_EQ(keys, wanted) << "batch " << _batches;
        if (reloaded) {
            _second = !_second;
            _reload_awaited = false;
            ++reloads;
        }
        events += _fates.size();
        survived += fates == _fates ? _fates.size() : 0;
        _fates.clear();
        _letters.clear();
    }

    const means_t _means;
    simulator::device_id_t _mouse = 0;
    simulator::device_id_t _foreign = 0;
    std::map<std::size_t, pid_t> _applications;  // by their places
    std::size_t _place = 0;
    std::array<char, 10> _held{};  // by input
    std::string _fates;            // of this batch's events, in order
    std::string _letters;          // of this batch's chords, in order
    bool _second = false;          // which of the settings hold
    bool _reload_awaited = false;
    std::size_t _batches = 0;
};
