#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#include <HIServices/AXError.h>

// An element of a user interface that belongs, as a rule, to another process. A Core Foundation
// object: Create and Copy calls hand over ownership. All functions: any thread.
using AXUIElementRef = const struct __AXUIElement*;

extern "C" {

CFTypeID AXUIElementGetTypeID();

// The element that stands for all applications.
AXUIElementRef AXUIElementCreateSystemWide();

// The frontmost element at a place, in points from the top left corner of the main display.
AXError AXUIElementCopyElementAtPosition(AXUIElementRef application, float x, float y,
                                         AXUIElementRef* element);

// The process that the element belongs to; does not ask that process.
AXError AXUIElementGetPid(AXUIElementRef element, pid_t* pid);

// How long calls wait for an answer: of the system-wide element, all calls of this process; of any
// other, those with this very object. 0 stands for the platform's own patience, or for that of the
// process.
AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds);

// These ask the element's process. Where they fail, what the last argument points to is untouched.
AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                      CFTypeRef* value);
AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef attribute,
                                       Boolean* settable);
AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                     CFTypeRef value);
AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action);

// Whether this process is trusted for Accessibility. Of the options (may be null) one is known: the
// key below with a CFBoolean that tells whether the user is asked when it is not.
Boolean AXIsProcessTrusted();
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options);
extern CFStringRef kAXTrustedCheckOptionPrompt;

}  // extern "C"
