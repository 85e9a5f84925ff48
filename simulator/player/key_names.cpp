#include "player/key_names.h"

#include <array>
#include <charconv>
#include <map>

namespace simulator::player {
namespace {

// The virtual key codes of the ANSI keyboard.
const std::map<std::string, std::uint16_t>& codes() {
    static const std::map<std::string, std::uint16_t> all = {
        {"A", 0x00},
        {"S", 0x01},
        {"D", 0x02},
        {"F", 0x03},
        {"H", 0x04},
        {"G", 0x05},
        {"Z", 0x06},
        {"X", 0x07},
        {"C", 0x08},
        {"V", 0x09},
        {"B", 0x0B},
        {"Q", 0x0C},
        {"W", 0x0D},
        {"E", 0x0E},
        {"R", 0x0F},
        {"Y", 0x10},
        {"T", 0x11},
        {"1", 0x12},
        {"2", 0x13},
        {"3", 0x14},
        {"4", 0x15},
        {"6", 0x16},
        {"5", 0x17},
        {"9", 0x19},
        {"7", 0x1A},
        {"8", 0x1C},
        {"0", 0x1D},
        {"Right Bracket", 0x1E},
        {"O", 0x1F},
        {"U", 0x20},
        {"Left Bracket", 0x21},
        {"I", 0x22},
        {"P", 0x23},
        {"Return", 0x24},
        {"L", 0x25},
        {"J", 0x26},
        {"Quote", 0x27},
        {"K", 0x28},
        {"Semicolon", 0x29},
        {"N", 0x2D},
        {"M", 0x2E},
        {"Tab", 0x30},
        {"Space", 0x31},
        {"Delete", 0x33},
        {"Escape", 0x35},
        {"Right Command", 0x36},
        {"Command", 0x37},
        {"Shift", 0x38},
        {"Option", 0x3A},
        {"Control", 0x3B},
        {"F5", 0x60},
        {"Left Arrow", 0x7B},
        {"Right Arrow", 0x7C},
        {"Down Arrow", 0x7D},
        {"Up Arrow", 0x7E},
    };
    return all;
}

struct flag_t {
    std::uint64_t mask;
    const char* name;
};

constexpr std::array<flag_t, 4> flags_in_order = {
    {{0x40000, "Control"}, {0x80000, "Option"}, {0x20000, "Shift"}, {0x100000, "Command"}}};

}  // namespace

std::optional<std::uint16_t> key_code(const std::string& name) {
    const std::string prefix = "code ";
    if (name.rfind(prefix, 0) == 0) {
        std::uint16_t code = 0;
        const char* const end = name.data() + name.size();
        const auto [stopped, error] = std::from_chars(name.data() + prefix.size(), end, code);
        return error == std::errc() && stopped == end ? std::optional(code) : std::nullopt;
    }
    const auto found = codes().find(name);
    return found == codes().end() ? std::nullopt : std::optional(found->second);
}

std::string key_name(std::int64_t code) {
    for (const auto& [name, known] : codes()) {
        if (known == code) {
            return name;
        }
    }
    return "code " + std::to_string(code);
}

std::string key_event_text(std::int64_t code, bool down, std::uint64_t flags) {
    std::string held;
    for (const flag_t& flag : flags_in_order) {
        if ((flags & flag.mask) != 0) {
            held += (held.empty() ? "" : " ") + std::string(flag.name);
        }
    }
    return key_name(code) + (down ? " down" : " up") + (held.empty() ? "" : " [" + held + "]");
}

bool is_key_event_text(const std::string& text) {
    const std::string event = text.substr(0, text.find(" ["));
    const std::size_t blank = event.rfind(' ');
    const auto code = key_code(event.substr(0, blank));
    if (!code || blank == std::string::npos) {
        return false;
    }
    const bool down = event.substr(blank) == " down";
    for (unsigned int held = 0; held < 1U << flags_in_order.size(); ++held) {
        std::uint64_t flags = 0;
        for (std::size_t index = 0; index < flags_in_order.size(); ++index) {
            flags |= (held >> index & 1U) != 0 ? flags_in_order[index].mask : 0;
        }
        if (key_event_text(*code, down, flags) == text) {
            return true;
        }
    }
    return false;
}

}  // namespace simulator::player
