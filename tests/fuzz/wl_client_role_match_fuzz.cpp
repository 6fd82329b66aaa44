// The wildcard search of role rules: the input is a pattern, a NUL and a text. The answer is compared with that of
// another way to search.
#include "wl_client_role_internal.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "wl_log.h"

namespace {

/// Whether a text matches from here on, by a table of all ends of the two.
bool matches(std::string_view text, std::string_view pattern) {
    struct token {
        bool any;
        char character;
    };
    std::vector<token> tokens = {{true, 0}};
    for (size_t i = 0; i < pattern.size(); i++) {
        if (pattern[i] == '*')
            tokens.push_back({true, 0});
        else if (pattern.substr(i, 2) == "\\*")
            tokens.push_back({false, pattern[++i]});
        else
            tokens.push_back({false, pattern[i]});
    }
    tokens.push_back({true, 0});
    // row[i]: the rest of the text matches the tokens from i on. The end of the text first.
    std::vector<bool> row(tokens.size() + 1);
    for (size_t at = text.size() + 1; at-- > 0;) {
        std::vector<bool> next(row.size());
        next[tokens.size()] = at == text.size();
        for (size_t i = tokens.size(); i-- > 0;) {
            if (tokens[i].any)
                next[i] = next[i + 1] || (at < text.size() && row[i]);
            else
                next[i] = at < text.size() && text[at] == tokens[i].character && row[i + 1];
        }
        row = next;
    }
    return row[0];
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
    const int expected = !text.empty() && !pattern.empty() && matches(text, pattern);
    if (is_matchstr_found_in_str(exact_text(text).get(), exact_text(pattern).get()) != expected)
        __builtin_trap();
    return 0;
}
