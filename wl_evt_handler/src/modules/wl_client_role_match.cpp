// The wildcard search of role rules. Its traces are at level 3, where support engineers look for a role that is
// missing.
#include <cstdlib>
#include <cstring>

#include "debug_log.h"
#include "wl_client_role_internal.h"

namespace {

constexpr char WILDCARD = '*';
constexpr char ESCAPE = '\\';
constexpr char WILDCARDS[] = "*";

bool is_empty(const char *text) {
    return text == nullptr || text[0] == '\0';
}

/// @return the text behind the piece; null when the piece is not in it
const char *find_piece(const char *text, const char *piece) {
    const size_t length = std::strlen(piece);
    if (std::strlen(text) < length) {
        WL_LOG_AS("is_matchstr_found_in_str", 3, "Substring[%s] is greater than the String[%s]", piece, text);
        return nullptr;
    }
    WL_LOG_AS("is_matchstr_found_in_str", 3, "Check Substring[%s] in String[%s]", piece, text);
    const char *const place = std::strstr(text, piece);
    if (place == nullptr) {
        WL_LOG_AS("is_matchstr_found_in_str", 3, "Substring [%s] NOT found in Str [%s]", piece, text);
        return nullptr;
    }
    WL_LOG_AS("is_matchstr_found_in_str", 3, "Substring [%s] found in Str [%s] at location %ld", piece, text,
              static_cast<long>(place - text));
    return place + length;
}

/// @param piece  room for the whole pattern
bool has_all_pieces(const char *text, const char *pattern, char *piece) {
    int index = 0;
    while (text != nullptr && pattern[index] != '\0') {
        get_next_substring(pattern, &index, piece);
        if (piece[0] != '\0')
            text = find_piece(text, piece);
    }
    return text != nullptr;
}

}  // namespace

int is_matchstr_found_in_str(const char *str, const char *match_text) {
    if (is_empty(str) || is_empty(match_text)) {
        WL_LOG(3, "Either String or match_text is empty");
        return 0;
    }
    if (std::strchr(match_text, WILDCARD) == nullptr)
        return std::strstr(str, match_text) != nullptr ? 1 : 0;
    const size_t length = std::strlen(match_text);
    if (std::strspn(match_text, WILDCARDS) == length) {
        WL_LOG(3, "All chars in matchstring are delimiter[%c], return Matched", WILDCARD);
        return 1;
    }
    auto *const piece = static_cast<char *>(std::malloc(length + 1));
    if (piece == nullptr) {
        WL_LOG(3, "Memory allocation failure for match string of size - %d", static_cast<int>(length + 1));
        return 1;
    }
    const bool matched = has_all_pieces(str, match_text, piece);
    std::free(piece);
    return matched ? 1 : 0;
}

void get_next_substring(const char *str, int *index, char *out) {
    WL_LOG(3, "Get next substring from String[%s] start indx[%d]", str, *index);
    const char *next = str + *index;
    while (*next != '\0' && *next != WILDCARD) {
        if (next[0] == ESCAPE && next[1] == WILDCARD)
            next++;
        *out++ = *next++;
    }
    *out = '\0';
    if (*next == WILDCARD)
        next++;
    *index = static_cast<int>(next - str);
}
