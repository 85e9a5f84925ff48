#include <ApplicationServices/ApplicationServices.h>
#include <libproc.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include "control/applications.h"
#include "control/permissions.h"
#include "core/failure.h"
#include "core_foundation/values.h"

namespace {

// The kernel's records of the registered name and of the short one, each with its zero byte. The
// caller's buffer must hold the larger, whatever the name's length.
constexpr std::size_t name_record_bytes = 32;
constexpr std::size_t short_name_record_bytes = 16;

struct told_names_t {
    std::mutex mutex;
    std::map<pid_t, simulator::told_name_e> by_process;  // registered where none is given
};

told_names_t& told_names() {
    static auto* const all = new told_names_t;  // outlives every static object of the program
    return *all;
}

simulator::told_name_e told_of(pid_t process) {
    const std::lock_guard lock(told_names().mutex);
    return told_names().by_process[process];
}

}  // namespace

namespace simulator {

pid_t launch_application(const std::string& process_name, told_name_e told) {
    const pid_t process = launch_application(process_name);
    const std::lock_guard lock(told_names().mutex);
    told_names().by_process[process] = told;
    return process;
}

}  // namespace simulator

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
    if (!name) {
        errno = ESRCH;
        return 0;
    }
    const simulator::told_name_e told = told_of(pid);
    if (told == simulator::told_name_e::none) {
        errno = EPERM;
        return 0;
    }
    const std::size_t record =
        told == simulator::told_name_e::registered ? name_record_bytes : short_name_record_bytes;
    std::memset(buffer, 0, record);
    std::memcpy(buffer, name->c_str(), std::min(name->size(), record - 1));
    return static_cast<int>(std::strlen(static_cast<const char*>(buffer)));
}

}  // extern "C"
