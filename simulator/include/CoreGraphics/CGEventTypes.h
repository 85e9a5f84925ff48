#pragma once

#include <CoreGraphics/CGBase.h>
#include <CoreGraphics/CGRemoteOperation.h>

using CGEventRef = struct __CGEvent*;
using CGEventSourceRef = struct __CGEventSource*;
using CGEventTapProxy = struct __CGEventTapProxy*;

enum CGMouseButton : std::uint32_t {
    kCGMouseButtonLeft = 0,
    kCGMouseButtonRight = 1,
};

enum CGScrollEventUnit : std::uint32_t {
    kCGScrollEventUnitLine = 1,
};

using CGEventFlags = std::uint64_t;

enum : CGEventFlags {
    kCGEventFlagMaskShift = 0x00020000,
    kCGEventFlagMaskControl = 0x00040000,
    kCGEventFlagMaskAlternate = 0x00080000,
    kCGEventFlagMaskCommand = 0x00100000,
};

enum CGEventType : std::uint32_t {
    kCGEventNull = 0,
    kCGEventLeftMouseDown = 1,
    kCGEventLeftMouseUp = 2,
    kCGEventRightMouseDown = 3,
    kCGEventRightMouseUp = 4,
    kCGEventMouseMoved = 5,
    kCGEventLeftMouseDragged = 6,
    kCGEventRightMouseDragged = 7,
    kCGEventKeyDown = 10,
    kCGEventKeyUp = 11,
    kCGEventFlagsChanged = 12,
    kCGEventScrollWheel = 22,
    kCGEventOtherMouseDown = 25,
    kCGEventOtherMouseUp = 26,
    kCGEventOtherMouseDragged = 27,
    kCGEventTapDisabledByTimeout = 0xFFFFFFFE,
    kCGEventTapDisabledByUserInput = 0xFFFFFFFF,
};

enum CGEventField : std::uint32_t {
    kCGMouseEventClickState = 1,
    kCGMouseEventButtonNumber = 3,
    kCGKeyboardEventKeycode = 9,
    kCGScrollWheelEventDeltaAxis1 = 11,
    kCGScrollWheelEventDeltaAxis2 = 12,
    kCGEventTargetUnixProcessID = 40,
    kCGEventSourceUnixProcessID = 41,
    kCGScrollWheelEventIsContinuous = 88,
    kCGScrollWheelEventPointDeltaAxis1 = 96,
    kCGScrollWheelEventPointDeltaAxis2 = 97,
    kCGScrollWheelEventScrollPhase = 99,
    kCGScrollWheelEventMomentumPhase = 123,
};

enum CGEventTapLocation : std::uint32_t {
    kCGHIDEventTap = 0,
    kCGSessionEventTap = 1,
};

enum CGEventTapPlacement : std::uint32_t {
    kCGHeadInsertEventTap = 0,
};

enum CGEventTapOptions : std::uint32_t {
    kCGEventTapOptionDefault = 0,
};

enum CGEventSourceStateID : std::int32_t {
    kCGEventSourceStateCombinedSessionState = 0,
};

using CGEventMask = std::uint64_t;
using CGEventSourceKeyboardType = std::uint32_t;

#define CGEventMaskBit(eventType) (CGEventMask{1} << (eventType))

extern "C" {

// Called on the run loop that the tap's port is a source of. `event` is lent, and null when `type`
// tells that the tap was disabled. Returns `event`, or null to delete it.
using CGEventTapCallBack = CGEventRef (*)(CGEventTapProxy proxy, CGEventType type, CGEventRef event,
                                          void* userInfo);

}  // extern "C"
