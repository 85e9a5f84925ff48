// What stands in the place of the rights file is read as the document that it is, or as what could
// be read of it, and the next writing replaces it.

#include <algorithm>
#include <fstream>

#include "fuzz/reference.h"
#include "macos/rights_manager.h"
#include "support/temporary_home.h"

using json_t = nlohmann::json;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const temporary_home_t home;
    static const std::string file = (home.path() / "rights.json").string();
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::ofstream(file, std::ios::binary) << text;

    const json_t none{{"accessibility", false}, {"input_monitoring", false}};
    const json_t read = read_rights_from_file(file);
    const json_t document = json_t::parse(text, nullptr, false);
    require(read == read_rights_from_file(file), "the same file reads the same");
    const auto opened =
        std::count_if(text.begin(), text.end(), [](char c) { return c == '[' || c == '{'; });
    require(document.is_discarded() || read == document || (read == none && opened > 64),
            "a document is read whole");
    require(!json_t::parse(read.dump(4)).is_discarded(), "what is read can be printed");

    const bool granted = size % 2 != 0;
    write_rights_to_file(granted, !granted, file);
    require_same(temporary_home_t::content_of(file),
                 json_t{{"accessibility", granted}, {"input_monitoring", !granted}}.dump(4),
                 "a writing replaces the file");
    return 0;
}
