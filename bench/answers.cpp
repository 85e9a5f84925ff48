// What the settings cost: an answer, and a load. Each beside the least that any program could do.

#include <benchmark/benchmark.h>

#include <fstream>
#include <map>

#include "bench/in_turn.h"
#include "bench/world.h"
#include "common/config/config.h"
#include "common/config/mouse.h"

namespace {

using nlohmann::json;

const json& entry_of(std::size_t applications) {
    static std::map<std::size_t, json> entries;
    json& entry = entries[applications];
    if (entry.is_null()) {
        entry = json::parse(settings_of(applications))["appState"][0];
    }
    return entry;
}

mouse_t& profile_of(std::size_t applications) {
    static std::map<std::size_t, mouse_t> profiles;
    return profiles.try_emplace(applications, mouse_t::from_json(entry_of(applications)))
        .first->second;
}

// Names that are asked for in turn, as the pointer crosses windows.
const std::array<std::string, 4> known{"Application 3", "Application 7", "Mail", "Application 5"};
const std::array<std::string, 4> unknown{"Photo Viewer", "Some Editor", "Mail", "Console"};
constexpr auto bound = input_value_e::x1_button;
constexpr auto unbound = input_value_e::horizontal_scroll_positive;

// Asks for each of some names in turn, so many times.
template <typename names_t>
auto asking(mouse_t& profile, input_value_e input, const names_t& names) {
    return [&profile, input, &names] {
        for (std::size_t turn = 0; turn < items; ++turn) {
            benchmark::DoNotOptimize(profile.get_action(input, names[turn % names.size()]));
        }
    };
}

// Brings the name into its normal form and looks into one table.
std::string normal_form(const std::string& name) {
    std::string normal(name.size(), '\0');
    char* end = normal.data();
    for (const char c : name) {
        const auto lower = static_cast<char>(c | 0x20);
        *end = lower;
        end += (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') ? 1 : 0;
    }
    normal.resize(static_cast<std::size_t>(end - normal.data()));
    return normal;
}

auto bare_asking() {
    std::unordered_map<cache_key_t, action_t, cache_key_hash_t> table;
    for (const std::string& name : known) {
        table.emplace(cache_key_t{normal_form(name), bound}, do_nothing_t{});
    }
    return [table] {
        for (std::size_t turn = 0; turn < items; ++turn) {
            const cache_key_t key{normal_form(known[turn % known.size()]), bound};
            benchmark::DoNotOptimize(action_t(table.find(key)->second));
        }
    };
}

void cached_answer(benchmark::State& state) {
    in_turn(state, asking(profile_of(10), bound, known), bare_asking());
}

void answer_of_the_store(benchmark::State& state) {
    world_t::instance();
    config_t& store = config_t::instance();
    const auto ours = [&] {
        for (std::size_t turn = 0; turn < items; ++turn) {
            benchmark::DoNotOptimize(
                store.retrieve_action(qlx_device_e::valtor_pro, bound, known[turn % known.size()]));
        }
    };
    in_turn(state, ours, bare_asking());
}

// With 10,000 applications beside with 10.
void cached_answer_of_many(benchmark::State& state) {
    in_turn(state, asking(profile_of(10'000), bound, known), asking(profile_of(10), bound, known));
}

void unbound_input_of_many(benchmark::State& state) {
    in_turn(state, asking(profile_of(10'000), unbound, unknown),
            asking(profile_of(10), unbound, unknown));
}

void first_look_of_many(benchmark::State& state) {
    std::vector<std::string> names(20'000, "Some Editor ");  // more than are remembered
    for (std::size_t number = 0; number < names.size(); ++number) {
        names[number] += std::to_string(number);
    }
    std::size_t turn = 0;
    const auto looking = [&](mouse_t& profile) {
        return [&, &profile = profile] {
            for (std::size_t item = 0; item < items; ++item) {
                benchmark::DoNotOptimize(profile.get_action(unbound, names[turn++ % names.size()]));
            }
        };
    };
    in_turn(state, looking(profile_of(10'000)), looking(profile_of(10)));
}

// Beside parsing the text.
void profile_build(benchmark::State& state) {
    const auto applications = static_cast<std::size_t>(state.range(0));
    const std::string text = settings_of(applications);
    const json& entry = entry_of(applications);
    in_turn(
        state, [&] { benchmark::DoNotOptimize(mouse_t::from_json(entry)); },
        [&] { benchmark::DoNotOptimize(json::parse(text)); });
}

// Beside parsing and printing the text once.
void reload(benchmark::State& state) {
    const std::string text = settings_of(static_cast<std::size_t>(state.range(0)));
    const auto file =
        world_t::instance().home.path() / ("settings " + std::to_string(state.range(0)));
    std::ofstream(file) << text;
    in_turn(
        state, [&] { world_t::load(file); },
        [&] { benchmark::DoNotOptimize(json::parse(text).dump()); });
    if (!world_t::is_loaded(static_cast<std::size_t>(state.range(0)))) {
        state.SkipWithError("the settings were not loaded");
    }
    world_t::load(world_t::instance().home.settings_file());
}

BENCHMARK(cached_answer);
BENCHMARK(answer_of_the_store);
BENCHMARK(cached_answer_of_many);
BENCHMARK(unbound_input_of_many);
BENCHMARK(first_look_of_many);
BENCHMARK(profile_build)->Arg(10)->Arg(10'000)->MinTime(0.5);
BENCHMARK(reload)->Arg(10)->Arg(10'000)->MinTime(0.5);

}  // namespace
