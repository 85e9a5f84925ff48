#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "common/config/config.h"
#include "common/json_text.h"
#include "common/log/log.h"
#include "common/regular_file.h"
#include "macos/rights_manager.h"

namespace {

// What belongs there is flat and short, but anyone may put something else there.
constexpr std::size_t size_limit = std::size_t{1024} * 1024;  // bytes
constexpr std::size_t nesting_limit = 64;                     // levels

// Only the folder is worth a long wait: nobody writes again before the daemon's next start.
constexpr std::chrono::milliseconds longest_wait_for_folder{5000};
constexpr std::chrono::milliseconds longest_wait_for_file{500};
constexpr std::chrono::milliseconds pause_between_tries{2};

// A throw here would end also the queries that need no home folder, before main could answer them.
std::string path_of_rights_file() {
    try {
        return (config_t::get_user_data_path() / "qlx_daemon_rights.json").string();
    } catch (const std::exception&) {
        return {};
    }
}

// False when another process does not let the lock go in time: the daemon must not stand still for
// one that does. A file system without locks is used without them.
bool lock(const descriptor_t& file, int operation, std::chrono::milliseconds at_most) {
    const auto end = std::chrono::steady_clock::now() + at_most;
    while (file.is_open() && flock(file.get(), operation | LOCK_NB) != 0) {
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

void unlock(const descriptor_t& file) {
    flock(file.get(), LOCK_UN);
}

// Some file systems cannot do it and say so; the file is as good as it gets there.
void synchronize(const descriptor_t& file) {
    int result = 0;
    do {
        result = fsync(file.get());
    } while (result != 0 && errno == EINTR);
    if (result != 0 && errno != EINVAL && errno != ENOTSUP) {
        throw std::system_error(errno, std::generic_category(), "fsync");
    }
}

std::string text_of(const descriptor_t& file) {
    std::string text = read_file(file, size_limit);
    if (text.size() > size_limit) {
        throw std::runtime_error("larger than " + std::to_string(size_limit) + " bytes");
    }
    return text;
}

// The JSON text as the library writes it with an indentation of 4; but its values ask for memory
// when they are destroyed, and where there is none the process would end before the file is
// written.
std::string text_of_rights(bool accessibility, bool input_monitoring) {
    return fmt::format("{{\n    \"accessibility\": {},\n    \"input_monitoring\": {}\n}}",
                       accessibility, input_monitoring);
}

// Takes a file away when it ends, without asking for memory.
struct removed_at_end_t {
    const std::string& path;
    ~removed_at_end_t() { unlink(path.c_str()); }
};

// Throws std::bad_alloc.
void write_rights(bool accessibility, bool input_monitoring, const std::string& path) {
    const std::string rights = text_of_rights(accessibility, input_monitoring);
    const std::string temporary = path + ".tmp";
    // All writers share one temporary file, and opening it empties it. So they take turns by a lock
    // on the folder, from before the opening until after the rename: the lock on the temporary file
    // alone would let one of them empty what another is about to put in place. The system lifts the
    // lock of a writer that is killed; what that one left is emptied by the next.
    const descriptor_t folder(open(std::filesystem::path(path).parent_path().c_str(),
                                   O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    if (!lock(folder, LOCK_EX, longest_wait_for_folder)) {
        // Its holder may be about to put the temporary file in place: it is not ours to empty.
        QLX_LOG_ERROR("Failed to write rights status to {}: {}", path, "the folder stays locked");
        return;
    }

    // Without a home folder there is no path, and the working folder is not the place to write to.
    descriptor_t file = path.empty()
                            ? descriptor_t(-1)
                            : open_regular_file(temporary, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!file.is_open()) {
        QLX_LOG_ERROR("Cannot open temp file {}", temporary);
        return;
    }
    try {
        lock(file, LOCK_EX, longest_wait_for_file);
        write_file(file, rights);
        synchronize(file);
        unlock(file);
        file.close();
        std::filesystem::rename(temporary, path);
        QLX_LOG_INFO("Rights status written to {}", path);
    } catch (const std::exception& error) {
        // The line asks for memory, which may be what has failed.
        const removed_at_end_t goes_all_the_same{temporary};
        QLX_LOG_ERROR("Failed to write rights status to {}: {}", path, error.what());
    }
}

}  // namespace

const std::string file_path_rights = path_of_rights_file();

void write_rights_to_file(bool accessibility, bool input_monitoring, const std::string& path) {
    try {
        write_rights(accessibility, input_monitoring, path);
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Failed to write rights status to {}: {}", path, error.what());
    }
}

nlohmann::json read_rights_from_file(const std::string& path) {
    nlohmann::json rights{{"accessibility", false}, {"input_monitoring", false}};
    const descriptor_t file = open_regular_file(path, O_RDONLY);
    if (!file.is_open()) {
        return rights;
    }
    lock(file, LOCK_SH, longest_wait_for_file);
    nlohmann::json found(nlohmann::json::value_t::discarded);
    try {
        parse_json(text_of(file), nesting_limit, found);
        rights.swap(found);
    } catch (const nlohmann::json::exception& error) {
        QLX_LOG_ERROR("Failed to read rights status from {}: {}", path, error.what());
        if (!found.is_discarded()) {  // what came before the fault
            rights.swap(found);
        }
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Failed to read rights status from {}: {}", path, error.what());
    }
    unlock(file);
    return rights;
}
