// The line of a RADIUS packet. The input: subinfo code (2 bytes), verbosity, and the value.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "language_cache_funcs.h"

namespace {

constexpr std::string_view HEAD = "Radius Pkt Type: ";
constexpr size_t LONGEST_NAME = 19;
constexpr size_t ATTRIBUTE_SIZE = 45;
constexpr size_t PIECE_LIMIT = 255;

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3)
        return 0;
    const size_t length = size - 3;
    const std::unique_ptr<char[]> value(new char[length]);  // of just its size
    std::copy_n(data + 3, length, value.get());
    cl_debug_record_params params{};
    params.info_code = 15;
    params.subinfo_code = data[0] << 8 | data[1];
    params.subinfo_value = value.get();
    params.subinfo_value_len = static_cast<int>(length);
    char *line = nullptr;
    parse_radius_attr(&params, &line, data[2]);
    require(line != nullptr);
    const std::string_view text = line;
    require(text.starts_with(HEAD));
    const size_t attributes = data[2] != 0 ? length / ATTRIBUTE_SIZE : 0;
    require(text.size() <= HEAD.size() + LONGEST_NAME + attributes * PIECE_LIMIT);
    std::free(line);
    return 0;
}
