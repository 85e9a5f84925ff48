#include <CoreServices/CoreServices.h>

#include <mutex>

#include "control/launches.h"
#include "core/failure.h"
#include "core_foundation/values.h"

namespace simulator {
namespace {

struct launch_services_t {
    std::mutex mutex;
    std::vector<std::string> launched;
};

launch_services_t& launch_services() {
    static auto* const one = new launch_services_t;  // outlives every static object of the program
    return *one;
}

}  // namespace

std::vector<std::string> launches() {
    const std::lock_guard lock(launch_services().mutex);
    return launch_services().launched;
}

}  // namespace simulator

extern "C" OSStatus LSOpenCFURLRef(CFURLRef url, CFURLRef* launched) {
    const std::string& path = simulator::object_of<simulator::url_t>(url, __func__).path;
    if (launched != nullptr) {
        simulator::not_modelled(__func__, "the URL of what was started");
    }
    if (simulator::shall_fail(__func__)) {
        return kLSApplicationNotFoundErr;
    }
    const std::lock_guard lock(simulator::launch_services().mutex);
    simulator::launch_services().launched.push_back(path);
    return 0;
}
