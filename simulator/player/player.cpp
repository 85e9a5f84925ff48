#include "player/player.h"

#include <sys/types.h>

#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <thread>
#include <utility>

#include "control/desktop.h"
#include "control/objects.h"
#include "player/key_names.h"
#include "player/object_reader.h"
#include "player/session.h"
#include "player/story.h"
#include "player/words.h"

namespace simulator::player {
namespace {

constexpr auto patience = std::chrono::seconds(10);
constexpr auto too_late = std::chrono::milliseconds(1500);
constexpr auto glance = std::chrono::milliseconds(5);

template <typename... visitors_t>
struct overloaded_t : visitors_t... {
    using visitors_t::operator()...;
};
template <typename... visitors_t>
overloaded_t(visitors_t...) -> overloaded_t<visitors_t...>;

std::string model_name(const std::string& number) {
    for (const auto& [name, of_name] : model_numbers) {
        if (of_name == number) {
            return name;
        }
    }
    return "model " + number;
}

}  // namespace

player_t::player_t(scenario_t scenario, std::size_t run, std::filesystem::path home,
                   std::filesystem::path root, std::filesystem::path report,
                   std::filesystem::path commands)
    : _scenario(std::move(scenario)),
      _run(_scenario.runs.at(run)),
      _home(std::move(home)),
      _root(std::move(root)),
      _report_file(std::move(report)),
      _effects_source(std::move(commands)) {}

void player_t::prepare() {
    for (const auto& [permission, is_granted] : _run.permissions) {
        if (!is_granted) {
            leave_input_monitoring_undecided();
        } else if (*is_granted) {
            grant(permission);
        } else {
            revoke(permission);
        }
        tell("desktop",
             std::string(permission_text(permission)) + (!is_granted   ? " is not decided on yet"
                                                         : *is_granted ? " is granted"
                                                                       : " is not granted"));
    }
    for (const auto& [name, application] : _scenario.applications) {
        const pid_t pid = launch_application(application.process_name);
        open_window(pid, application.window_title, application.frame);
    }
    for (const auto& [name, device] : _scenario.devices) {
        _devices[name] = connect(device);
    }
    for (const auto& [function, times] : _run.failing_calls) {
        tell("desktop", "lets the first calls of " + function + " fail: " + std::to_string(times));
        fail_next(function, times);
    }
    _effects_source.plug_in(_run.displays, _run.main_display);
    set_usual_messaging_timeout(_scenario.messaging_timeout);
    _log_begin = file_text(log_file(_home)).size();
    _log_read = _log_begin;
}

void player_t::play() {
    if (!_wait_for_daemon()) {
        return;
    }
    for (const step_t& step : _run.steps) {
        _play_step(step);
    }
    const auto ends_the_run = [](const step_t& step) {
        return std::holds_alternative<stop_t>(step.deed) ||
               std::holds_alternative<exit_t>(step.deed);
    };
    _report(report_played);
    if (_run.steps.empty() || !ends_the_run(_run.steps.back())) {
        tell("hand", "asks the daemon to end (SIGTERM)");
        kill(getpid(), SIGTERM);
    } else if (const auto* const stop = std::get_if<stop_t>(&_run.steps.back().deed)) {
        kill(getpid(), stop->signal);
    }
}

bool player_t::_wait_for_daemon() const {
    while (!wait_for_run_loop(glance)) {
        if (_ended) {
            return false;
        }
        if (user_is_asked()) {
            tell("desktop", "asks the user about Input Monitoring; the daemon waits");
            return true;
        }
    }
    tell("daemon", "is running and listens");
    return true;
}

void player_t::daemon_ended() {
    _ended = true;
}

void player_t::look_back() {
    _look();
    if (!_keys.empty()) {
        _unmet("at the end", "keys that no step expects: " + list_text(_keys));
    }
    if (!_effects.empty()) {
        _unmet("at the end", "effects that no step expects: " + list_text(_effects));
    }
}

// Waits for something that nobody announces (a line in a file, a write by the daemon).
bool player_t::_wait_until(const std::function<bool()>& condition) const {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (_ended || std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(glance);
    }
    return true;
}

void player_t::_play_step(const step_t& step) {
    _report(report_begun);
    std::this_thread::sleep_for(step.after);
    _move_there(step);
    const std::size_t first_event = events().size();
    _do(step);
    if (std::exchange(_holding, std::holds_alternative<hold_t>(step.deed))) {
        // The step after a hold has sent its event: its answer comes when the patience is over.
        std::this_thread::sleep_for(too_late);
        _look();
        tell("desktop", "has lost patience and disables the daemon's event tap");
        let_tap_callbacks_go();
    }
    if (!settle(run_loop_e::leave)) {
        _unmet(step.where, "the desktop does not come to rest");
    }
    _check(step, first_event);
}

void player_t::_move_there(const step_t& step) {
    if (!step.over.empty() && !std::holds_alternative<move_t>(step.deed)) {
        step_t there = step;
        there.deed = move_t{};
        _do(there);
    }
}

void player_t::_do(const step_t& step) {
    const device_id_t device = step.device.empty() ? 0 : _devices.at(step.device);
    const std::string with = step.device.empty() ? "" : " of " + _device_name(step);
    std::visit(overloaded_t{
                   [&](const move_t&) {
                       if (step.over.empty()) {
                           tell("hand", "moves " + _device_name(step));
                           move(device, 1, 0);
                           return;
                       }
                       tell("hand", "moves " + _device_name(step) + " over " + step.over);
                       const CGRect frame = _scenario.applications.at(step.over).frame;
                       move_to(device, {frame.origin.x + frame.size.width / 2,
                                        frame.origin.y + frame.size.height / 2});
                   },
                   [&](const button_t& button) {
                       tell("hand", phase_text(button.phase) + button_text(button.button) + with);
                       if (button.phase != phase_e::up) {
                           press(device, button.button);
                       }
                       if (button.phase != phase_e::down) {
                           release(device, button.button);
                       }
                   },
                   [&](const wheel_t& wheel) {
                       tell("hand", "turns the wheel" + with + ": vertical " +
                                        std::to_string(wheel.vertical) + ", horizontal " +
                                        std::to_string(wheel.horizontal));
                       scroll(device, wheel.vertical, wheel.horizontal);
                   },
                   [&](const trackpad_t& trackpad) {
                       tell("hand", "scrolls on the trackpad" + with);
                       scroll(device, trackpad.fields);
                   },
                   [&](const key_t& key) {
                       tell("hand", phase_text(key.phase) + "key " + key_name(key.code) + with);
                       if (key.phase != phase_e::up) {
                           press_key(device, key.code);
                       }
                       if (key.phase != phase_e::down) {
                           release_key(device, key.code);
                       }
                   },
                   [&](const connection_t& connection) {
                       if (connection.connected) {
                           tell("hand", "plugs " + _device_name(step) + " in");
                           _devices[step.device] = connect(_scenario.devices.at(step.device));
                       } else {
                           tell("hand", "unplugs " + _device_name(step));
                           disconnect(device);
                       }
                   },
                   [&](const settings_t& settings) {
                       tell("front", "writes new settings");
                       replace_file(settings_file(_home), settings.text);
                   },
                   [&](const permission_change_t& change) {
                       tell("user", std::string(change.granted ? "grants " : "revokes ") +
                                        permission_text(change.permission));
                       const bool answers = user_is_asked();
                       if (change.granted) {
                           grant(change.permission);
                       } else {
                           revoke(change.permission);
                       }
                       if (answers && !user_is_asked()) {
                           _wait_for_daemon();
                       }
                   },
                   [&](const removal_t& removal) {
                       const std::filesystem::path bundle = front_application(_root);
                       const std::filesystem::path trash = _home / ".Trash";
                       switch (removal.how) {
                           case removal_e::deleted:
                               tell("user", "deletes the front application");
                               std::filesystem::remove_all(bundle);
                               break;
                           case removal_e::renamed:
                               tell("user", "renames the front application");
                               std::filesystem::rename(bundle, bundle.string() + ".old");
                               break;
                           case removal_e::moved:
                               tell("user", "moves the front application to the Trash");
                               std::filesystem::create_directories(trash);
                               std::filesystem::rename(bundle, trash / bundle.filename());
                               break;
                       }
                   },
                   [&](const hanging_t& hanging) {
                       const auto& [process, window, frame] =
                           _scenario.applications.at(hanging.application);
                       const pid_t application = application_named(process).value_or(0);
                       if (hanging.hangs) {
                           tell("desktop", process + " hangs");
                           hang_application(application);
                       } else {
                           tell("desktop", process + " answers again");
                           wake_application(application);
                       }
                   },
                   [&](const burst_t& all) {
                       tell("hand", "is faster than the daemon");
                       burst([&] {
                           for (const step_t& act : all.acts) {
                               _move_there(act);
                               _do(act);
                           }
                       });
                   },
                   [&](const hold_t&) {
                       tell("desktop", "lets the daemon's next answer come too late");
                       hold_next_tap_callback();
                   },
                   [&](const look_t&) {},
                   [&](const stop_t& stop) {
                       tell("hand",
                            "asks the daemon to end (" + std::string(strsignal(stop.signal)) + ")");
                   },
                   [&](const exit_t&) { tell("hand", "waits for the daemon to end by itself"); },
               },
               step.deed);
}

void player_t::_look() {
    const std::vector<event_record_t> all = events();
    for (; _events_seen < all.size(); ++_events_seen) {
        const event_record_t& event = all[_events_seen];
        if (event.origin == event_origin_e::hardware) {
            tell("desktop", event_text(event) + " " + outcome_text(event));
        } else if (is_key(event)) {
            _keys.push_back(
                key_event_text(event.key_code, event.type == kCGEventKeyDown, event.flags));
            tell("daemon", "sends key " + _keys.back());
        }
    }
    for (std::string& effect : _effects_source.take()) {
        tell("daemon", effect);
        _effects.push_back(std::move(effect));
    }
}

void player_t::_check(const step_t& step, std::size_t first_event) {
    const std::size_t unmet_before = _unmet_count;
    _look();
    _check_events(step, first_event);
    if (step.expect.keys) {
        _wait_until([&] {
            _look();
            return _keys.size() >= step.expect.keys->size();
        });
        if (_keys != *step.expect.keys) {
            _unmet(step.where, "the daemon sends " + list_text(_keys) + "; expected " +
                                   list_text(*step.expect.keys));
        }
        _keys.clear();
    }
    if (step.expect.effects) {
        _wait_until([&] {
            _look();
            return _effects.size() >= step.expect.effects->size();
        });
        if (_effects != *step.expect.effects) {
            _unmet(step.where, "seen on the desktop: " + list_text(_effects) + "; expected " +
                                   list_text(*step.expect.effects));
        }
        _effects.clear();
    }
    _check_active_model(step);
    _check_log(step);
    if (_unmet_count == unmet_before) {
        _note_met(step);
    }
}

void player_t::_note_met(const step_t& step) const {
    const auto& [outcomes, keys, effects, active_model, log] = step.expect;
    std::string met;
    for (const event_outcome_e outcome : outcomes) {
        met += outcome == event_outcome_e::swallowed ? "; taken" : "; delivered";
    }
    met += keys ? "; keys: " + list_text(*keys) : "";
    met += effects ? "; on the desktop: " + list_text(*effects) : "";
    met += active_model ? "; the active model is " + *active_model : "";
    for (const std::string& text : log) {
        met += "; the log says \"" + text + "\"";
    }
    if (!met.empty()) {
        note("met", step.where + ": " + met.substr(2));
    }
}

void player_t::_check_events(const step_t& step, std::size_t first_event) {
    const std::vector<event_outcome_e>& expected = step.expect.events;
    if (expected.empty()) {
        return;
    }
    const std::vector<event_record_t> all = events();
    std::size_t caused = 0;
    for (std::size_t index = first_event; index < all.size(); ++index) {
        if (all[index].origin != event_origin_e::hardware) {
            continue;
        }
        const auto outcome = expected[caused % expected.size()];
        ++caused;
        if (all[index].outcome != outcome) {
            _unmet(
                step.where,
                event_text(all[index]) + " " + outcome_text(all[index]) + "; expected it to be " +
                    (outcome == event_outcome_e::swallowed ? "taken by the daemon" : "delivered"));
        }
    }
    if (caused == 0) {
        _unmet(step.where, "\"event\" is expected, but the step causes none");
    } else if (expected.size() > 1 && caused != expected.size()) {
        _unmet(step.where, "the step causes " + std::to_string(caused) + " events; expected " +
                               std::to_string(expected.size()));
    }
}

void player_t::_check_active_model(const step_t& step) {
    if (!step.expect.active_model) {
        return;
    }
    // The daemon says so in its log alone, and what it has not said must not meet an expectation:
    // the log comes late.
    const std::string text = "Active device changed to ";
    std::string model = "none, as at its start";
    const bool met = _wait_until([&] {
        const std::string log = file_text(log_file(_home));
        const std::size_t last = log.rfind(text);
        if (last != std::string::npos && last >= _log_begin) {
            const std::size_t begin = last + text.size();
            model = model_name(log.substr(begin, log.find(' ', begin) - begin));
        }
        return model == *step.expect.active_model;
    });
    if (met) {
        tell("daemon", "says that the active model is " + model);
    } else {
        _unmet(step.where,
               "the active model is " + model + "; expected " + *step.expect.active_model);
    }
}

void player_t::_check_log(const step_t& step) {
    if (step.expect.log.empty()) {
        return;
    }
    for (const std::string& text : step.expect.log) {
        std::size_t found = std::string::npos;
        std::string log;
        _wait_until([&] {
            log = file_text(log_file(_home));
            found = log.find(text, std::min(_log_read, log.size()));
            return found != std::string::npos;
        });
        if (found == std::string::npos) {
            _unmet(step.where, "the log does not say \"" + text + "\"");
        } else {
            tell("daemon", "logs \"" + text + "\"");
            _log_read = found + text.size();
        }
    }
}

void player_t::_unmet(const std::string& where, const std::string& what) {
    ++_unmet_count;
    const std::string line = in_one_line(where + ": " + what);
    tell("UNMET", line);
    _report(report_unmet + line);
}

void player_t::_report(const std::string& line) {
    std::ofstream(_report_file, std::ios::app) << line << "\n";
}

std::string player_t::_device_name(const step_t& step) const {
    return _scenario.devices.at(step.device).name;
}

}  // namespace simulator::player
