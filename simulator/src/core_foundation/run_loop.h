#pragma once

#include <memory>

#include "core/message_source.h"
#include "core/object.h"
#include "core_foundation/mach_port.h"

namespace simulator {

// What a program adds to a run loop in order to get the messages of a port. It keeps the port.
class run_loop_source_t final : public object_t {
  public:
    static constexpr type_e type = type_e::run_loop_source;
    explicit run_loop_source_t(CFTypeRef port) : _port(port), _messages(_port->messages()) {}

    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }
    const std::shared_ptr<message_source_t>& messages() const { return _messages; }

  private:
    retained_t<mach_port_t> _port;
    std::shared_ptr<message_source_t> _messages;
};

}  // namespace simulator
