#pragma once

// The USB organisation's numbers, under the platform's names.
enum {
    kHIDPage_GenericDesktop = 0x01,
    kHIDPage_KeyboardOrKeypad = 0x07,
    kHIDPage_Button = 0x09,
    kHIDPage_Consumer = 0x0C,
    kHIDPage_Digitizer = 0x0D,
};

enum {
    kHIDUsage_GD_Mouse = 0x02,
    kHIDUsage_GD_Keyboard = 0x06,
    kHIDUsage_GD_X = 0x30,
    kHIDUsage_GD_Y = 0x31,
    kHIDUsage_GD_Wheel = 0x38,
};

enum {
    kHIDUsage_Csmr_ACPan = 0x238,
};

enum {
    kHIDUsage_Dig_TouchPad = 0x05,
};
