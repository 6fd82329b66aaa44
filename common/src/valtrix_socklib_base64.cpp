#include "valtrix_socklib.h"

#include <string_view>

#include "debug_log.h"

namespace {

constexpr std::string_view base64digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

void to64frombits(char *out, const uint8_t *in, int inlen) {
    const size_t length = inlen > 0 ? static_cast<size_t>(inlen) : 0;
    for (size_t at = 0; at < length; at += 3) {
        const size_t left = length - at;
        const uint32_t second = left > 1 ? in[at + 1] : 0;
        const uint32_t third = left > 2 ? in[at + 2] : 0;
        const uint32_t group = uint32_t{in[at]} << 16 | second << 8 | third;
        *out++ = base64digits[group >> 18];
        *out++ = base64digits[group >> 12 & 63];
        *out++ = left > 1 ? base64digits[group >> 6 & 63] : '=';
        *out++ = left > 2 ? base64digits[group & 63] : '=';
    }
    *out = '\0';
}

int base64decode(const char *str, char *dst, int len) {
    if (str == nullptr || dst == nullptr) {
        WL_LOG(3, "Encoded/decoded string NULL");
        return -1;
    }
    int written = 0;
    uint32_t bits = 0;
    int held = 0;  // low bits of `bits` that belong to no written byte yet
    for (int at = 0; at < len; ++at) {
        if (str[at] == '\r' || str[at] == '\n') {
            held = 0;
            continue;
        }
        const size_t value = base64digits.find(str[at]);
        if (value == base64digits.npos)
            continue;
        bits = bits << 6 | static_cast<uint32_t>(value);
        held += 6;
        if (held >= 8) {
            held -= 8;
            dst[written++] = static_cast<char>(bits >> held & 0xff);
        }
    }
    dst[written] = '\0';
    return written;
}

int remove_base64_padding(char *base64_data, int base64_len) {
    if (base64_data == nullptr)
        return 0;
    while (base64_len > 0 && base64_data[base64_len - 1] == '=')
        base64_data[--base64_len] = '\0';
    return base64_len;
}
