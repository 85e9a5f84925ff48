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
    if (simulator::shall_fail(__func__) || text.empty()) {
        return nullptr;
    }
    std::string cut = text.substr(0, text.find('\0'));
    // A directory without a name is the root. A directory's path loses one slash at its end, a
    // file's path all of them.
    if (is_directory != 0 && cut.empty()) {
        cut = "/";
    }
    const std::size_t most = is_directory != 0 ? 1 : cut.size();
    for (std::size_t lost = 0; lost < most && cut.size() > 1 && cut.back() == '/'; ++lost) {
        cut.pop_back();
    }
    return static_cast<CFURLRef>(
        simulator::publish(std::make_unique<simulator::url_t>(std::move(cut)), __func__));
}

}  // extern "C"
