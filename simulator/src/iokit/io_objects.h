#pragma once

#include <IOKit/IOTypes.h>

#include <memory>
#include <string>
#include <vector>

#include "core/failure.h"

// IOKit hands out numbers instead of references. Who holds how much of what is kept in one table,
// so that a wrong release ends the program with the name of the function that was called.
namespace simulator {

class io_entry_t {
  public:
    io_entry_t() = default;
    io_entry_t(const io_entry_t&) = delete;
    io_entry_t& operator=(const io_entry_t&) = delete;
    virtual ~io_entry_t() = default;

    // As in "the service of Built-in".
    virtual std::string description() const = 0;
};

// One more reference for the caller of `function` (the text must live as long as the process): to
// the handle that `entry` has while somebody holds it, or to a new one. Numbers are never used
// again.
io_object_t hand_out(const std::shared_ptr<io_entry_t>& entry, const char* function);

// What stands behind a handle that was given to `function`; ends the program when it is null, dead
// or unknown.
std::shared_ptr<io_entry_t> io_entry_of(io_object_t handle, const char* function);

// The same; ends the program as well when it is of another kind.
template <typename entry_t>
std::shared_ptr<entry_t> io_entry_of(io_object_t handle, const char* function) {
    auto entry = std::dynamic_pointer_cast<entry_t>(io_entry_of(handle, function));
    if (entry == nullptr) {
        misuse(function, "the handle is of something else");
    }
    return entry;
}

// What the program still holds, one line for each handle, such as "IOKit handle of the service of
// Built-in from IOIteratorNext, retained 1". Any thread.
std::vector<std::string> io_objects_alive();

}  // namespace simulator
