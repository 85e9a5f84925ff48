#include "core_foundation/mach_port.h"

#include <utility>

#include "core/calls.h"
#include "core/failure.h"
#include "core_foundation/run_loop.h"
#include "core_foundation/values.h"

namespace simulator {

mach_port_t::mach_port_t(std::function<void()> invalidated)
    : _messages(message_source_t::make()), _invalidated(std::move(invalidated)) {}

mach_port_t::~mach_port_t() {
    invalidate();
}

void mach_port_t::invalidate() {
    if (_valid.exchange(false)) {
        _messages->close();
        _invalidated();
    }
}

}  // namespace simulator

using simulator::object_of;

extern "C" {

CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef allocator, CFMachPortRef port,
                                                 CFIndex order) {
    simulator::expect_default_allocator(allocator, __func__);
    const auto& object = object_of<simulator::mach_port_t>(port, __func__);
    if (order != 0) {
        simulator::not_modelled(__func__, "an order");
    }
    if (simulator::shall_fail(__func__) || !object.valid()) {
        return nullptr;
    }
    return static_cast<CFRunLoopSourceRef>(const_cast<void*>(
        simulator::publish(std::make_unique<simulator::run_loop_source_t>(port), __func__)));
}

void CFMachPortInvalidate(CFMachPortRef port) {
    const simulator::call_t call(__func__);
    auto& object = object_of<simulator::mach_port_t>(port, __func__);
    // The source, which goes, may be all that keeps the port.
    const simulator::retained_t<simulator::mach_port_t> kept(port);
    object.invalidate();
}

}  // extern "C"
