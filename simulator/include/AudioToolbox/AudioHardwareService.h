#pragma once

#include <CoreAudio/AudioHardware.h>

enum : AudioObjectPropertySelector {
    // vmvc: the volume of a device as its user knows it, from 0 to 1
    kAudioHardwareServiceDeviceProperty_VirtualMainVolume = 0x766D7663,
};
