#include "core/object.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>

#include "control/objects.h"
#include "core/calls.h"
#include "core/failure.h"
#include "iokit/io_objects.h"

namespace simulator {
namespace {

struct entry_t {
    std::unique_ptr<object_t> object;
    const char* function = "";  // that handed it out
    std::size_t owners = 0;
    bool constant = false;
};

// Never destroyed: objects are released by static destructors of the program, too.
struct table_t {
    std::mutex mutex;
    std::unordered_map<CFTypeRef, entry_t> entries;
};

table_t& table() {
    static auto* const all = new table_t;
    return *all;
}

constexpr std::size_t memory_kept_back = 4096;  // blocks

struct graveyard_t {
    std::mutex mutex;
    std::deque<void*> blocks;
};

graveyard_t& graveyard() {
    static auto* const all = new graveyard_t;
    return *all;
}

const char* type_name(CFTypeID type) {
    switch (static_cast<type_e>(type)) {
        case type_e::boolean:
            return "CFBoolean";
        case type_e::string:
            return "CFString";
        case type_e::number:
            return "CFNumber";
        case type_e::array:
            return "CFArray";
        case type_e::dictionary:
            return "CFDictionary";
        case type_e::url:
            return "CFURL";
        case type_e::run_loop:
            return "CFRunLoop";
        case type_e::run_loop_source:
            return "CFRunLoopSource";
        case type_e::run_loop_timer:
            return "CFRunLoopTimer";
        case type_e::mach_port:
            return "CFMachPort";
        case type_e::event:
            return "CGEvent";
        case type_e::event_source:
            return "CGEventSource";
        case type_e::hid_manager:
            return "IOHIDManager";
        case type_e::hid_device:
            return "IOHIDDevice";
        case type_e::hid_element:
            return "IOHIDElement";
        case type_e::hid_value:
            return "IOHIDValue";
        case type_e::accessibility_element:
            return "AXUIElement";
    }
    return "an unknown type";
}

CFTypeRef enter(std::unique_ptr<object_t> object, const char* function, bool constant) {
    const CFTypeRef reference = object.get();
    const std::lock_guard lock(table().mutex);
    table().entries.emplace(reference, entry_t{std::move(object), function, 1, constant});
    return reference;
}

// The entry of a reference; the table's mutex is held.
entry_t& entry_of(CFTypeRef reference, const char* function) {
    if (reference == nullptr) {
        misuse(function, "the reference is null");
    }
    const auto found = table().entries.find(reference);
    if (found == table().entries.end()) {
        misuse(function, "the reference is dead, or was never one: released too often?");
    }
    return found->second;
}

}  // namespace

void* object_t::operator new(std::size_t size) {
    return ::operator new(size);
}

void object_t::operator delete(void* memory, std::size_t) noexcept {
    void* oldest = nullptr;
    {
        const std::lock_guard lock(graveyard().mutex);
        graveyard().blocks.push_back(memory);
        if (graveyard().blocks.size() > memory_kept_back) {
            oldest = graveyard().blocks.front();
            graveyard().blocks.pop_front();
        }
    }
    ::operator delete(oldest);
}

CFTypeRef publish(std::unique_ptr<object_t> object, const char* function) {
    return enter(std::move(object), function, false);
}

CFTypeRef publish_constant(std::unique_ptr<object_t> object) {
    return enter(std::move(object), "", true);
}

void retain(CFTypeRef reference, const char* function) {
    const std::lock_guard lock(table().mutex);
    ++entry_of(reference, function).owners;
}

void release(CFTypeRef reference, const char* function) {
    std::unique_ptr<object_t> last;
    {
        const std::lock_guard lock(table().mutex);
        entry_t& entry = entry_of(reference, function);
        if (entry.constant) {
            return;
        }
        if (--entry.owners == 0) {
            last = std::move(entry.object);
            table().entries.erase(reference);
        }
    }
}

object_t& object_of(CFTypeRef reference, const char* function) {
    const std::lock_guard lock(table().mutex);
    return *entry_of(reference, function).object;
}

object_t& object_of(CFTypeRef reference, type_e type, const char* function) {
    object_t& object = object_of(reference, function);
    if (object.type_id() != static_cast<CFTypeID>(type)) {
        misuse(function, std::string("expects ") + type_name(static_cast<CFTypeID>(type)) +
                             ", got " + type_name(object.type_id()));
    }
    return object;
}

std::vector<std::string> objects_alive() {
    std::vector<std::string> lines = io_objects_alive();
    const std::lock_guard lock(table().mutex);
    for (const auto& [reference, entry] : table().entries) {
        if (!entry.constant) {
            lines.push_back(std::string(type_name(entry.object->type_id())) + " from " +
                            entry.function + ", retained " + std::to_string(entry.owners));
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

}  // namespace simulator

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeRef CFRetain(CFTypeRef reference) {
    simulator::retain(reference, "CFRetain");
    return reference;
}

void CFRelease(CFTypeRef reference) {
    const simulator::call_t call(__func__);
    simulator::release(reference, "CFRelease");
}

CFTypeID CFGetTypeID(CFTypeRef reference) {
    return simulator::object_of(reference, "CFGetTypeID").type_id();
}

}  // extern "C"
