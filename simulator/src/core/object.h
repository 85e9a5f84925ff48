#pragma once

#include <CoreFoundation/CFBase.h>

#include <cstddef>
#include <memory>
#include <utility>

// Everything that a caller holds through a Core Foundation reference is an object_t. The reference
// is the object's address. Who owns how much is kept in one table, so that a wrong release ends the
// program with the name of the function that was called, as close to the mistake as can be.
namespace simulator {

class object_t {
  public:
    object_t() = default;
    object_t(const object_t&) = delete;
    object_t& operator=(const object_t&) = delete;
    virtual ~object_t() = default;

    virtual CFTypeID type_id() const = 0;

    // Memory is freed late, so that a dead reference is not mistaken for a newer object.
    static void* operator new(std::size_t size);
    static void operator delete(void* memory, std::size_t size) noexcept;
};

// The types that exist. A number once given never changes: programs print them.
enum class type_e : CFTypeID {
    boolean = 1,
    string,
    number,
    array,
    dictionary,
    url,
    run_loop,
    run_loop_source,
    run_loop_timer,
    mach_port,
    event,
    event_source,
    hid_manager,
    hid_device,
    hid_element,
    hid_value,
    accessibility_element,
};

// Makes `object` known with one owner, the caller of `function` (a Create or Copy call; the text
// must live as long as the process), and returns its reference.
CFTypeRef publish(std::unique_ptr<object_t> object, const char* function);

// The same for an object that lives as long as the process and that nobody owns: constants, what
// Get calls lend. Retaining and releasing it is allowed and does nothing.
CFTypeRef publish_constant(std::unique_ptr<object_t> object);

// As CFRetain and CFRelease on behalf of `function`: end the program when the reference is null,
// dead or unknown. The last release destroys the object, outside of all locks.
void retain(CFTypeRef reference, const char* function);
void release(CFTypeRef reference, const char* function);

// The object behind a reference that was given to `function`; ends the program when the reference
// is null, dead, unknown or of another type.
object_t& object_of(CFTypeRef reference, const char* function);
object_t& object_of(CFTypeRef reference, type_e type, const char* function);

template <typename derived_t>
derived_t& object_of(CFTypeRef reference, const char* function) {
    return static_cast<derived_t&>(object_of(reference, derived_t::type, function));
}

// Shares the ownership of a published object, as a container does.
template <typename derived_t>
class retained_t {
  public:
    retained_t() = default;
    explicit retained_t(CFTypeRef reference) : _reference(reference) {
        if (_reference != nullptr) {
            retain(_reference, "retained_t");
        }
    }
    retained_t(const retained_t& other) : retained_t(other._reference) {}
    retained_t(retained_t&& other) noexcept
        : _reference(std::exchange(other._reference, nullptr)) {}
    retained_t& operator=(retained_t other) noexcept {
        std::swap(_reference, other._reference);
        return *this;
    }
    ~retained_t() {
        if (_reference != nullptr) {
            release(_reference, "retained_t");
        }
    }

    CFTypeRef reference() const { return _reference; }
    explicit operator bool() const { return _reference != nullptr; }
    derived_t* operator->() const { return &object_of<derived_t>(_reference, "retained_t"); }

  private:
    CFTypeRef _reference = nullptr;
};

}  // namespace simulator
