#pragma once

#include <cstdint>

// Adds `step`, a part of the full volume with its sign, to the volume of the default output device,
// within [0.0, 1.0]. What fails is logged, and the device then keeps its volume. Any thread.
void volume(float step);

// Mutes the default output device, or lets it sound again. What fails is logged, and the device
// then stays as it is. Any thread.
void unmute_mute_main_sound_device();

// The mute state to set after the one that the device reported: 0 sounds, all other values are
// mute.
constexpr std::uint32_t toggled_mute(std::uint32_t muted) {
    return muted == 0 ? 1 : 0;
}
