#pragma once

#include <cstddef>
#include <string_view>

// Whether lists and objects stand within one another more than `levels` deep in a JSON text. The
// JSON library parses without recursion, but prints and copies a document with it: a text that
// somebody else wrote could end the process by its stack. Of a text that is no JSON, what comes
// after its first fault counts as well.
[[nodiscard]] bool nests_deeper_than(std::size_t levels, std::string_view text);
