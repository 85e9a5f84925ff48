#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

// Owns one Core Foundation reference and releases it at the end of its scope. It is made by naming
// the case, so that the reader sees which rule of the platform applies. Any thread, one at a time.
template <typename ref_t>
class cpf_t {
  public:
    cpf_t() = default;

    // Takes over a reference that a Create or Copy call handed out. May be null.
    [[nodiscard]] static cpf_t adopt(ref_t reference) { return cpf_t(reference); }

    // Adds an ownership of its own to a reference that a Get call lent. May be null.
    [[nodiscard]] static cpf_t retain(ref_t reference) {
        if (reference != nullptr) {
            CFRetain(reference);
        }
        return cpf_t(reference);
    }

    cpf_t(cpf_t&& other) noexcept : _reference(std::exchange(other._reference, nullptr)) {}
    cpf_t& operator=(cpf_t&& other) noexcept {
        if (this != &other) {
            reset();
            _reference = std::exchange(other._reference, nullptr);
        }
        return *this;
    }
    cpf_t(const cpf_t&) = delete;
    cpf_t& operator=(const cpf_t&) = delete;
    ~cpf_t() { reset(); }

    // The reference, lent for the lifetime of this object; null when there is none.
    [[nodiscard]] ref_t get() const { return _reference; }

    [[nodiscard]] explicit operator bool() const { return _reference != nullptr; }

    // Gives the ownership up to the caller.
    [[nodiscard]] ref_t release() { return std::exchange(_reference, nullptr); }

    void reset() {
        if (_reference != nullptr) {
            CFRelease(std::exchange(_reference, nullptr));
        }
    }

    // Where a Copy call writes the reference that it hands out. Whatever was owned is released.
    [[nodiscard]] ref_t* out() {
        reset();
        return &_reference;
    }

  private:
    explicit cpf_t(ref_t reference) : _reference(reference) {}

    ref_t _reference = nullptr;
};
