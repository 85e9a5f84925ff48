#pragma once

#include <cstddef>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

// The settings file is text that another program wrote: these limits keep what it can cost.
// A real file has some kilobytes, and its deepest value stands nine levels down.
inline constexpr std::size_t config_size_limit = std::size_t{16} * 1024 * 1024;  // bytes
inline constexpr std::size_t config_nesting_limit = 128;                         // levels

// A settings text that is no JSON document, or more than is accepted; what() says why.
class invalid_config_t : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The bytes of the file at `path`, up to the first few beyond config_size_limit. Nothing when it
// cannot be opened and read, or is not a regular file (or a link to one). Never throws for what is
// wrong with the file, and never waits for another process.
std::optional<std::string> read_config_file(const std::filesystem::path& path);

// Parses the settings text: JSON in UTF-8, without comments. Throws invalid_config_t, also for one
// number beyond the range of a double: it refuses the whole file.
nlohmann::json parse_config(const std::string& text);
