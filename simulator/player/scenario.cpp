#include "player/scenario.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <functional>
#include <set>
#include <stdexcept>
#include <utility>

#include "macos/device_mappings.h"
#include "player/course.h"
#include "player/key_names.h"
#include "player/object_reader.h"

namespace simulator::player {
namespace {

// A settings file is given as the object that it holds, or as its text where it is to be broken.
std::string settings_text(const object_reader_t& reader, const json_t& value) {
    if (!value.is_string() && !value.is_object()) {
        reader.fail("\"settings\" must be an object, or a text");
    }
    return value.is_string() ? value.get<std::string>() : value.dump(4);
}

device_description_t read_device(const json_t& json, const std::string& where) {
    object_reader_t reader(json, where);
    device_description_t device;
    device.name = reader.text("name", "");
    if (reader.find("product") != nullptr) {
        std::map<std::string, const device_mapping_t*> products;
        for (const device_mapping_t& known : device_mappings) {
            products.emplace(known.product_name, &known);
        }
        const auto* const row = reader.one_of("product", reader.text("product"), products);
        device.vendor_id = row->vendor_id;
        device.product_id = row->product_id;
        device.keyboard = keyboard_pairs;
        if (device.name.empty()) {
            device.name = std::string(row->model_name);
        }
    } else {
        constexpr std::int64_t most = 0xFFFF;
        device.vendor_id = static_cast<std::uint32_t>(reader.integer("vendor_id", 0, most));
        device.product_id = static_cast<std::uint32_t>(reader.integer("product_id", 0, most));
    }
    if (!reader.boolean("pointer", true)) {
        device.pointer.clear();
    }
    if (const json_t* const keyboard = reader.find("keyboard"); keyboard != nullptr) {
        device.keyboard = reader.one_of<usages_t>(
            "keyboard", keyboard->is_string() ? keyboard->get<std::string>() : keyboard->dump(),
            {{"true", keyboard_pairs}, {"false", {}}, {"key page", key_page_pairs}});
    }
    device.combined = reader.boolean("combined", false);
    reader.finish();
    return device;
}

application_t read_application(const json_t& json, const std::string& name,
                               const std::string& where) {
    object_reader_t reader(json, where);
    application_t application;
    application.process_name = reader.text("process", name);
    application.window_title = reader.text("window", name);
    const json_t& frame = reader.need("frame");
    if (!frame.is_array() || frame.size() != 4 ||
        !std::all_of(frame.begin(), frame.end(), [](const json_t& n) { return n.is_number(); })) {
        reader.fail("\"frame\" must be [x, y, width, height]");
    }
    application.frame = {{frame[0].get<double>(), frame[1].get<double>()},
                         {frame[2].get<double>(), frame[3].get<double>()}};
    reader.finish();
    return application;
}

const std::map<std::string, permission_e> permission_names = {
    {"accessibility", permission_e::accessibility},
    {"input_monitoring", permission_e::input_monitoring}};

const std::map<std::string, std::uint32_t> button_names = {
    {"left", 0},   {"right", 1},    {"middle", 2},  {"side 1", 3},
    {"side 2", 4}, {"button 6", 5}, {"button 7", 6}};

phase_e phase_of(const std::string& verb) {
    return verb.find("press") == 0     ? phase_e::down
           : verb.find("release") == 0 ? phase_e::up
                                       : phase_e::both;
}

deed_t read_trackpad(object_reader_t& reader) {
    constexpr std::int64_t most = 10000;
    trackpad_t trackpad;
    scroll_fields_t& fields = trackpad.fields;
    fields.point_axis_1 = reader.integer("vertical", -most, most, 0);
    fields.point_axis_2 = reader.integer("horizontal", -most, most, 0);
    fields.continuous = reader.boolean("continuous", true);
    fields.phase = reader.integer("phase", 0, 255, 0);
    fields.momentum_phase = reader.integer("momentum", 0, 3, 0);
    return trackpad;
}

deed_t read_key(object_reader_t& reader, const std::string& verb) {
    const std::string name = reader.text("key");
    const auto code = key_code(name);
    if (!code) {
        reader.fail("\"key\" is \"" + name + "\", which is no key");
    }
    return key_t{*code, phase_of(verb)};
}

using deed_reader_t = std::function<deed_t(object_reader_t&, const std::string& verb)>;

deed_t read_button(object_reader_t& reader, const std::string& verb) {
    return button_t{reader.one_of("button", reader.text("button"), button_names), phase_of(verb)};
}

deed_t read_permission(object_reader_t& reader, const std::string& verb) {
    return permission_change_t{
        reader.one_of("permission", reader.text("permission"), permission_names), verb == "grant"};
}

struct verb_t {
    bool needs_device;
    deed_reader_t read;
};

const std::map<std::string, verb_t>& verbs() {
    constexpr std::int64_t most_steps = 1000;
    static const std::map<std::string, verb_t> all = {
        {"move", {true, [](object_reader_t&, const std::string&) -> deed_t { return move_t{}; }}},
        {"press", {true, read_button}},
        {"release", {true, read_button}},
        {"click", {true, read_button}},
        {"wheel",
         {true,
          [](object_reader_t& reader, const std::string&) -> deed_t {
              wheel_t wheel;
              wheel.vertical =
                  static_cast<std::int32_t>(reader.integer("vertical", -most_steps, most_steps, 0));
              wheel.horizontal = static_cast<std::int32_t>(
                  reader.integer("horizontal", -most_steps, most_steps, 0));
              return wheel;
          }}},
        {"trackpad",
         {true,
          [](object_reader_t& reader, const std::string&) -> deed_t {
              return read_trackpad(reader);
          }}},
        {"press key", {true, read_key}},
        {"release key", {true, read_key}},
        {"tap key", {true, read_key}},
        {"connect",
         {true, [](object_reader_t&, const std::string&) -> deed_t { return connection_t{true}; }}},
        {"disconnect",
         {true,
          [](object_reader_t&, const std::string&) -> deed_t { return connection_t{false}; }}},
        {"write settings",
         {false,
          [](object_reader_t& reader, const std::string&) -> deed_t {
              return settings_t{settings_text(reader, reader.need("settings"))};
          }}},
        {"grant", {false, read_permission}},
        {"revoke", {false, read_permission}},
        {"delete front application",
         {false,
          [](object_reader_t&, const std::string&) -> deed_t {
              return removal_t{removal_e::deleted};
          }}},
        {"rename front application",
         {false,
          [](object_reader_t&, const std::string&) -> deed_t {
              return removal_t{removal_e::renamed};
          }}},
        {"move front application",
         {false,
          [](object_reader_t&, const std::string&) -> deed_t {
              return removal_t{removal_e::moved};
          }}},
        {"hang application",
         {false,
          [](object_reader_t& reader, const std::string&) -> deed_t {
              return hanging_t{reader.text("application"), true};
          }}},
        {"wake application",
         {false,
          [](object_reader_t& reader, const std::string&) -> deed_t {
              return hanging_t{reader.text("application"), false};
          }}},
        {"burst", {false, nullptr}},
        {"hold daemon",
         {false, [](object_reader_t&, const std::string&) -> deed_t { return hold_t{}; }}},
        {"look", {false, [](object_reader_t&, const std::string&) -> deed_t { return look_t{}; }}},
        {"wait for exit",
         {false, [](object_reader_t&, const std::string&) -> deed_t { return exit_t{}; }}},
        {"stop",
         {false,
          [](object_reader_t& reader, const std::string&) -> deed_t {
              return stop_t{reader.one_of<int>(
                  "signal", reader.text("signal", "SIGTERM"),
                  {{"SIGTERM", SIGTERM}, {"SIGINT", SIGINT}, {"SIGHUP", SIGHUP}})};
          }}},
    };
    return all;
}

expectation_t read_expectation(const json_t& json, const std::string& where) {
    object_reader_t reader(json, where + ", \"expect\"");
    expectation_t expect;
    if (const json_t* const event = reader.find("event"); event != nullptr) {
        const auto texts =
            event->is_array() ? reader.texts("event") : std::vector{reader.text("event")};
        for (const std::string& text : texts) {
            expect.events.push_back(
                reader.one_of<event_outcome_e>("event", text,
                                               {{"delivered", event_outcome_e::delivered},
                                                {"swallowed", event_outcome_e::swallowed}}));
        }
    }
    if (reader.find("keys") != nullptr) {
        expect.keys = reader.texts("keys");
        for (const std::string& text : *expect.keys) {
            if (!is_key_event_text(text)) {
                reader.fail("\"keys\" has \"" + text +
                            "\", which is no event of a key, such as \"C down [Command]\"");
            }
        }
    }
    if (reader.find("effects") != nullptr) {
        expect.effects = reader.texts("effects");
    }
    if (reader.find("active_model") != nullptr) {
        expect.active_model = reader.text("active_model");
        reader.one_of("active_model", *expect.active_model, model_numbers);
    }
    expect.log = reader.texts("log");
    reader.finish();
    return expect;
}

// Reads what is done, with what and where, from an object that may hold more.
step_t read_deed(object_reader_t& reader, const scenario_t& scenario);

burst_t read_burst(object_reader_t& reader, const scenario_t& scenario) {
    const json_t& acts = reader.need("acts");
    if (!acts.is_array() || acts.empty()) {
        reader.fail("\"acts\" must be a list with at least one act");
    }
    burst_t burst;
    for (const json_t& act : acts) {
        object_reader_t inner(act,
                              reader.where() + ", act " + std::to_string(burst.acts.size() + 1));
        burst.acts.push_back(read_deed(inner, scenario));
        const step_t& read = burst.acts.back();
        if (read.device.empty() || std::holds_alternative<connection_t>(read.deed)) {
            inner.fail("\"do\" is \"" + inner.text("do") + "\", which is no act of the hand");
        }
        inner.finish();
    }
    return burst;
}

step_t read_deed(object_reader_t& reader, const scenario_t& scenario) {
    step_t step;
    step.where = reader.where();
    const std::string verb_name = reader.text("do");
    const verb_t verb = reader.one_of("do", verb_name, verbs());
    if (verb.needs_device) {
        step.device = reader.text("device");
        static_cast<void>(reader.one_of("device", step.device, scenario.devices));
        step.over = reader.text("over", "");
        if (!step.over.empty()) {
            static_cast<void>(reader.one_of("over", step.over, scenario.applications));
        }
    }
    step.deed = verb.read ? verb.read(reader, verb_name) : read_burst(reader, scenario);
    return step;
}

step_t read_step(const json_t& json, const std::string& where, const scenario_t& scenario) {
    object_reader_t reader(json, where);
    step_t step = read_deed(reader, scenario);
    step.after = std::chrono::milliseconds(reader.integer("after_ms", 0, 60000, 0));
    if (const json_t* const expect = reader.find("expect"); expect != nullptr) {
        step.expect = read_expectation(*expect, where);
    }
    reader.finish();
    return step;
}

enum class numbers_e { below, entry, none };

display_t read_display(object_reader_t& reader) {
    constexpr std::int64_t most = 0xFFFFFFFF;
    const auto vendor = static_cast<std::uint32_t>(reader.integer("vendor", 0, most));
    const auto product = static_cast<std::uint32_t>(reader.integer("product", 0, most));
    display_t display = usual_display(reader.text("name"), vendor, product);
    switch (reader.one_of<numbers_e>("numbers", reader.text("numbers", "below"),
                                     {{"below", numbers_e::below},
                                      {"on entry", numbers_e::entry},
                                      {"no entry", numbers_e::none}})) {
        case numbers_e::below:
            break;
        case numbers_e::entry:
            std::swap(display.service->entry, display.service->below);
            break;
        case numbers_e::none:
            display.service.reset();
            break;
    }
    return display;
}

// One screen where nothing is said.
void read_displays(object_reader_t& reader, run_t& run) {
    const json_t* const displays = reader.find("displays");
    if (displays == nullptr) {
        run.displays = {usual_display("Screen", 0x0610, 0xA032)};
        return;
    }
    if (!displays->is_array()) {
        reader.fail("\"displays\" must be a list");
    }
    bool has_main = false;
    for (const json_t& display : *displays) {
        const std::size_t index = run.displays.size();
        object_reader_t inner(display, reader.where() + ", display " + std::to_string(index + 1));
        run.displays.push_back(read_display(inner));
        if (inner.boolean("main", false)) {
            if (std::exchange(has_main, true)) {
                inner.fail("\"main\" is another display already");
            }
            run.main_display = index;
        }
        inner.finish();
    }
}

// Reads the keys of a run from an object that may hold more (a scenario of one run is its own run).
run_t read_run(object_reader_t& reader, const scenario_t& scenario) {
    run_t run;
    run.permissions = {{permission_e::accessibility, true}, {permission_e::input_monitoring, true}};
    if (const json_t* const permissions = reader.find("permissions"); permissions != nullptr) {
        object_reader_t inner(*permissions, reader.where() + ", \"permissions\"");
        for (const auto& [name, permission] : permission_names) {
            const json_t* const value = inner.find(name);
            const bool undecided = permission == permission_e::input_monitoring &&
                                   value != nullptr && *value == "undecided";
            run.permissions[permission] =
                undecided ? std::nullopt : std::optional(inner.boolean(name, true));
        }
        inner.finish();
    }
    if (const json_t* const front = reader.find("front_application"); front != nullptr) {
        run.front_application = reader.one_of<front_application_e>(
            "front_application", front->is_string() ? front->get<std::string>() : front->dump(),
            {{"true", front_application_e::bundle},
             {"false", front_application_e::nothing},
             {"file", front_application_e::plain_file}});
    }
    read_displays(reader, run);
    if (const json_t* const calls = reader.find("failing_calls"); calls != nullptr) {
        object_reader_t inner(*calls, reader.where() + ", \"failing_calls\"");
        for (const char* const name : {"CGEventTapCreate", "IOHIDManagerCreate"}) {
            constexpr std::int64_t most = 100;
            if (const auto times = inner.integer(name, 0, most, 0); times > 0) {
                run.failing_calls[name] = static_cast<std::size_t>(times);
            }
        }
        inner.finish();
    }
    const json_t& steps = reader.need("steps");
    if (!steps.is_array() || steps.empty()) {
        reader.fail("\"steps\" must be a list with at least one step");
    }
    for (std::size_t index = 0; index < steps.size(); ++index) {
        run.steps.push_back(read_step(
            steps[index], reader.where() + ", step " + std::to_string(index + 1), scenario));
    }
    check_course(scenario, run);
    if (const json_t* const expect = reader.find("expect"); expect != nullptr) {
        object_reader_t inner(*expect, reader.where() + ", \"expect\"");
        run.exit_code = static_cast<int>(inner.integer("exit_code", 0, 255, 1));
        run.log = inner.texts("log");
        run.left_behind = inner.texts("left_behind");
        if (inner.find("rights_file") != nullptr) {
            run.rights_file = inner.text("rights_file");
        }
        if (inner.find("uninstall_trigger") != nullptr) {
            run.uninstall_trigger = inner.one_of<std::string>(
                "uninstall_trigger", inner.text("uninstall_trigger"),
                {{"system", "system"}, {"user", "user"}, {"none", "none"}});
        }
        inner.finish();
    }
    return run;
}

void read_named(object_reader_t& reader, const std::string& key,
                const std::function<void(const std::string&, const json_t&, std::string)>& read) {
    const json_t* const all = reader.find(key);
    if (all == nullptr) {
        return;
    }
    const std::string where = reader.where() + ", \"" + key + "\"";
    if (!all->is_object()) {
        throw std::runtime_error(where + ": must be an object");
    }
    for (const auto& [name, value] : all->items()) {
        std::string place = where;
        place.append(", \"").append(name).append("\"");
        read(name, value, std::move(place));
    }
}

json_t parse(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error(file.string() + ": cannot be opened");
    }
    std::vector<std::set<std::string>> keys;  // of the objects around the place
    const auto refuse_repetition = [&](int, json_t::parse_event_t event, json_t& parsed) {
        if (event == json_t::parse_event_t::object_start) {
            keys.emplace_back();
        } else if (event == json_t::parse_event_t::object_end) {
            keys.pop_back();
        } else if (event == json_t::parse_event_t::key &&
                   !keys.back().insert(parsed.get<std::string>()).second) {
            throw std::runtime_error("\"" + parsed.get<std::string>() + "\" stands twice");
        }
        return true;
    };
    try {
        return json_t::parse(stream, refuse_repetition);
    } catch (const std::exception& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

scenario_t read_checked(const std::filesystem::path& file) {
    const json_t json = parse(file);
    object_reader_t reader(json, file.string());
    scenario_t scenario;
    scenario.title = reader.text("title");
    if (const json_t* const settings = reader.find("settings"); settings != nullptr) {
        scenario.settings = settings_text(reader, *settings);
    }
    scenario.system_support_folder = reader.boolean("system_support_folder", false);
    scenario.messaging_timeout =
        std::chrono::milliseconds(reader.integer("messaging_timeout_ms", 1, 60000, 6000));
    read_named(reader, "devices", [&](const auto& name, const json_t& value, const auto& where) {
        scenario.devices[name] = read_device(value, where);
        if (scenario.devices[name].name.empty()) {
            scenario.devices[name].name = name;
        }
    });
    read_named(reader, "applications",
               [&](const auto& name, const json_t& value, const auto& where) {
                   scenario.applications[name] = read_application(value, name, where);
               });
    if (const json_t* const runs = reader.find("runs"); runs != nullptr) {
        if (!runs->is_array() || runs->empty()) {
            reader.fail("\"runs\" must be a list with at least one run");
        }
        for (std::size_t index = 0; index < runs->size(); ++index) {
            object_reader_t inner((*runs)[index],
                                  file.string() + ", run " + std::to_string(index + 1));
            scenario.runs.push_back(read_run(inner, scenario));
            inner.finish();
        }
    } else {
        scenario.runs.push_back(read_run(reader, scenario));
    }
    reader.finish();
    return scenario;
}

}  // namespace

scenario_t read_scenario(const std::filesystem::path& file) {
    try {
        return read_checked(file);
    } catch (const std::runtime_error& error) {
        // What the scenario names may hold line breaks.
        const std::string line = in_one_line(error.what());
        throw std::runtime_error(line);
    }
}

}  // namespace simulator::player
