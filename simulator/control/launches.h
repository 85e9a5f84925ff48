#pragma once

#include <string>
#include <vector>

namespace simulator {

// The paths that programs opened through Launch Services, in order. Any thread.
std::vector<std::string> launches();

// No application opens this path from now on. Any thread.
void refuse_launch(const std::string& path);

}  // namespace simulator
