// Every sequence of up to seven acts, on the real store, tables and queue, with stand-ins for the
// capture and the executer: a release runs what its last press held for the model in use; a press
// and its release are both swallowed or both pass while the model stays; a press queues nothing;
// what is queued is performed once, in order.

#include <sys/wait.h>

#include "common/config/config.h"
#include "common/log/log.h"
#include "macos/hook_manager.h"
#include "macos/hook_manager_impl.h"
#include "support/test.h"
#include "support/told_watcher.h"

namespace {

// What the executer was given, by its index in action_t.
using indices_t = std::vector<std::size_t>;
std::mutex gate;  // held while acts are done, so that they come faster than actions are performed
indices_t performed;

}  // namespace

mac_impl_t::mac_impl_t(hook_manager_t& hook_manager) : owner(&hook_manager) {}
mac_impl_t::~mac_impl_t() = default;
void mac_impl_t::setup_hid_manager() {}
void mac_impl_t::setup_event_tap() {}
void mac_impl_t::setup_event_tap_keyboard() {}
void mac_impl_t::abandon() {}
bool mac_impl_t::can_be_called_back() const {
    return false;
}
void executer_t::process_action(const action_t& action) const {
    const std::lock_guard lock(gate);
    performed.push_back(action.index());
}

namespace {

#if defined(__SANITIZE_THREAD__)
constexpr std::size_t longest = 5;  // acts: its threads are the same as with seven
#else
constexpr std::size_t longest = 7;
#endif

// Three reloads begin with bind.
enum act_e { press_1, release_1, press_2, release_2, wheel, bind, change = 8, unplug, move };
constexpr std::array names{"press x1",
                           "release x1",
                           "press x2",
                           "release x2",
                           "step the wheel",
                           "reload what binds",
                           "reload what rebinds",
                           "reload what unbinds",
                           "change the model",
                           "unplug and move another mouse",
                           "move to the other application"};

// 0: it has an answer; 1: it changes the settings. The others do not call the daemon, to which it
// is the same in which order and how often they come: they come once, in order and after reloads.
int group_of(std::size_t act) {
    return act <= wheel ? 0 : act < change ? 1 : act < move ? 2 : 3;
}

bool may_follow(std::size_t act, std::size_t last) {
    const int group = group_of(act);
    return group == 0 || group > group_of(last) || (group == 1 && group_of(last) == 1);
}

constexpr std::array models{qlx_device_e::not_a_device, qlx_device_e::valtor_pro,
                            qlx_device_e::corvane};
constexpr std::array applications{"Mail", "Photos"};
constexpr std::array inputs{input_value_e::x1_button, input_value_e::x2_button,
                            input_value_e::horizontal_scroll_positive};

// What binds, rebinds and unbinds: all of it different.
constexpr std::array texts{R"({"appState": [
    {"type": 1, "appConfigs": {"Mail": {"4": [{"action": 0}], "9": [{"action": 1}]},
                               "default": {"4": [{"action": 2}], "5": [{"action": 3}]}}},
    {"type": 2, "appConfigs": {"Mail": {"4": [{"action": 4}]},
                               "default": {"5": [{"action": 5}], "9": [{"action": 6}]}}}]})",
                           R"({"appState": [
    {"type": 1, "appConfigs": {"Mail": {"5": [{"action": 7}]},
                               "default": {"4": [{"action": 8}], "9": [{"action": 9}]}}},
    {"type": 2, "appConfigs": {"Mail": {"9": [{"action": 10}]},
                               "default": {"4": [{"action": 11}]}}}]})",
                           R"({"appState": [{"type": 1, "appConfigs": {}},
                 {"type": 2, "appConfigs": {}}]})"};

// The same, for each of the models in "Mail" and in "default": the action's index, one more than
// its code; 0 for an input that is not bound.
constexpr std::size_t bindings[texts.size()][models.size()][2][inputs.size()] = {
    {{}, {{1, 0, 2}, {3, 4, 0}}, {{5, 0, 0}, {0, 6, 7}}},
    {{}, {{0, 8, 0}, {9, 0, 10}}, {{0, 0, 11}, {12, 0, 0}}},
    {},
};

// The daemon's part and, beside it, what it must do. Built once in a process.
class course_t {
  public:
    explicit course_t(const temporary_home_t& home) : _home(home) {
        utils::set_all_log_level(spdlog::level::off);
        config_t::instance();
        _use(_now);
    }

    void play(const std::vector<std::size_t>& acts) {
        std::for_each(acts.begin(), acts.end(), [this](std::size_t act) { _do(act); });
        sequences = 1;
    }

