#pragma once

#include <IOKit/IOKitLib.h>

#include <utility>

// Owns one IOKit object handle, such as a service or an iterator, and releases it at the end of its
// scope. Any thread, one at a time.
class io_handle_t {
  public:
    io_handle_t() = default;

    // Takes over a handle that a call handed out to be released. May be IO_OBJECT_NULL.
    [[nodiscard]] static io_handle_t adopt(io_object_t object) { return io_handle_t(object); }

    io_handle_t(io_handle_t&& other) noexcept
        : _object(std::exchange(other._object, IO_OBJECT_NULL)) {}
    io_handle_t& operator=(io_handle_t&& other) noexcept {
        if (this != &other) {
            reset();
            _object = std::exchange(other._object, IO_OBJECT_NULL);
        }
        return *this;
    }
    io_handle_t(const io_handle_t&) = delete;
    io_handle_t& operator=(const io_handle_t&) = delete;
    ~io_handle_t() { reset(); }

    // The handle, lent for the lifetime of this object; IO_OBJECT_NULL when there is none.
    [[nodiscard]] io_object_t get() const { return _object; }

    [[nodiscard]] explicit operator bool() const { return _object != IO_OBJECT_NULL; }

    // Gives the ownership up to the caller.
    [[nodiscard]] io_object_t release() { return std::exchange(_object, IO_OBJECT_NULL); }

    void reset() {
        if (_object != IO_OBJECT_NULL) {
            IOObjectRelease(std::exchange(_object, IO_OBJECT_NULL));
        }
    }

    // Where a call writes the handle that it hands out. Whatever was owned is released.
    [[nodiscard]] io_object_t* out() {
        reset();
        return &_object;
    }

  private:
    explicit io_handle_t(io_object_t object) : _object(object) {}

    io_object_t _object = IO_OBJECT_NULL;
};
