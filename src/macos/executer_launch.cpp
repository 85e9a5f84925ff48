#include "macos/executer_launch.h"

#include <CoreServices/CoreServices.h>

#include <cstdlib>

#include "macos/cpf.h"

namespace {

void run(const char* command) {
    [[maybe_unused]] const int ignored = std::system(command);
}

bool has_nul(const std::string& path) {
    return path.find('\0') != std::string::npos;
}

}  // namespace

std::string open_command(const std::string& path) {
    // Deliberately not escaped. The settings belong to the user whose shell runs this, bindings in
    // use rely on the shell reading their paths (such as one that begins with $HOME), and escaping
    // would change what those open. A path that holds a double quote breaks its own command.
    return "open \"" + path + "\" &";
}

void open_file(const std::string& path) {
    if (has_nul(path)) {
        return;  // the shell would get the command's first half
    }
    run(open_command(path).c_str());
}

void open_standard_path_program(const std::string& path) {
    if (has_nul(path)) {
        return;
    }
    const auto text = cpf_t<CFStringRef>::adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                static_cast<CFIndex>(path.size()), kCFStringEncodingUTF8, false));
    if (!text) {
        return;
    }
    const auto url = cpf_t<CFURLRef>::adopt(CFURLCreateWithFileSystemPath(
        kCFAllocatorDefault, text.get(), kCFURLPOSIXPathStyle, false));
    if (url) {
        LSOpenCFURLRef(url.get(), nullptr);
    }
}

void switch_desktop_left() {
    run(left_desktop_command);
}

void switch_desktop_right() {
    run(right_desktop_command);
}
