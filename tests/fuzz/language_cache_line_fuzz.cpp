// The line of an event of any content for a sentence of any bytes. The input: info code and subinfo code (2 bytes
// each), verbosity, the event's MAC, BSSID and SSID, a byte for the sentence's length, the sentence, and the value.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "language_cache_funcs.h"
#include "wl_log.h"

namespace {

constexpr size_t LONGEST_TOKEN = 100;  // but for those that show the value

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

/// Hands out the input piece by piece; what is missing is zero.
struct input {
    const uint8_t *data;
    size_t size;

    std::string take(size_t count) {
        const size_t there = std::min(count, size);
        std::string bytes(reinterpret_cast<const char *>(data), there);
        data += there;
        size -= there;
        bytes.resize(count);
        return bytes;
    }

    int number(size_t width) {
        int value = 0;
        for (const char byte : take(width))
            value = value << 8 | static_cast<uint8_t>(byte);
        return value;
    }
};

void add_label(hashTable_t *table, const std::string &name, const std::string &value) {
    auto *const label = static_cast<label_cache_t *>(std::malloc(sizeof(label_cache_t)));
    *label = {strdup(name.c_str()), strdup(value.c_str())};
    require(hash_add(table, label->name, label) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    debug = 2;
    input from{data, size};
    cl_debug_record_params params{};
    params.info_code = from.number(2);
    params.subinfo_code = from.number(2);
    const int verbose = from.number(1);
    from.take(sizeof params.cl_mac).copy(params.cl_mac, sizeof params.cl_mac);
    from.take(sizeof params.bssid).copy(params.bssid, sizeof params.bssid);
    from.take(sizeof params.ssid).copy(params.ssid, sizeof params.ssid);
    const std::string sentence = from.take(static_cast<size_t>(from.number(1))).c_str();
    const std::unique_ptr<char[]> value(new char[from.size]);  // of just its size
    std::copy_n(from.data, from.size, value.get());
    params.subinfo_value = value.get();
    params.subinfo_value_len = static_cast<int>(from.size);

    hashTable_t *table = hash_newTable(137, lang_hash_func, lang_compare_record);
    add_label(table, "INFOCODE_" + std::to_string(params.info_code), "W");
    add_label(table, "W_" + std::to_string(params.subinfo_code), sentence);
    char *line = nullptr;
    require(fill_cl_debug_log_params(table, &params, &line, verbose) == 0 && line != nullptr);
    const size_t tokens = static_cast<size_t>(std::count(sentence.begin(), sentence.end(), '$'));
    const bool radius = params.info_code == 15 && params.subinfo_code >= 800;
    if (!radius) {
        require(std::strlen(line) <= sentence.size() + tokens * std::max(LONGEST_TOKEN, from.size));
        require(tokens != 0 || sentence == line);
    }
    std::free(line);
    (void)hash_delTable(&table, free_lang_node);
    return 0;
}
