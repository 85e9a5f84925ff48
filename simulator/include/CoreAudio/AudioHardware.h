#pragma once

#include <CoreAudio/AudioHardwareBase.h>

enum : int { kAudioObjectSystemObject = 1 };

enum : AudioObjectPropertySelector {
    kAudioHardwarePropertyDefaultOutputDevice = 0x644F7574,  // dOut: the id of an audio object
};

enum : AudioObjectPropertySelector {
    kAudioDevicePropertyMute = 0x6D757465,  // mute: 32 bits, 0 is not muted
};

extern "C" {

// Writes at most `*size` bytes to `data` and says in `*size` how many it wrote.
OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifier_size, const void* qualifier, UInt32* size,
                                    void* data);
OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress* address,
                                    UInt32 qualifier_size, const void* qualifier, UInt32 size,
                                    const void* data);

}  // extern "C"
