#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "player/session.h"

namespace simulator::player {

std::filesystem::path front_application(const std::filesystem::path& root) {
    return root / "Applications" / "QlxControlCenter.app";
}

std::filesystem::path support_folder(const std::filesystem::path& root_or_home) {
    return root_or_home / "Library" / "Application Support" / "QlxControlCenter";
}

std::filesystem::path settings_file(const std::filesystem::path& home) {
    return support_folder(home) / "deamon-settings.json";
}

std::filesystem::path rights_file(const std::filesystem::path& home) {
    return support_folder(home) / "qlx_daemon_rights.json";
}

std::filesystem::path log_file(const std::filesystem::path& home) {
    return home / "Library" / "Logs" / "QlxDaemon.log";
}

void replace_file(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    const std::filesystem::path beside = file.string() + ".new";
    std::ofstream stream(beside, std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + beside.string());
    }
    std::filesystem::rename(beside, file);
}

std::string file_text(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

}  // namespace simulator::player
