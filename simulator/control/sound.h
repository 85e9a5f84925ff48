#pragma once

#include <CoreAudio/AudioHardwareBase.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Sound output as the desktop has it. There is no device at the start. Any thread.
namespace simulator {

struct output_device_t {
    std::string name{};
    std::optional<float> volume = 0.5F;     // 0 to 1; none: the device has no such property
    std::optional<std::uint32_t> mute = 0;  // none: the device has no such property
    bool volume_writable = true;
    bool mute_writable = true;
};

// The first device that is connected becomes the default one.
AudioObjectID connect_output(const output_device_t& device);
void make_default_output(AudioObjectID device);

// The device as it is now; none when there is no such.
std::optional<output_device_t> output(AudioObjectID device);
// Gives a device another state, as other programs do.
void set_output(AudioObjectID device, const output_device_t& state);

enum class sound_property_e { volume, mute };

struct sound_write_t {
    AudioObjectID device = 0;
    sound_property_e property{};
    double value = 0;  // as the program gave it
    bool accepted = false;
};

// What the program has written so far, in order.
std::vector<sound_write_t> sound_writes();

}  // namespace simulator
