#include <gtest/gtest.h>

#include <AudioToolbox/AudioHardwareService.h>
#include <CoreAudio/CoreAudio.h>

#include <optional>
#include <utility>

#include "control/sound.h"

namespace {

constexpr AudioObjectPropertyAddress default_output{kAudioHardwarePropertyDefaultOutputDevice,
                                                    kAudioObjectPropertyScopeGlobal, 0};
constexpr AudioObjectPropertyAddress volume{kAudioHardwareServiceDeviceProperty_VirtualMainVolume,
                                            kAudioObjectPropertyScopeOutput, 0};
constexpr AudioObjectPropertyAddress mute{kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput,
                                          0};

template <typename value_t>
std::pair<OSStatus, value_t> get(AudioObjectID object, const AudioObjectPropertyAddress& address) {
    value_t value{};
    UInt32 size = sizeof(value);
    const OSStatus status = AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, &value);
    return {status, value};
}

template <typename value_t>
OSStatus set(AudioObjectID object, const AudioObjectPropertyAddress& address, value_t value) {
    return AudioObjectSetPropertyData(object, &address, 0, nullptr, sizeof(value), &value);
}

TEST(sound, what_a_device_lacks_or_refuses_gets_the_platforms_errors) {
    const auto fixed = simulator::connect_output({"Fixed", 0.5F, 1, false, false});
    const auto gone = simulator::connect_output({"Headphones"});
    simulator::disconnect_output(gone);
    const auto device = simulator::connect_output({"HDMI", std::nullopt, std::nullopt});
    const auto whole = simulator::connect_output({"Speakers"});
    EXPECT_EQ(get<Float32>(device, volume).first, kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(set<UInt32>(device, mute, 1), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get<AudioObjectID>(whole, default_output).first, kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get<Float32>(gone, volume).first, kAudioHardwareBadObjectError);
    EXPECT_EQ(set<Float32>(gone, volume, 0.5F), kAudioHardwareBadObjectError);
    EXPECT_EQ(get<std::uint16_t>(whole, volume).first, kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(set<double>(whole, volume, 0.5), kAudioHardwareBadPropertySizeError);
    EXPECT_TRUE(simulator::sound_writes().empty());
    EXPECT_EQ(set<Float32>(fixed, volume, 0.75F), kAudioHardwareUnsupportedOperationError);
    EXPECT_EQ(set<UInt32>(fixed, mute, 0), kAudioHardwareUnsupportedOperationError);
    EXPECT_EQ(set<Float32>(whole, volume, 1.5F), kAudioHardwareNoError);
    EXPECT_EQ(simulator::output(fixed)->volume, 0.5F);
    EXPECT_EQ(simulator::output(fixed)->mute, 1U);
    EXPECT_EQ(simulator::output(whole)->volume, 1.0F);
}

TEST(sound, what_is_not_modelled_ends_the_program) {
    const auto device = simulator::connect_output({"Speakers"});
    AudioObjectPropertyAddress input = volume;
    input.mScope = kAudioObjectPropertyScopeGlobal;
    EXPECT_DEATH(get<Float32>(device, input), "AudioObjectGetPropertyData: not modelled");
    EXPECT_DEATH(set<AudioObjectID>(kAudioObjectSystemObject, default_output, device),
                 "AudioObjectSetPropertyData: not modelled");
}

}  // namespace
