// The wildcard search of role rules: the input is a pattern, a NUL and a text. The answer is compared with that of
// another way to search.
#include "wl_client_role_internal.h"

#include <algorithm>
#include <bitset>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "wl_log.h"

namespace {

constexpr size_t LONGEST_PATTERN = 2100;  // more than the fuzzer makes

/// Where the search may stand in the pattern: before its first token, its second and so on.
using places = std::bitset<LONGEST_PATTERN + 3>;

/// Follows all ways through a pattern at once, one character of the text after the other.
bool matches(std::string_view text, std::string_view pattern) {
    places star;
    star.set(0);  // neither end is anchored
    std::vector<places> character(256);
    size_t end = 1;
    for (size_t i = 0; i < pattern.size(); i++) {
        if (pattern[i] == '*') {
            if (!star[end - 1])
                star.set(end++);
            continue;
        }
        if (pattern.substr(i, 2) == "\\*")
            i++;
        character[static_cast<uint8_t>(pattern[i])].set(end++);
    }
    if (!star[end - 1])
        star.set(end++);
    places at;
    at.set(0);
    at |= (at & star) << 1;
    for (const char next : text) {
        at = (at & star) | (at & character[static_cast<uint8_t>(next)]) << 1;
        at |= (at & star) << 1;
    }
    return at[end];
}

/// A text in a block of just its size.
std::unique_ptr<char[]> exact_text(std::string_view text) {
    auto block = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(block.get(), text.data(), text.size());
    return block;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_logfile_fd == nullptr) {
        g_logfile_fd = std::fopen("/dev/null", "w");
        g_max_logfile_size = INT_MAX;
        debug = 7;
    }
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::string_view pattern = input.substr(0, input.find('\0'));
    std::string_view text = input.substr(std::min(size, pattern.size() + 1));
    text = text.substr(0, text.find('\0'));
    if (pattern.size() > LONGEST_PATTERN)
        return 0;
    const int expected = !text.empty() && !pattern.empty() && matches(text, pattern);
    if (is_matchstr_found_in_str(exact_text(text).get(), exact_text(pattern).get()) != expected)
        __builtin_trap();
    return 0;
}
