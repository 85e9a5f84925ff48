#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

// An open descriptor, closed with its owner; a negative number is none.
class descriptor_t {
  public:
    explicit descriptor_t(int number) : _number(number) {}
    descriptor_t(const descriptor_t&) = delete;
    descriptor_t& operator=(const descriptor_t&) = delete;
    ~descriptor_t() { close(); }

    [[nodiscard]] int get() const { return _number; }
    [[nodiscard]] bool is_open() const { return _number >= 0; }
    void close();

  private:
    int _number;
};

// As open(), for a regular file or a link to one, and not handed on to other programs. Never waits
// for another process, as a plain open of a pipe does. Anything that is no regular file is refused:
// not open, with errno, which is what the system says, or EISDIR for a folder and ENOTSUP for the
// rest.
[[nodiscard]] descriptor_t open_regular_file(const std::string& path, int flags, mode_t mode = 0);

// What is left to read of an open file, up to somewhat more than `limit` bytes. Throws
// std::system_error.
[[nodiscard]] std::string read_file(const descriptor_t& file, std::size_t limit);

// Writes all of it. Throws std::system_error.
void write_file(const descriptor_t& file, std::string_view content);
