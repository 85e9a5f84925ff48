#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "control/displays.h"

namespace simulator::player {

// What programs did to the desktop besides posting keys, in words: windows, sound, brightness,
// pointer events, files and commands. One thread.
class effects_t {
  public:
    // `commands` is the file to which the desktop's `open` and
    // `osascript` append what they were called with; it need not exist yet.
    explicit effects_t(std::filesystem::path commands);

    // Gives the desktop a loudspeaker, half way up, and the displays, of which one is the main one.
    void plug_in(const std::vector<display_t>& displays, std::size_t main_display);

    // What has come since the last call, each kind in its own order.
    std::vector<std::string> take();

  private:
    void _take_windows(std::vector<std::string>& texts);
    void _take_sound(std::vector<std::string>& texts);
    void _take_brightness(std::vector<std::string>& texts);
    void _take_pointer(std::vector<std::string>& texts);
    void _take_launches(std::vector<std::string>& texts);
    void _take_commands(std::vector<std::string>& texts);

    std::filesystem::path _commands;
    float _volume = 0;
    struct shown_t {
        std::string name;
        float brightness = 0;  // when last looked at
    };
    std::map<CGDirectDisplayID, shown_t> _displays;
    std::size_t _windows_seen = 0;
    std::size_t _sound_seen = 0;
    std::size_t _brightness_seen = 0;
    std::size_t _events_seen = 0;
    std::size_t _launches_seen = 0;
    std::size_t _commands_seen = 0;  // bytes
};

}  // namespace simulator::player
