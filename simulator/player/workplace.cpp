#include "player/workplace.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "player/session.h"

namespace simulator::player {

namespace fs = std::filesystem;

workplace_t::workplace_t() {
    std::string name = (fs::temp_directory_path() / "qlx-desktop-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder for the desktop: " + name);
    }
    folder = name;
    try {
        _lay_out();
    } catch (...) {
        fs::remove_all(folder);
        throw;
    }
}

workplace_t::workplace_t(fs::path kept) : folder(std::move(kept)), _keep(true) {
    _lay_out();
}

workplace_t::~workplace_t() {
    std::error_code ignored;
    if (!_keep) {
        fs::remove_all(folder, ignored);
    }
}

// The user's own `open` and `osascript` note what they were called with.
void workplace_t::_lay_out() const {
    fs::create_directories(home() / "Library" / "Application Support");
    fs::create_directories(root() / "Applications");
    fs::create_directories(root() / "Library" / "Application Support");
    fs::create_directories(tools());
    for (const char* const name : {"open", "osascript"}) {
        const fs::path tool = tools() / name;
        std::ofstream(tool) << "#!/bin/sh\n"
                               "printf '%s\\0' \"$#\" \"${0##*/}\" \"$@\" >>\"$"
                            << variable_commands << "\"\n";
        fs::permissions(tool, fs::perms::owner_all);
    }
}

}  // namespace simulator::player