    // Does every sequence of so many acts that ends with an answer. What they have in common at the
    // beginning is done once, and each act is taken back: what was held is put back as it was
    // found, settings are loaded again when they are asked.
    void explore(std::size_t length, std::size_t last = wheel) {
        for (std::size_t act = 0; act < names.size() && wrong.empty(); ++act) {
            // Settings that are in force are not reloaded: a reload comes of a change.
            if (!may_follow(act, last) || (length == 1 && group_of(act) != 0) ||
                act == bind + _now.settings) {
                continue;
            }
            const state_t before = _now;
            const bool presses = act == press_1 || act == press_2;
            const input_value_e input = inputs[presses ? act / 2 : 0];
            const action_t held =
                presses ? _hooks->get_action(models[_now.model], input) : action_t();
            _do(act);
            length > 1 ? explore(length - 1, act) : void(++sequences);
            if (presses) {
                _hooks->store_action(models[before.model], input, held);
            }
            _use(before);
        }
    }

    // Ends the daemon's part, which performs all that is queued, and looks at what that was.
    void end() {
        _closed.unlock();
        _hooks.reset();
        _must_be(performed == _expected,
                 "what a release or a step queues, and nothing else, is performed once, in order");
    }

    std::string wrong;  // empty while all is as it must be
    std::size_t sequences = 0;

  private:
    struct state_t {
        std::size_t settings = 0;
        std::size_t model = 1;
        std::size_t application = 0;
        std::array<std::array<std::size_t, inputs.size()>, models.size()> held{};
    };

    void _must_be(bool right, const char* what) {
        if (!right && wrong.empty()) {
            wrong = what;
        }
    }

    std::size_t _bound(std::size_t input) const {
        const auto& entries = bindings[_now.settings][_now.model];
        const std::size_t own = entries[_now.application][input];
        return own != 0 ? own : entries[1][input];
    }

    void _load(std::size_t settings) {
        told_watcher::tell(_home.path() / std::to_string(settings));
        _loaded = settings;
    }

    void _use(const state_t& state) {
        hook_manager_t::current_active_mouse = models[state.model];
        _now = state;
    }

    void _do(std::size_t act) {
        state_t after = _now;
        if (act <= wheel) {
            const bool releases = act == release_1 || act == release_2;
            std::size_t& held = after.held[_now.model][act / 2];
            held = releases ? held : _bound(act / 2);
            _process(inputs[act / 2],
                     releases       ? button_state_e::released
                     : act == wheel ? button_state_e::instant
                                    : button_state_e::pressed,
                     held);
        } else if (act < change) {
            after.settings = act - bind;
            _load(after.settings);
        } else if (act < move) {
            after.model = act == unplug ? 0 : _now.model == 1 ? 2 : 1;
        } else {
            after.application = 1 - _now.application;
        }
        _use(after);
    }

    void _process(input_value_e input, button_state_e state, std::size_t decides) {
        if (_loaded != _now.settings) {
            _load(_now.settings);  // they had been replaced by what was taken back
        }
        _must_be(
            _hooks->process_event(input, state, applications[_now.application]) == (decides != 0),
            "what is bound, or was by its press, is swallowed; all else passes");
        if (state != button_state_e::pressed) {
            _expected.push_back(decides);
        }
    }

    const temporary_home_t& _home;
    state_t _now;
    std::size_t _loaded = 0;  // settings
    indices_t _expected;
    std::unique_ptr<hook_manager_t> _hooks = std::make_unique<hook_manager_t>();
    std::unique_lock<std::mutex> _closed{gate};
};

// Whether something is wrong with what is done to a daemon of its own, in a process of its own.
bool goes_wrong(const temporary_home_t& home, const std::function<void(course_t&)>& what) {
    const pid_t child = fork();
    if (child == 0) {
        course_t course(home);
        what(course);
        course.end();
        if (course.sequences != 1 || !course.wrong.empty()) {
            std::printf("sequences: %zu of %zu acts%s%s\n", course.sequences, longest,
                        course.wrong.empty() ? "" : ", this does not hold: ", course.wrong.c_str());
            std::fflush(stdout);
        }
        _exit(course.wrong.empty() && course.sequences > 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status != 0;
}

// The shortest sequence with which something is wrong, in words; of equally short ones the first.
std::string shortest(const temporary_home_t& home) {
    std::size_t count = names.size();  // of the sequences that long
    for (std::size_t length = 1; length <= longest; ++length, count *= names.size()) {
        for (std::size_t index = 0; index < count; ++index) {
            std::vector<std::size_t> sequence;
            std::string words;
            for (std::size_t rest = index; sequence.size() < length; rest /= names.size()) {
                sequence.push_back(rest % names.size());
                words += std::string(names[sequence.back()]) + ", ";
            }
            if (group_of(sequence.back()) == 0 &&
                goes_wrong(home, [&](course_t& course) { course.play(sequence); })) {
                return words;
            }
        }
    }
    return "none alone";
}

}  // namespace

TEST(sequences, of_up_to_seven_acts_hold_the_rules) {
    const temporary_home_t home;
    for (std::size_t settings = 0; settings < texts.size(); ++settings) {
        std::ofstream(home.path() / std::to_string(settings)) << texts[settings];
    }
    home.write_settings(texts[0]);
    if (goes_wrong(home, [](course_t& course) { course.explore(longest); })) {
        ADD_FAILURE() << "shortest sequence: " << shortest(home);
    }
}
