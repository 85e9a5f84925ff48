#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
        alarm(0);
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

    // Puts a pipe in the place of a file, with others at both its ends or nobody at all. A test
    // that is stuck at it is ended.
    static void put_pipe(const std::filesystem::path& file, bool others_there) {
        std::filesystem::create_directories(file.parent_path());
        std::filesystem::remove(file);
        if (mkfifo(file.c_str(), 0600) != 0 || (others_there && open(file.c_str(), O_RDWR) < 0)) {
            throw std::runtime_error("no pipe to be had");
        }
        alarm(10);
    }

    // Empty when there is no such file.
    static std::string content_of(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

  private:
    std::filesystem::path _path;
};
