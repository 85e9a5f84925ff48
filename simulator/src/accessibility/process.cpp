#include <ApplicationServices/ApplicationServices.h>
#include <libproc.h>

#include <cerrno>
#include <cstring>

#include "control/applications.h"
#include "control/permissions.h"
#include "core/failure.h"
#include "core_foundation/values.h"

namespace {

// The kernel's record of a name, which the caller's buffer must hold whatever the name's length.
constexpr std::uint32_t name_record_bytes = 32;

}  // namespace

extern "C" {

CFStringRef kAXTrustedCheckOptionPrompt = CFSTR("AXTrustedCheckOptionPrompt");

Boolean AXIsProcessTrusted() {
    return !simulator::shall_fail(__func__) &&
           simulator::granted(simulator::permission_e::accessibility);
}

Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options) {
    if (options != nullptr) {
        for (const auto& [key, value] :
             simulator::object_of<simulator::dictionary_t>(options, __func__).items) {
            if (key->text != "AXTrustedCheckOptionPrompt") {
                simulator::not_modelled(__func__, "the option " + key->text);
            }
            if (simulator::object_of<simulator::boolean_t>(value.reference(), __func__).value) {
                simulator::not_modelled(__func__, "asking the user");
            }
        }
    }
    return !simulator::shall_fail(__func__) &&
           simulator::granted(simulator::permission_e::accessibility);
}

int proc_name(int pid, void* buffer, std::uint32_t buffersize) {
    if (buffersize < name_record_bytes) {
        errno = ENOMEM;
        return 0;
    }
    const auto name = simulator::application_name(pid);
    if (simulator::shall_fail(__func__) || !name) {
        errno = ESRCH;
        return 0;
    }
    std::memcpy(buffer, name->c_str(), name->size() + 1);
    return static_cast<int>(std::strlen(name->c_str()));
}

}  // extern "C"
