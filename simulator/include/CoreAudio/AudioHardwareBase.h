#pragma once

#include <CoreAudio/CoreAudioTypes.h>

// Audio objects, the addresses of their properties, and what the calls answer. Numbers written in
// hexadecimal are four characters on the platform, given beside them.

using AudioObjectID = UInt32;
using AudioObjectPropertySelector = UInt32;
using AudioObjectPropertyScope = UInt32;
using AudioObjectPropertyElement = UInt32;

struct AudioObjectPropertyAddress {
    AudioObjectPropertySelector mSelector;
    AudioObjectPropertyScope mScope;
    AudioObjectPropertyElement mElement;
};

enum : OSStatus {
    kAudioHardwareNoError = 0,
    kAudioHardwareUnspecifiedError = 0x77686174,           // what
    kAudioHardwareUnknownPropertyError = 0x77686F3F,       // who?
    kAudioHardwareBadPropertySizeError = 0x2173697A,       // !siz
    kAudioHardwareBadObjectError = 0x216F626A,             // !obj
    kAudioHardwareUnsupportedOperationError = 0x756E6F70,  // unop
};

enum : AudioObjectID { kAudioObjectUnknown = 0 };

enum : AudioObjectPropertyScope {
    kAudioObjectPropertyScopeGlobal = 0x676C6F62,  // glob
    kAudioObjectPropertyScopeOutput = 0x6F757470,  // outp
};

enum : AudioObjectPropertyElement { kAudioObjectPropertyElementMain = 0 };
