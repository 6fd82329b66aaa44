#include "wl_utils.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

int32_t to_number(const char *text) {
    using limits = std::numeric_limits<int32_t>;
    const long value = std::strtol(text, nullptr, 10);
    return static_cast<int32_t>(std::clamp<long>(value, limits::min(), limits::max()));
}
