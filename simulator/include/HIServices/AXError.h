#pragma once

#include <CoreFoundation/CFBase.h>

// What the Accessibility calls answer.
enum AXError : SInt32 {
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,               // no reason is given
    kAXErrorIllegalArgument = -25201,       // a negative time-out
    kAXErrorInvalidUIElement = -25202,      // the element is gone
    kAXErrorCannotComplete = -25204,        // the application did not answer
    kAXErrorAttributeUnsupported = -25205,  // the element has no such attribute
    kAXErrorActionUnsupported = -25206,     // the element has no such action
    kAXErrorAPIDisabled = -25211,           // the program is not trusted for Accessibility
    kAXErrorNoValue = -25212,               // nothing is there
};
