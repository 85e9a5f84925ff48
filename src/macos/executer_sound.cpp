#include "macos/executer_sound.h"

#include <AudioToolbox/AudioHardwareService.h>
#include <CoreAudio/CoreAudio.h>

#include <optional>

#include "common/log/log.h"
#include "macos/executer_level.h"

namespace {

// What is read and written, by the platform's own numbers. The virtual main volume is the one
// volume of a device that covers all its channels.
constexpr AudioObjectPropertyAddress default_output_device{
    kAudioHardwarePropertyDefaultOutputDevice, kAudioObjectPropertyScopeGlobal,
    kAudioObjectPropertyElementMain};
constexpr AudioObjectPropertyAddress output_volume{
    kAudioHardwareServiceDeviceProperty_VirtualMainVolume, kAudioObjectPropertyScopeOutput,
    kAudioObjectPropertyElementMain};
constexpr AudioObjectPropertyAddress output_mute{
    kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput, kAudioObjectPropertyElementMain};

// Nothing also when the object has a value of another size.
template <typename value_t>
std::optional<value_t> read(AudioObjectID object, const AudioObjectPropertyAddress& address) {
    value_t value{};
    UInt32 size = sizeof(value);
    if (AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, &value) != noErr ||
        size != sizeof(value)) {
        return std::nullopt;
    }
    return value;
}

template <typename value_t>
bool write(AudioObjectID object, const AudioObjectPropertyAddress& address, value_t value) {
    return AudioObjectSetPropertyData(object, &address, 0, nullptr, sizeof(value), &value) == noErr;
}

std::optional<AudioObjectID> default_output() {
    return read<AudioObjectID>(kAudioObjectSystemObject, default_output_device);
}

}  // namespace

void volume(float step) {
    const auto device = default_output();
    if (!device) {
        QLX_LOG_ERROR("Failed to get default audio device.");
        return;
    }
    const auto level = read<Float32>(*device, output_volume);
    if (!level) {
        QLX_LOG_ERROR("Failed to get volume.");
        return;
    }
    if (!write<Float32>(*device, output_volume, stepped_level(*level, step))) {
        QLX_LOG_ERROR("Failed to set volume.");
    }
}

void unmute_mute_main_sound_device() {
    const auto device = default_output();
    if (!device) {
        QLX_LOG_ERROR("unmute_mute_main_sound_device: Failed to get default audio device.");
        return;
    }
    const auto muted = read<UInt32>(*device, output_mute);
    if (!muted) {
        QLX_LOG_ERROR(
            "unmute_mute_main_sound_device: Failed to get muted state of default audio device.");
        return;
    }
    if (!write<UInt32>(*device, output_mute, toggled_mute(*muted))) {
        QLX_LOG_ERROR(
            "unmute_mute_main_sound_device: Failed to set mute state of default audio device.");
    }
}
