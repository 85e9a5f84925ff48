#include "common/json_text.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using nlohmann::json;

// What the library's parser calls. With the library's own callback, which could count the levels,
// too, a long list of objects takes quadratic time.
class document_builder_t {
  public:
    document_builder_t(json& document, std::size_t levels) : _document(document), _levels(levels) {}

    bool null() { return add(nullptr); }
    bool boolean(bool value) { return add(value); }
    bool number_integer(json::number_integer_t value) { return add(value); }
    bool number_unsigned(json::number_unsigned_t value) { return add(value); }
    bool number_float(json::number_float_t value, const std::string& /*text*/) {
        return add(value);
    }
    bool string(std::string& value) { return add(std::move(value)); }
    static bool binary(json::binary_t& /*value*/) { return false; }  // no text has it
    bool start_object(std::size_t /*size*/) { return begin(json::value_t::object); }
    bool start_array(std::size_t /*size*/) { return begin(json::value_t::array); }
    bool key(std::string& name) {
        auto& members = _open.back()->get_ref<json::object_t&>();
        // Those that a program has written come in order.
        _member = &members.emplace_hint(members.end(), std::move(name), nullptr)->second;
        return true;
    }
    bool end_object() { return end(); }
    bool end_array() { return end(); }
    static bool parse_error(std::size_t /*place*/, const std::string& /*token*/,
                            const json::exception& error) {
        throw error;
    }

  private:
    template <typename value_t>
    bool add(value_t&& value) {
        place(json(std::forward<value_t>(value)));
        return true;
    }
    json* place(json&& value) {
        if (_open.empty()) {
            _document = std::move(value);
            return &_document;
        }
        if (_open.back()->is_array()) {
            auto& items = _open.back()->get_ref<json::array_t&>();
            items.push_back(std::move(value));
            return &items.back();
        }
        *_member = std::move(value);
        return _member;
    }
    bool begin(json::value_t type) {
        if (_open.size() == _levels) {
            throw std::length_error("nested deeper than " + std::to_string(_levels) + " levels");
        }
        _open.push_back(place(type));
        return true;
    }
    bool end() {
        _open.pop_back();
        return true;
    }

    json& _document;
    const std::size_t _levels;
    std::vector<json*> _open;  // the lists and objects that are not closed yet
    json* _member = nullptr;   // of the last of them, where it is an object
};

}  // namespace

void parse_json(std::string_view text, std::size_t levels, json& document) {
    document_builder_t builder(document, levels);
    json::sax_parse(text, &builder);
}
