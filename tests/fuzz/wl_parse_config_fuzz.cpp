// The reader of key and value lines, on a file of any bytes.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "wl_vap_helpers.h"

namespace {

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

void check_key(const char *key) {
    require(*key != '\0');
    for (; *key != '\0'; key++)
        require(std::isalnum(static_cast<unsigned char>(*key)) || std::strchr("-_:", *key) != nullptr);
}

void check_value(const char *value) {
    const size_t length = std::strlen(value);
    require(length > 0 && length < 1023);
    require(std::strchr("= \t\r\n\v\f", value[0]) == nullptr);
    require(std::strchr("\r\n", value[length - 1]) == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *const file = fmemopen(const_cast<uint8_t *>(data), size, "r");
    char *key;
    char *value;
    while (char *const result = parse_config(file, &key, &value)) {
        require(result == key);
        check_key(key);
        check_value(value);
    }
    std::fclose(file);
    return 0;
}
