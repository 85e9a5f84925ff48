#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

// A home folder of the test's own, named in HOME, and gone with its end. Make it before any thread.
class temporary_home_t {
  public:
    temporary_home_t() {
        std::string name = (std::filesystem::temp_directory_path() / "qlx-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        _path = name;
        setenv("HOME", _path.c_str(), 1);
    }
    ~temporary_home_t() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    temporary_home_t(const temporary_home_t&) = delete;
    temporary_home_t& operator=(const temporary_home_t&) = delete;

    const std::filesystem::path& path() const { return _path; }
    std::filesystem::path user_data() const {
        return _path / "Library" / "Application Support" / "QlxControlCenter";
    }
    std::filesystem::path settings_file() const { return user_data() / "deamon-settings.json"; }
    std::filesystem::path log_file() const { return _path / "Library" / "Logs" / "QlxDaemon.log"; }

    // Puts the settings in place as the front application does: written beside, then renamed.
    void write_settings(const std::string& text) const {
        std::filesystem::create_directories(user_data());
        const auto beside = user_data() / "deamon-settings.json.new";
        std::ofstream(beside, std::ios::binary) << text;
        std::filesystem::rename(beside, settings_file());
    }

    // Empty when there is no such file.
    static std::string content_of(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

  private:
    std::filesystem::path _path;
};
