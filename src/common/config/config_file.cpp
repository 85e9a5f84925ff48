#include "common/config/config_file.h"

#include <fstream>
#include <ios>
#include <system_error>

namespace {

// Whether a value stands deeper than the limit. Up to the first error of a broken document this
// agrees with the parser, so nothing that the parser would build passes unseen.
bool nests_too_deeply(const std::string& text) {
    std::size_t depth = 0;
    bool in_string = false;
    bool escaped = false;
    for (const char c : text) {
        if (in_string) {
            in_string = escaped || c != '"';
            escaped = !escaped && c == '\\';
        } else if (c == '"') {
            in_string = true;
        } else if (c == '[' || c == '{') {
            if (++depth > config_nesting_limit) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

}  // namespace

std::optional<std::string> read_config_file(const std::filesystem::path& path) {
    // A directory can be opened but not read, and a pipe would block until somebody writes to it.
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::string text;
    std::string chunk(std::size_t{64} * 1024, '\0');
    while (file && text.size() <= config_size_limit) {
        file.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        text.append(chunk, 0, static_cast<std::size_t>(file.gcount()));
    }
    if (file.bad()) {
        return std::nullopt;
    }
    return text;
}

nlohmann::json parse_config(const std::string& text) {
    if (text.size() > config_size_limit) {
        throw invalid_config_t("larger than " + std::to_string(config_size_limit) + " bytes");
    }
    // The library parses without recursion, but writes and copies a document with it. (Its parser
    // callback could count the levels, but takes quadratic time for a long list of objects.)
    if (nests_too_deeply(text)) {
        throw invalid_config_t("nested deeper than " + std::to_string(config_nesting_limit) +
                               " levels");
    }
    try {
        return nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception& error) {
        // A syntax error, or a number that is too large even for a double.
        throw invalid_config_t(error.what());
    }
}
