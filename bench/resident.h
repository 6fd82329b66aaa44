/// The memory of this process, for the figures of the benchmarks.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

/// @return resident memory in KiB
inline long resident() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "VmRSS:") == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}
