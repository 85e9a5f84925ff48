#pragma once

#include <string>
#include <vector>

namespace simulator {

// The paths that programs opened through Launch Services, in order. Any thread.
std::vector<std::string> launches();

}  // namespace simulator
