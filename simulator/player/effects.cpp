#include "player/effects.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <optional>
#include <utility>

#include "control/applications.h"
#include "control/displays.h"
#include "control/input.h"
#include "control/launches.h"
#include "control/sound.h"
#include "player/session.h"
#include "player/words.h"

namespace simulator::player {
namespace {

std::string change_text(const std::string& what, float before, float after) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), " %.2f → %.2f", static_cast<double>(before),
                  static_cast<double>(after));
    return what + text.data();
}

// What a request means to the one who looks at the window.
std::string window_text(const std::string& request) {
    constexpr std::array<std::pair<const char*, const char*>, 5> meanings = {
        {{"set AXMinimized to true", "minimised"},
         {"pressed AXMinimizeButton", "minimised by its button"},
         {"pressed AXZoomButton", "zoomed by its button"},
         {"set AXFullScreen to true", "made full screen"},
         {"pressed AXCloseButton", "closed by its button"}}};
    for (const auto& [known, meaning] : meanings) {
        if (request == known) {
            return meaning;
        }
    }
    return request;
}

std::string scroll_text(const event_record_t& event) {
    const std::int64_t vertical = event.scroll.line_axis_1;
    const std::int64_t horizontal = event.scroll.line_axis_2;
    return "wheel turned by the daemon: vertical " + std::to_string(vertical) + ", horizontal " +
           std::to_string(horizontal);
}

}  // namespace

effects_t::effects_t(std::filesystem::path commands) : _commands(std::move(commands)) {}

void effects_t::plug_in(const std::vector<display_t>& displays, std::size_t main_display) {
    output_device_t speaker;
    speaker.name = "Loudspeaker";
    _volume = speaker.volume.value_or(0);
    connect_output(speaker);
    for (const display_t& display : displays) {
        const float brightness = display.service ? display.service->brightness.value_or(0) : 0;
        _displays[connect_display(display)] = {display.name, brightness};
    }
    if (!displays.empty()) {
        make_main_display(
            std::next(_displays.begin(), static_cast<std::ptrdiff_t>(main_display))->first);
    }
}

std::vector<std::string> effects_t::take() {
    std::vector<std::string> texts;
    _take_windows(texts);
    _take_sound(texts);
    _take_brightness(texts);
    _take_pointer(texts);
    _take_launches(texts);
    _take_commands(texts);
    return texts;
}

void effects_t::_take_windows(std::vector<std::string>& texts) {
    const std::vector<window_request_t> all = window_requests();
    for (; _windows_seen < all.size(); ++_windows_seen) {
        const window_request_t& request = all[_windows_seen];
        texts.push_back("window \"" + request.title + "\" of " + request.application + " " +
                        (request.refused ? "refuses: " : "") + window_text(request.request));
    }
}

void effects_t::_take_sound(std::vector<std::string>& texts) {
    const std::vector<sound_write_t> all = sound_writes();
    for (; _sound_seen < all.size(); ++_sound_seen) {
        const sound_write_t& write = all[_sound_seen];
        if (write.property == sound_property_e::volume) {
            const auto value = static_cast<float>(write.value);
            texts.push_back(change_text("volume", _volume, value));
            _volume = value;
        } else {
            texts.push_back(write.value != 0 ? "sound muted" : "sound on again");
        }
    }
}

void effects_t::_take_brightness(std::vector<std::string>& texts) {
    const std::vector<brightness_write_t> all = brightness_writes();
    for (; _brightness_seen < all.size(); ++_brightness_seen) {
        const brightness_write_t& write = all[_brightness_seen];
        auto& [name, brightness] = _displays.at(write.display);
        texts.push_back(change_text("brightness of " + name, brightness, write.value));
        brightness = write.value;
    }
}

void effects_t::_take_pointer(std::vector<std::string>& texts) {
    const std::vector<event_record_t> all = events();
    for (; _events_seen < all.size(); ++_events_seen) {
        const event_record_t& event = all[_events_seen];
        if (event.origin == event_origin_e::posted && !is_key(event)) {
            texts.push_back(event.type == kCGEventScrollWheel
                                ? scroll_text(event)
                                : event_text(event) + " sent, click " +
                                      std::to_string(event.click_state));
        }
    }
}

void effects_t::_take_launches(std::vector<std::string>& texts) {
    const std::vector<std::string> all = launches();
    for (; _launches_seen < all.size(); ++_launches_seen) {
        texts.push_back("program " + all[_launches_seen] + " started");
    }
}

void effects_t::_take_commands(std::vector<std::string>& texts) {
    const std::string all = file_text(_commands);
    std::size_t at = _commands_seen;
    // The next word, each ended by a zero byte; nothing when it is not there yet.
    const auto next = [&]() -> std::optional<std::string> {
        const std::size_t end = all.find('\0', at);
        if (end == std::string::npos) {
            return std::nullopt;
        }
        const std::size_t begin = std::exchange(at, end + 1);
        return all.substr(begin, end - begin);
    };
    while (const auto count = next()) {
        const auto name = next();
        std::string text = "command " + name.value_or("");
        for (int left = std::stoi(*count); left > 0; --left) {
            const auto argument = next();
            if (!argument) {
                return;  // still being written
            }
            text += " [" + *argument + "]";
        }
        if (!name) {
            return;
        }
        texts.push_back(text);
        _commands_seen = at;
    }
}

}  // namespace simulator::player
