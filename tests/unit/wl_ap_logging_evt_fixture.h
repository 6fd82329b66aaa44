/// What the tests of the access point's own reports share: a clock that stands still until it is told otherwise, a bus
/// that only notes what is posted, and the files that switch reporting on and off. A test executable links with
/// --wrap=wl_send_evt and --wrap=_Z14os_get_reltimeP10os_reltime.
#pragma once

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "debug_log.h"
#include "event_payload.h"
#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "wl_ap_logging_evt.h"
#include "wl_ap_logging_evt_internal.h"
#include "wl_utils.h"

using lines = std::vector<std::string>;

constexpr char CONFIG[] = "/opt/ap/ap_logging_conf_evt";
constexpr char CACHE[] = "/tmp/ap_logging_evt_cache";
constexpr char RECONFIGURING[] = "/tmp/ap.conf.diff";
constexpr char CONNECTED[] = "/tmp/conn_status";
constexpr char OFFLINE[] = "/tmp/offline";

struct posted_event {
    vre_iw_cmd_t event;
    byte_string bytes;
    bool operator==(const posted_event &) const = default;
};
inline std::vector<posted_event> posted;
inline int post_result;
inline uint32_t clock_seconds;
inline int clock_reads;

extern "C" [[gnu::used]] inline int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    const auto *const bytes = static_cast<const uint8_t *>(payload);
    posted.push_back({event, byte_string(bytes, bytes + length)});
    return post_result;
}

extern "C" [[gnu::used]] inline int __wrap__Z14os_get_reltimeP10os_reltime(os_reltime *now) {
    clock_reads++;
    *now = {static_cast<int32_t>(clock_seconds), 999'999};
    return 0;
}

/// A report as event 41 carries it.
inline posted_event report_of(uint32_t server_code, const byte_string &value, uint32_t subinfo_code = 0) {
    event_payload bytes;
    bytes.bytes({0, 6}).bytes(big_endian_bytes(server_code, 4)).bytes({0, 1, 0, 4});
    bytes.bytes(big_endian_bytes(subinfo_code, 4)).bytes({0, 2});
    bytes.bytes(big_endian_bytes(value.size(), 2)).bytes(value);
    return {vre_iw_cmd_t{41}, bytes.bytes()};
}

inline posted_event report_of(uint32_t server_code, const std::string &text) {
    return report_of(server_code, text_bytes(text));
}

/// A record of the cache file; `text` fills its place up to the pad byte, a NUL comes only with it being shorter.
inline std::string cache_record(uint32_t evt_id, uint32_t time, const std::string &text, char pad = '\0') {
    event_payload head;
    head.bytes(big_endian_bytes(evt_id, 4)).bytes(big_endian_bytes(time, 4));
    std::string record(head.bytes().begin(), head.bytes().end());
    record += text;
    record.resize(263, '\0');
    return record + pad;
}

inline bool holds(const lines &all, const std::string &line) {
    return std::ranges::find(all, line) != all.end();
}

class ApReports : public testing::Test {
protected:
    static constexpr uint32_t START = 1000;

    void SetUp() override {
        debug = 0;
        start_again();
    }

    void TearDown() override {
        clear_faults();
        hash_table_destroy(&ap_logging_hash_t);
    }

    /// A connected access point with this configuration that has reported nothing yet.
    static void start_again(const std::string &configuration = "") {
        std::filesystem::remove_all(CACHE);
        restart(configuration);
        set_markers(false, true, false);
        posted.clear();
        post_result = 1;
        clock_seconds = START;
        clock_reads = 0;
    }

    /// Starts the module with what there is in its cache file.
    static void restart(const std::string &configuration) {
        clear_faults();
        hash_table_destroy(&ap_logging_hash_t);
        std::filesystem::create_directories("/opt/ap");
        write_file(CONFIG, configuration);
        ASSERT_EQ(wl_ap_ts_init(), 0);
    }

    static void set_markers(bool reconfiguring, bool connected, bool offline) {
        set_marker(RECONFIGURING, reconfiguring);
        set_marker(CONNECTED, connected);
        set_marker(OFFLINE, offline);
    }

    static void set_marker(const char *path, bool there) {
        std::filesystem::remove(path);
        if (there)
            write_file(path, "");
    }

    /// Hands an event to the throttling; its value lies in a block of just its size.
    static int report(uint32_t info_code, const std::string &value, int event = VRE_VAP_DOWN) {
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[value.size()]);
        std::copy(value.begin(), value.end(), exact.get());
        wl_evt_info_t info{};
        info.info_code = info_code;
        info.subinfo_value = exact.get();
        info.subinfo_value_len = static_cast<uint16_t>(value.size());
        return wl_ap_ts(static_cast<vre_iw_cmd_t>(event), &info, 0);
    }

    /// The texts that an entry remembers with their times, oldest first.
    static std::vector<std::pair<std::string, uint32_t>> texts_of(uint32_t server_code) {
        std::vector<std::pair<std::string, uint32_t>> found;
        const ap_logging_evt_data *const data = find_evt_data(server_code);
        for (const list_t *at = data != nullptr ? data->evt_node_list : nullptr; at != nullptr; at = at->next) {
            const auto *const node = static_cast<const ap_logging_evt_node *>(at->value);
            found.emplace_back(node->buf, node->time);
        }
        return found;
    }

    static lines lines_at_level(int level, const std::function<void()> &action) {
        log_capture log(level);
        action();
        return log.lines();
    }

    /// Expects a scenario, which must be repeatable, to log a line at its level and not below.
    static void expect_logged(int level, const std::string &line, const std::function<void()> &scenario) {
        EXPECT_FALSE(holds(lines_at_level(level - 1, scenario), line)) << line;
        const lines all = lines_at_level(level, scenario);
        EXPECT_TRUE(holds(all, line)) << line << "\nis not among\n" << testing::PrintToString(all);
    }
};
