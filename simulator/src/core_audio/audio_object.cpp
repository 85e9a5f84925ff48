#include <AudioToolbox/AudioHardwareService.h>
#include <CoreAudio/AudioHardware.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>

#include "control/sound.h"
#include "core/calls.h"
#include "core/failure.h"

namespace simulator {
namespace {

constexpr AudioObjectID first_device_id = 40;  // below it a Mac has objects that are no devices

struct sound_t {
    std::mutex mutex;
    std::map<AudioObjectID, output_device_t> devices;  // in the order of connection
    AudioObjectID next_id = first_device_id;
    AudioObjectID default_output = kAudioObjectUnknown;
    std::vector<sound_write_t> writes;
};

sound_t& sound() {
    static auto* const state = new sound_t;  // outlives every static object of the program
    return *state;
}

output_device_t& device_of(AudioObjectID id, const char* function) {
    const auto found = sound().devices.find(id);
    if (found == sound().devices.end()) {
        misuse(function, "there is no such device");
    }
    return found->second;
}

enum class property_e { default_output, volume, mute };

property_e property_at(const AudioObjectPropertyAddress* address, UInt32 qualifier_size,
                       const void* qualifier, const char* function) {
    if (address == nullptr) {
        misuse(function, "the address is null");
    }
    if (qualifier_size != 0 || qualifier != nullptr) {
        not_modelled(function, "a qualifier");
    }
    const auto is = [&](AudioObjectPropertySelector selector, AudioObjectPropertyScope scope) {
        return address->mSelector == selector && address->mScope == scope &&
               address->mElement == kAudioObjectPropertyElementMain;
    };
    if (is(kAudioHardwarePropertyDefaultOutputDevice, kAudioObjectPropertyScopeGlobal)) {
        return property_e::default_output;
    }
    if (is(kAudioHardwareServiceDeviceProperty_VirtualMainVolume,
           kAudioObjectPropertyScopeOutput)) {
        return property_e::volume;
    }
    if (is(kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput)) {
        return property_e::mute;
    }
    not_modelled(function, "this selector, scope or element");
}

// All properties here have values of one size.
template <typename value_t>
OSStatus give(value_t value, UInt32& size, void* data) {
    static_assert(sizeof(value) == 4);
    if (size < sizeof(value)) {
        return kAudioHardwareBadPropertySizeError;
    }
    std::memcpy(data, &value, sizeof(value));
    size = sizeof(value);
    return kAudioHardwareNoError;
}

template <typename value_t>
OSStatus give_if_any(const std::optional<value_t>& value, UInt32& size, void* data) {
    return value ? give(*value, size, data) : OSStatus{kAudioHardwareUnknownPropertyError};
}

template <typename value_t>
value_t taken(const void* data) {
    static_assert(sizeof(value_t) == 4);
    value_t value{};
    std::memcpy(&value, data, sizeof(value));
    return value;
}

OSStatus read(AudioObjectID object, property_e property, UInt32& size, void* data) {
    const std::lock_guard lock(sound().mutex);
    if (object == kAudioObjectSystemObject) {
        return property == property_e::default_output
                   ? give(sound().default_output, size, data)
                   : OSStatus{kAudioHardwareUnknownPropertyError};
    }
    const auto device = sound().devices.find(object);
    if (device == sound().devices.end()) {
        return kAudioHardwareBadObjectError;
    }
    switch (property) {
        case property_e::default_output:
            return kAudioHardwareUnknownPropertyError;
        case property_e::volume:
            return give_if_any(device->second.volume, size, data);
        case property_e::mute:
            return give_if_any(device->second.mute, size, data);
    }
    return kAudioHardwareUnspecifiedError;
}

OSStatus record(const sound_write_t& write) {
    sound().writes.push_back(write);
    return write.accepted ? OSStatus{kAudioHardwareNoError}
                          : OSStatus{kAudioHardwareUnsupportedOperationError};
}

OSStatus write(AudioObjectID object, property_e property, UInt32 size, const void* data,
               const char* function) {
    const std::lock_guard lock(sound().mutex);
    if (object == kAudioObjectSystemObject && property == property_e::default_output) {
        not_modelled(function, "choosing the default device");
    }
    if (object == kAudioObjectSystemObject) {
        return kAudioHardwareUnknownPropertyError;
    }
    const auto found = sound().devices.find(object);
    if (found == sound().devices.end()) {
        return kAudioHardwareBadObjectError;
    }
    output_device_t& device = found->second;
    if (property == property_e::default_output ||
        (property == property_e::volume && !device.volume) ||
        (property == property_e::mute && !device.mute)) {
        return kAudioHardwareUnknownPropertyError;
    }
    if (size != sizeof(UInt32)) {
        return kAudioHardwareBadPropertySizeError;
    }
    if (property == property_e::volume) {
        const auto volume = taken<Float32>(data);
        if (std::isnan(volume)) {
            not_modelled(function, "a volume that is not a number");
        }
        if (device.volume_writable) {
            device.volume = std::clamp(volume, 0.0F, 1.0F);
        }
        return record({object, sound_property_e::volume, volume, device.volume_writable});
    }
    const auto mute = taken<UInt32>(data);
    if (device.mute_writable) {
        device.mute = mute;
    }
    return record(
        {object, sound_property_e::mute, static_cast<double>(mute), device.mute_writable});
}

}  // namespace

AudioObjectID connect_output(const output_device_t& device) {
    const std::lock_guard lock(sound().mutex);
    const AudioObjectID id = sound().next_id++;
    sound().devices.emplace(id, device);
    if (sound().default_output == kAudioObjectUnknown) {
        sound().default_output = id;
    }
    return id;
}

void make_default_output(AudioObjectID device) {
    const std::lock_guard lock(sound().mutex);
    device_of(device, "make_default_output");
    sound().default_output = device;
}

std::optional<output_device_t> output(AudioObjectID device) {
    const std::lock_guard lock(sound().mutex);
    const auto found = sound().devices.find(device);
    return found == sound().devices.end() ? std::nullopt : std::optional(found->second);
}

void set_output(AudioObjectID device, const output_device_t& state) {
    const std::lock_guard lock(sound().mutex);
    device_of(device, "set_output") = state;
}

std::vector<sound_write_t> sound_writes() {
    const std::lock_guard lock(sound().mutex);
    return sound().writes;
}

}  // namespace simulator

extern "C" {

OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifier_size, const void* qualifier, UInt32* size,
                                    void* data) {
    constexpr auto function = "AudioObjectGetPropertyData";
    const simulator::call_t call(function);
    const auto property = simulator::property_at(address, qualifier_size, qualifier, function);
    if (size == nullptr || data == nullptr) {
        simulator::misuse(function, "there is no place for the value");
    }
    if (simulator::shall_fail(function)) {
        return kAudioHardwareUnspecifiedError;
    }
    return simulator::read(object, property, *size, data);
}

OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifier_size, const void* qualifier, UInt32 size,
                                    const void* data) {
    constexpr auto function = "AudioObjectSetPropertyData";
    const simulator::call_t call(function);
    const auto property = simulator::property_at(address, qualifier_size, qualifier, function);
    if (data == nullptr) {
        simulator::misuse(function, "there is no value");
    }
    if (simulator::shall_fail(function)) {
        return kAudioHardwareUnspecifiedError;
    }
    return simulator::write(object, property, size, data, function);
}

}  // extern "C"
