#include "player/story.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>

namespace simulator::player {
namespace {

std::string time_of_day() {
    using std::chrono::duration_cast, std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto rest = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[sizeof("hh:mm:ss")] = "";
    std::strftime(text, sizeof(text), "%T", &local);
    const std::string thousandths = std::to_string(1000 + rest).substr(1);
    return std::string(text) + "." + thousandths;
}

}  // namespace

void note(const std::string& who, const std::string& what) {
    const char* const file = std::getenv(variable_story);
    if (file == nullptr) {
        return;
    }
    const nlohmann::json line{{"at", time_of_day()}, {"who", who}, {"what", what}};
    std::ofstream(file, std::ios::app)
        << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

}  // namespace simulator::player
