#include "iokit/io_objects.h"

#include <IOKit/IOKitLib.h>

#include <map>
#include <mutex>

#include "core/calls.h"

namespace simulator {
namespace {

constexpr io_object_t first_handle = 0x1003;  // as mach ports look

struct handle_t {
    std::shared_ptr<io_entry_t> entry;
    const char* function = "";  // that handed it out first
    std::size_t references = 0;
};

struct handles_t {
    std::mutex mutex;
    std::map<io_object_t, handle_t> all;
    io_object_t next = first_handle;
};

handles_t& handles() {
    static auto* const state = new handles_t;  // outlives every static object of the program
    return *state;
}

// The mutex is held.
std::map<io_object_t, handle_t>::iterator found(io_object_t handle, const char* function) {
    if (handle == IO_OBJECT_NULL) {
        misuse(function, "the handle is null");
    }
    const auto place = handles().all.find(handle);
    if (place == handles().all.end()) {
        misuse(function, "the handle is dead, or was never one: released too often?");
    }
    return place;
}

}  // namespace

io_object_t hand_out(const std::shared_ptr<io_entry_t>& entry, const char* function) {
    const std::lock_guard lock(handles().mutex);
    for (auto& [number, handle] : handles().all) {
        if (handle.entry == entry) {
            ++handle.references;
            return number;
        }
    }
    const io_object_t number = handles().next++;
    handles().all.emplace(number, handle_t{entry, function, 1});
    return number;
}

std::shared_ptr<io_entry_t> io_entry_of(io_object_t handle, const char* function) {
    const std::lock_guard lock(handles().mutex);
    return found(handle, function)->second.entry;
}

std::vector<std::string> io_objects_alive() {
    const std::lock_guard lock(handles().mutex);
    std::vector<std::string> lines;
    for (const auto& [number, handle] : handles().all) {
        lines.push_back("IOKit handle of " + handle.entry->description() + " from " +
                        handle.function + ", retained " + std::to_string(handle.references));
    }
    return lines;
}

}  // namespace simulator

extern "C" kern_return_t IOObjectRelease(io_object_t object) {
    constexpr auto function = "IOObjectRelease";
    const simulator::call_t call(function);
    std::shared_ptr<simulator::io_entry_t> last;  // ends after the lock
    const std::lock_guard lock(simulator::handles().mutex);
    const auto place = simulator::found(object, function);
    if (--place->second.references == 0) {
        last = std::move(place->second.entry);
        simulator::handles().all.erase(place);
    }
    return KERN_SUCCESS;
}
