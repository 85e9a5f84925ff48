#include "common/json_nesting.h"

// By hand, since the library's parser callback, which could count the levels, takes quadratic time
// for a long list of objects. Up to the first fault this agrees with the parser, so nothing that
// the parser would build passes unseen.
bool nests_deeper_than(std::size_t levels, std::string_view text) {
    std::size_t depth = 0;
    bool in_string = false;
    bool escaped = false;
    for (const char c : text) {
        if (in_string) {
            in_string = escaped || c != '"';
            escaped = !escaped && c == '\\';
        } else if (c == '"') {
            in_string = true;
        } else if (c == '[' || c == '{') {
            if (++depth > levels) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}
