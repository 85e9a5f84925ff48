#pragma once

#include <CoreFoundation/CFMachPort.h>

#include <atomic>
#include <functional>
#include <memory>

#include "core/message_source.h"
#include "core/object.h"

namespace simulator {

// A port through which the desktop sends messages to the program. Only event taps hand out ports
// here.
class mach_port_t final : public object_t {
  public:
    static constexpr type_e type = type_e::mach_port;

    // `invalidated` is called once, on the thread that invalidates the port or releases it last,
    // with no lock held; after it no message of the port starts any more.
    explicit mach_port_t(std::function<void()> invalidated);
    ~mach_port_t() override;

    CFTypeID type_id() const override { return static_cast<CFTypeID>(type); }

    const std::shared_ptr<message_source_t>& messages() const { return _messages; }
    bool valid() const { return _valid; }
    void invalidate();

  private:
    std::shared_ptr<message_source_t> _messages;
    std::function<void()> _invalidated;
    std::atomic<bool> _valid = true;
};

}  // namespace simulator
