/// A catalogue of labels for a test, and events to make lines of.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files.h"
#include "language_cache_funcs.h"
#include "log_capture.h"
#include "wl_log.h"

using lines = std::vector<std::string>;

constexpr int BUCKETS = 137;
constexpr char PROPERTIES[] = "/tmp/labels.properties";

inline lines lines_at_level(int level, const std::function<void()> &action) {
    log_capture log(level);
    action();
    return log.lines();
}

/// The line is all that the action logs, at its level and above.
inline void expect_logged(int level, const lines &expected, const std::function<void()> &action) {
    EXPECT_EQ(lines_at_level(level - 1, action), lines{});
    EXPECT_EQ(lines_at_level(level, action), expected);
}

/// A catalogue that ends with its variable.
struct catalogue {
    hashTable_t *table = hash_newTable(BUCKETS, lang_hash_func, lang_compare_record);

    catalogue() = default;
    explicit catalogue(const std::string &text) {
        EXPECT_EQ(load(text), 0);
    }
    ~catalogue() {
        (void)hash_delTable(&table, free_lang_node);
    }
    catalogue(const catalogue &) = delete;
    catalogue &operator=(const catalogue &) = delete;

    int load(const std::string &text) {
        write_file(PROPERTIES, text);
        return pop_lang_cache_from_file(PROPERTIES, table);
    }

    /// @return a label's value; "<none>" without one
    std::string value(const std::string &name) const {
        const char *found = lang_localize_cl_debug_label(table, name.c_str());
        return found != nullptr ? found : "<none>";
    }

    int size() const {
        return table->num_entries;
    }
};

/// An event whose value lies in a block of just its size, so that a sanitizer sees every step beyond.
struct logged_event {
    cl_debug_record_params params{};
    std::unique_ptr<char[]> block;

    logged_event(int info_code, int subinfo_code) {
        params.info_code = info_code;
        params.subinfo_code = subinfo_code;
        std::snprintf(params.cl_mac, sizeof params.cl_mac, "00:1A:2B:3C:4D:5E");
        std::snprintf(params.bssid, sizeof params.bssid, "A0:B1:C2:D3:E4:F5");
        std::snprintf(params.ssid, sizeof params.ssid, "Office");
        params.ssid_len = 6;
    }

    logged_event(int info_code, int subinfo_code, const std::string &value) : logged_event(info_code, subinfo_code) {
        block.reset(new char[value.size()]);
        std::copy(value.begin(), value.end(), block.get());
        params.subinfo_value = block.get();
        params.subinfo_value_len = static_cast<int>(value.size());
    }
};

/// Takes a text that the product made; "<none>" without one.
inline std::string taken(char *text) {
    const std::string copy = text != nullptr ? text : "<none>";
    std::free(text);
    return copy;
}

inline std::string big_endian_text(uint32_t value, int width = 4) {
    std::string bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

/// `text` in a field of `size` bytes, NULs behind it.
inline std::string field(std::string text, size_t size) {
    text.resize(size);
    return text;
}
