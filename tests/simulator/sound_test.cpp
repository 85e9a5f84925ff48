#include <AudioToolbox/AudioHardwareService.h>
#include <CoreAudio/CoreAudio.h>

#include "support/desktop.h"
#include "support/test.h"

namespace {

using address_t = AudioObjectPropertyAddress;

constexpr address_t volume{kAudioHardwareServiceDeviceProperty_VirtualMainVolume,
                           kAudioObjectPropertyScopeOutput, 0};
constexpr address_t mute{kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput, 0};

template <typename value_t>
OSStatus set(AudioObjectID object, const address_t& address, value_t value) {
    return AudioObjectSetPropertyData(object, &address, 0, nullptr, sizeof(value), &value);
}

TEST(sound, mistakes_have_the_platforms_errors_and_a_volume_its_limits) {
    const auto device = simulator::connect_output({"Speakers"});
    const auto fixed = simulator::connect_output({"Fixed", 0.5F, 0, false, false});
    const auto get = [](AudioObjectID object, const address_t& address, UInt32 size = 4) {
        float value = 0;
        return AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, &value);
    };
    EXPECT_EQ(get(fixed + 1, volume), kAudioHardwareBadObjectError);
    EXPECT_EQ(set(fixed + 1, volume, 0.5F), kAudioHardwareBadObjectError);
    EXPECT_EQ(get(device, volume, 2), kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(set(device, volume, 0.5), kAudioHardwareBadPropertySizeError);
    EXPECT_TRUE(simulator::sound_writes().empty());
    EXPECT_EQ(set(fixed, volume, 0.75F), kAudioHardwareUnsupportedOperationError);
    EXPECT_EQ(set<UInt32>(fixed, mute, 1), kAudioHardwareUnsupportedOperationError);
    EXPECT_TRUE(simulator::output(fixed)->volume == 0.5F && simulator::output(fixed)->mute == 0U);
    EXPECT_EQ(set(device, volume, 1.5F), kAudioHardwareNoError);
    EXPECT_EQ(simulator::output(device)->volume, 1.0F);
    EXPECT_DEATH(get(device, {volume.mSelector, kAudioObjectPropertyScopeGlobal, 0}),
                 "AudioObjectGetPropertyData: not modelled");
}

}  // namespace
