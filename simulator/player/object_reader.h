#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace simulator::player {

using json_t = nlohmann::json;

// The texts with commas between; `of_none` where there are none.
template <typename texts_t>
std::string joined(const texts_t& texts, const char* of_none) {
    std::string all;
    for (const std::string& text : texts) {
        all.append(all.empty() ? "" : ", ").append(text);
    }
    return all.empty() ? of_none : all;
}

// With '?' for what would break the line, such as names may hold.
inline std::string in_one_line(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
    return text;
}

// One JSON object of a scenario whose keys must all be known: what nobody asked for is an error.
// Every error is a std::runtime_error that begins with the object's place. The object must live
// longer.
class object_reader_t {
  public:
    object_reader_t(const json_t& json, std::string where) : _json(json), _where(std::move(where)) {
        if (!_json.is_object()) {
            fail("must be an object");
        }
    }

    [[noreturn]] void fail(const std::string& what) const {
        throw std::runtime_error(_where + ": " + what);
    }

    const std::string& where() const { return _where; }

    const json_t* find(const std::string& key) {
        _known.insert(key);
        const auto found = _json.find(key);
        return found == _json.end() ? nullptr : &*found;
    }

    const json_t& need(const std::string& key) {
        const json_t* const value = find(key);
        if (value == nullptr) {
            fail("\"" + key + "\" is missing");
        }
        return *value;
    }

    std::string text(const std::string& key) { return text_of(key, need(key)); }
    std::string text(const std::string& key, const std::string& otherwise) {
        const json_t* const value = find(key);
        return value == nullptr ? otherwise : text_of(key, *value);
    }

    bool boolean(const std::string& key, bool otherwise) {
        const json_t* const value = find(key);
        if (value == nullptr) {
            return otherwise;
        }
        if (!value->is_boolean()) {
            fail("\"" + key + "\" must be true or false");
        }
        return value->get<bool>();
    }

    std::int64_t integer(const std::string& key, std::int64_t least, std::int64_t most) {
        return integer_of(key, need(key), least, most);
    }
    std::int64_t integer(const std::string& key, std::int64_t least, std::int64_t most,
                         std::int64_t otherwise) {
        const json_t* const value = find(key);
        return value == nullptr ? otherwise : integer_of(key, *value, least, most);
    }

    std::vector<std::string> texts(const std::string& key) {
        std::vector<std::string> all;
        const json_t* const value = find(key);
        if (value == nullptr) {
            return all;
        }
        if (!value->is_array()) {
            fail("\"" + key + "\" must be a list of texts");
        }
        for (const json_t& item : *value) {
            all.push_back(text_of(key, item));
        }
        return all;
    }

    template <typename value_t>
    value_t one_of(const std::string& key, const std::string& given,
                   const std::map<std::string, value_t>& values) const {
        const auto found = values.find(given);
        if (found == values.end()) {
            std::set<std::string> known;
            for (const auto& [name, value] : values) {
                known.insert(name);
            }
            fail("\"" + key + "\" is \"" + given + "\"; known are: " + joined(known, "none"));
        }
        return found->second;
    }

    // Call when everything has been asked for.
    void finish() const {
        for (const auto& [key, value] : _json.items()) {
            if (_known.count(key) == 0) {
                fail("\"" + key +
                     "\" is not a known key here; known are: " + joined(_known, "none"));
            }
        }
    }

  private:
    std::string text_of(const std::string& key, const json_t& value) const {
        if (!value.is_string()) {
            fail("\"" + key + "\" must be a text");
        }
        return value.get<std::string>();
    }

    std::int64_t integer_of(const std::string& key, const json_t& value, std::int64_t least,
                            std::int64_t most) const {
        const bool fits =
            value.is_number_integer() &&
            !(value.is_number_unsigned() &&
              value.get<std::uint64_t>() >
                  static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
        if (!fits || value.get<std::int64_t>() < least || value.get<std::int64_t>() > most) {
            fail("\"" + key + "\" must be a whole number from " + std::to_string(least) + " to " +
                 std::to_string(most));
        }
        return value.get<std::int64_t>();
    }

    const json_t& _json;
    std::string _where;
    std::set<std::string> _known;
};

}  // namespace simulator::player
