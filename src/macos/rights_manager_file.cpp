#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "common/config/config.h"
#include "common/log/log.h"
#include "macos/rights_manager.h"

namespace {

// What belongs there is flat, but anyone may put something else there. The JSON library prints and
// copies by recursion, so that a file of many levels would end the process by its stack.
constexpr int deepest_nesting = 64;

constexpr std::chrono::milliseconds longest_wait_for_lock{500};
constexpr std::chrono::milliseconds pause_between_tries{2};

struct nested_too_deeply_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A throw here would end also the queries that need no home folder, before main could answer them.
std::string path_of_rights_file() {
    try {
        return (config_t::get_user_data_path() / "qlx_daemon_rights.json").string();
    } catch (const std::exception&) {
        return {};
    }
}

class descriptor_t {
  public:
    explicit descriptor_t(int descriptor) : _descriptor(descriptor) {}
    descriptor_t(const descriptor_t&) = delete;
    descriptor_t& operator=(const descriptor_t&) = delete;
    ~descriptor_t() { close(); }

    bool is_open() const { return _descriptor >= 0; }

    // False when another process does not let the lock go: the daemon must not stand still for one
    // that does. A file system without locks is used without them.
    bool lock(int operation) const {
        const auto end = std::chrono::steady_clock::now() + longest_wait_for_lock;
        while (is_open() && flock(_descriptor, operation | LOCK_NB) != 0) {
            if (errno != EINTR && errno != EWOULDBLOCK) {
                return true;
            }
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            std::this_thread::sleep_for(pause_between_tries);
        }
        return true;
    }

    // Some file systems cannot do it and say so; the file is as good as it gets there.
    void synchronize() const {
        int result = 0;
        do {
            result = fsync(_descriptor);
        } while (result != 0 && errno == EINTR);
        if (result != 0 && errno != EINVAL && errno != ENOTSUP) {
            throw std::system_error(errno, std::generic_category(), "fsync");
        }
    }

    void close() {
        if (is_open()) {
            ::close(std::exchange(_descriptor, -1));
        }
    }

  private:
    int _descriptor;
};

void write_json(const std::string& path, const nlohmann::json& value) {
    std::ofstream stream(path);
    stream << std::setw(4) << value << std::flush;
    if (!stream) {
        throw std::runtime_error("cannot write " + path);
    }
}

nlohmann::json parse_flat(const std::string& text) {
    return nlohmann::json::parse(text,
                                 [](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
                                     if (depth > deepest_nesting) {
                                         throw nested_too_deeply_t("nested too deeply");
                                     }
                                     return true;
                                 });
}

// Reads into `value` what comes before the fault of a text that is not JSON.
void parse_until_fault(const std::string& text, nlohmann::json& value) {
    try {
        std::istringstream(text) >> value;
    } catch (const nlohmann::json::exception&) {
        // The caller has reported it.
    }
}

}  // namespace

const std::string file_path_rights = path_of_rights_file();

void write_rights_to_file(bool accessibility, bool input_monitoring, const std::string& path) {
    const nlohmann::json rights{{"accessibility", accessibility},
                                {"input_monitoring", input_monitoring}};
    const std::string temporary = path + ".tmp";
    // All writers share one temporary file, and opening it empties it. So they take turns by a lock
    // on the folder, from before the opening until after the rename: the lock on the temporary file
    // alone would let one of them empty what another is about to put in place. The system lifts the
    // lock of a writer that is killed; what that one left is emptied by the next.
    const descriptor_t folder(
        open(std::filesystem::path(path).parent_path().c_str(), O_RDONLY | O_CLOEXEC));
    if (!folder.lock(LOCK_EX)) {
        // Its holder may be about to put the temporary file in place: it is not ours to empty.
        QLX_LOG_ERROR("Failed to write rights status to {}: {}", path, "the folder stays locked");
        return;
    }

    // Without a home folder there is no path, and the working folder is not the place to write to.
    descriptor_t file(path.empty() ? -1
                                   : open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
    if (!file.is_open()) {
        QLX_LOG_ERROR("Cannot open temp file {}", temporary);
        return;
    }
    try {
        file.lock(LOCK_EX);
        write_json(temporary, rights);
        file.synchronize();
        file.lock(LOCK_UN);
        file.close();
        std::filesystem::rename(temporary, path);
        QLX_LOG_INFO("Rights status written to {}", path);
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Failed to write rights status to {}: {}", path, error.what());
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
    }
}

nlohmann::json read_rights_from_file(const std::string& path) {
    nlohmann::json rights{{"accessibility", false}, {"input_monitoring", false}};
    const descriptor_t file(open(path.c_str(), O_RDONLY));
    if (!file.is_open()) {
        return rights;
    }
    file.lock(LOCK_SH);
    std::string text;
    try {
        std::ifstream stream(path);
        text.assign(std::istreambuf_iterator<char>(stream), {});
        rights = parse_flat(text);
    } catch (const nested_too_deeply_t& error) {
        QLX_LOG_ERROR("Failed to read rights status from {}: {}", path, error.what());
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Failed to read rights status from {}: {}", path, error.what());
        parse_until_fault(text, rights);
    }
    file.lock(LOCK_UN);
    return rights;
}
