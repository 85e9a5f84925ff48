#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFURL.h>

enum : OSStatus {
    kLSApplicationNotFoundErr = -10814,  // no application opens this
};

extern "C" {

// Opens an application, a document or a folder. `launched` may be null; otherwise it is given an
// owned URL of what was started. Any thread.
OSStatus LSOpenCFURLRef(CFURLRef url, CFURLRef* launched);

}  // extern "C"
