#include <gtest/gtest.h>

#include <AudioToolbox/AudioHardwareService.h>
#include <CoreAudio/CoreAudio.h>

#include <tuple>
#include <utility>
#include <vector>

#include "control/calls.h"
#include "control/objects.h"
#include "control/sound.h"

namespace {

using simulator::sound_property_e;

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

AudioObjectID default_device() {
    const auto [status, device] = get<AudioObjectID>(kAudioObjectSystemObject, default_output);
    EXPECT_EQ(status, kAudioHardwareNoError);
    return device;
}

TEST(sound, the_default_device_follows_what_is_connected) {
    EXPECT_EQ(default_device(), AudioObjectID{kAudioObjectUnknown});
    const auto speakers = simulator::connect_output({"Speakers"});
    const auto headphones = simulator::connect_output({"Headphones"});
    EXPECT_EQ(default_device(), speakers);
    simulator::make_default_output(headphones);
    EXPECT_EQ(default_device(), headphones);
    simulator::disconnect_output(headphones);
    EXPECT_EQ(default_device(), speakers);
    EXPECT_EQ(get<Float32>(headphones, volume).first, kAudioHardwareBadObjectError);
    EXPECT_EQ(set<Float32>(headphones, volume, 0.5F), kAudioHardwareBadObjectError);
}

TEST(sound, what_is_written_is_kept_and_recorded_in_order) {
    const auto device = simulator::connect_output({"Speakers", 0.25F, 7});
    EXPECT_EQ(get<Float32>(device, volume), std::pair(OSStatus{kAudioHardwareNoError}, 0.25F));
    EXPECT_EQ(get<UInt32>(device, mute), std::pair(OSStatus{kAudioHardwareNoError}, UInt32{7}));
    EXPECT_EQ(set<Float32>(device, volume, 1.5F), kAudioHardwareNoError);
    EXPECT_EQ(set<UInt32>(device, mute, 0), kAudioHardwareNoError);
    EXPECT_EQ(simulator::output(device)->volume, 1.0F);
    EXPECT_EQ(simulator::output(device)->mute, 0U);

    simulator::set_output(device, {"Speakers", 0.5F, 1, false, false});
    EXPECT_EQ(set<Float32>(device, volume, 0.75F), kAudioHardwareUnsupportedOperationError);
    EXPECT_EQ(set<UInt32>(device, mute, 0), kAudioHardwareUnsupportedOperationError);
    EXPECT_EQ(simulator::output(device)->volume, 0.5F);
    EXPECT_EQ(simulator::output(device)->mute, 1U);

    const auto writes = simulator::sound_writes();
    const std::vector<std::tuple<sound_property_e, double, bool>> expected = {
        {sound_property_e::volume, 1.5, true},
        {sound_property_e::mute, 0, true},
        {sound_property_e::volume, 0.75, false},
        {sound_property_e::mute, 0, false}};
    ASSERT_EQ(writes.size(), expected.size());
    for (std::size_t at = 0; at < writes.size(); ++at) {
        EXPECT_EQ(std::tuple(writes[at].property, writes[at].value, writes[at].accepted),
                  expected[at]);
    }
}

TEST(sound, wrong_calls_get_the_platforms_errors) {
    const auto device = simulator::connect_output({"HDMI", std::nullopt, std::nullopt});
    const auto whole = simulator::connect_output({"Speakers"});
    EXPECT_EQ(get<Float32>(device, volume).first, kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get<UInt32>(device, mute).first, kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(set<UInt32>(device, mute, 1), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get<UInt32>(kAudioObjectSystemObject, mute).first,
              kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get<AudioObjectID>(whole, default_output).first, kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(get<std::uint16_t>(whole, volume).first, kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(set<double>(whole, volume, 0.5), kAudioHardwareBadPropertySizeError);
    EXPECT_TRUE(simulator::sound_writes().empty());

    double larger = 0;
    UInt32 size = sizeof(larger);
    EXPECT_EQ(AudioObjectGetPropertyData(whole, &volume, 0, nullptr, &size, &larger),
              kAudioHardwareNoError);
    EXPECT_EQ(size, sizeof(Float32));
}

TEST(sound, a_device_can_go_between_two_calls) {
    const auto device = simulator::connect_output({"Headphones"});
    simulator::after_next("AudioObjectGetPropertyData",
                          [device] { simulator::disconnect_output(device); });
    EXPECT_EQ(default_device(), device);
    EXPECT_EQ(get<Float32>(device, volume).first, kAudioHardwareBadObjectError);
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
