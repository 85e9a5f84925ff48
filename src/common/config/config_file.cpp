#include "common/config/config_file.h"

#include <fcntl.h>

#include <system_error>

#include "common/json_text.h"
#include "common/regular_file.h"

std::optional<std::string> read_config_file(const std::filesystem::path& path) {
    const descriptor_t file = open_regular_file(path.string(), O_RDONLY);
    if (!file.is_open()) {
        return std::nullopt;
    }
    try {
        return read_file(file, config_size_limit);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

nlohmann::json parse_config(const std::string& text) {
    if (text.size() > config_size_limit) {
        throw invalid_config_t("larger than " + std::to_string(config_size_limit) + " bytes");
    }
    try {
        nlohmann::json document;
        parse_json(text, config_nesting_limit, document);
        return document;
    } catch (const nlohmann::json::exception& error) {
        // A syntax error, or a number that is too large even for a double.
        throw invalid_config_t(error.what());
    } catch (const std::length_error& error) {
        throw invalid_config_t(error.what());
    }
}
