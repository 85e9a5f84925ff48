#include <CoreFoundation/CFURL.h>

#include "core/failure.h"
#include "core_foundation/values.h"

extern "C" {

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path,
                                       CFURLPathStyle style, Boolean is_directory) {
    simulator::expect_default_allocator(allocator, __func__);
    if (style != kCFURLPOSIXPathStyle) {
        simulator::not_modelled(__func__, "a path style other than POSIX");
    }
    const std::string& text = simulator::object_of<simulator::string_t>(path, __func__).text;
    // No file has a name with a zero byte in it, nor an empty one.
    if (simulator::shall_fail(__func__) || text.empty() || text.find('\0') != std::string::npos) {
        return nullptr;
    }
    return static_cast<CFURLRef>(
        simulator::publish(std::make_unique<simulator::url_t>(text, is_directory != 0), __func__));
}

}  // extern "C"
