/// What the tests of the client cache share: profiles made by hand, events made of bytes, log lines with their levels,
/// and an eye on what is released. A test executable links with --wrap=free.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "debug_log.h"
#include "event_payload.h"
#include "fault.h"
#include "log_capture.h"
#include "wl_cl_info.h"
#include "wl_cl_info_internal.h"
#include "wl_ssid_profile.h"
#include "wl_vap_helpers.h"

using lines = std::vector<std::string>;

inline const byte_string ALICE = {0x02, 0x00, 0x00, 0x00, 0x00, 0x0A};
inline const byte_string BOB = {0x02, 0x00, 0x00, 0x00, 0x00, 0xBB};
inline const byte_string EVERYONE(6, 0xFF);

/// Blocks whose release a test waits for: their sizes, and afterwards whether they were all zero at that time.
struct release_watch {
    std::map<const void *, size_t> pending;
    std::vector<bool> wiped;

    template <class Record> void add(const Record *block, size_t size = sizeof(Record)) {
        pending[block] = size;
    }
};
inline release_watch *watch;  // null: nobody watches

extern "C" void __real_free(void *block);
extern "C" [[gnu::used]] inline void __wrap_free(void *block) {
    release_watch *const watcher = watch;
    watch = nullptr;  // the watch's own memory
    if (watcher != nullptr) {
        const auto found = watcher->pending.find(block);
        if (found != watcher->pending.end()) {
            const auto *const bytes = static_cast<const uint8_t *>(block);
            watcher->wiped.push_back(std::all_of(bytes, bytes + found->second, [](uint8_t byte) { return byte == 0; }));
            watcher->pending.erase(found);
        }
    }
    __real_free(block);
    watch = watcher;
}

/// What is released while `action` runs, of the blocks that `watched` names.
inline std::vector<bool> wiped_at_release(release_watch watched, const std::function<void()> &action) {
    watch = &watched;
    action();
    watch = nullptr;
    EXPECT_TRUE(watched.pending.empty()) << "something was not released";
    return watched.wiped;
}

inline bool holds(const lines &all, const std::string &line) {
    return std::ranges::find(all, line) != all.end();
}

inline lines lines_at_level(int level, const std::function<void()> &action) {
    log_capture log(level);
    action();
    return log.lines();
}

/// Expects a scenario, which must be repeatable, to log a line at its level and not below.
inline void expect_logged(int level, const std::string &line, const std::function<void()> &scenario) {
    EXPECT_FALSE(holds(lines_at_level(level - 1, scenario), line)) << line;
    const lines all = lines_at_level(level, scenario);
    EXPECT_TRUE(holds(all, line)) << line;
    if (!holds(all, line)) {
        for (const std::string &other : all)
            std::fprintf(stderr, "  %s\n", other.c_str());
    }
}

class ClientCache : public testing::Test {
protected:
    void SetUp() override {
        debug = 0;
        wl_init_cl_cache_info();
    }

    void TearDown() override {
        clear_faults();
        drop();
    }

    static void drop() {
        hash_table_destroy(ssid_profile_list);
        std::free(ssid_profile_list);
    }

    /// Empties the table, so that a scenario can be played again.
    static void start_again() {
        clear_faults();
        drop();
        wl_init_cl_cache_info();
    }

    /// Adds a profile with 802.1X and the VAPs ath0 and ath1.
    static ssid_profile_info *add_profile(uint32_t id, const char *ssid = "net", bool is_role = false) {
        ssid_profile_info *const profile = create_ssid_profile_data();
        profile->profile_id = id;
        std::strcpy(profile->ssid, ssid);
        profile->is_1x_configured = 1;
        profile->flags.is_role_profile = is_role;
        for (const char *const name : {"ath1", "ath0"}) {
            char text[16];
            std::strcpy(text, name);
            create_and_add_vap(&profile->vap_data_list, text, &profile->num_vaps);
        }
        if (!is_role && hash_table_init(&profile->cl_info_hash, 43, &cl_cache_hash_fn, nullptr) == nullptr)
            std::abort();
        if (hash_table_add(ssid_profile_list, &profile->profile_id, profile) != 0)
            std::abort();
        return profile;
    }

    static wl_client_info *find(const ssid_profile_info *profile, const byte_string &mac) {
        return static_cast<wl_client_info *>(hash_table_lookup(&profile->cl_info_hash, mac.data()));
    }

    /// Adds a client that is not active and holds nothing.
    static wl_client_info *add_client(ssid_profile_info *profile, const byte_string &mac) {
        wl_client_info *const client = get_new_wl_client_info(mac.data(), profile);
        if (hash_table_add(&profile->cl_info_hash, client->mac_addr, client) != 0)
            std::abort();
        return client;
    }

    /// A key with an identity, as a record would hold it.
    static dot1x_pmk_cl_data *new_pmk() {
        dot1x_pmk_cl_data *const pmk = get_new_dot1x_pmk_cl_data();
        std::memset(pmk->pmk, 0x5C, sizeof pmk->pmk);
        pmk->pmk_len = 32;
        pmk->identity = reinterpret_cast<uint8_t *>(strdup("alice@example"));
        pmk->identity_len = 13;
        return pmk;
    }

    static void give_pmk(wl_client_info *client, bool okc = false) {
        if (client->hapd_cl_info == nullptr)
            client->hapd_cl_info = get_new_hapd_cl_info();
        (okc ? client->hapd_cl_info->pmk_okc : client->hapd_cl_info->pmk_fullauth) = new_pmk();
    }

    static void give_login(wl_client_info *client) {
        client->portal_cl_info = get_new_portal_cl_info();
        client->portal_cl_info->portal_cl_auth_info = get_new_portal_cl_auth_info();
    }
};
