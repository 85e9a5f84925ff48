#pragma once

#include <CoreGraphics/CGEventTypes.h>

extern "C" {

CGEventSourceRef CGEventSourceCreate(CGEventSourceStateID stateID);
CGEventSourceKeyboardType CGEventSourceGetKeyboardType(CGEventSourceRef source);
void CGEventSourceSetKeyboardType(CGEventSourceRef source, CGEventSourceKeyboardType keyboardType);

}  // extern "C"
