/// What the tests of bandwidth control share: requests, and a queue without a worker whose commands can be read.
#pragma once

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "bw_fresh_start.h"
#include "bw_log.h"
#include "event_payload.h"
#include "log_capture.h"
#include "vap_table.h"
#include "wl_bw.h"
#include "wl_bw_internal.h"

using lines = std::vector<std::string>;

/// A request in the words of a test. Station `n` is 00:11:22:33:44:n.
struct limit {
    uint32_t profile = 3;
    uint8_t station = 1;
    uint8_t pri = 1;
    int32_t up = 2048;
    int32_t down = 4096;
    std::string interface = "ath0";
    bool bss = false;
    bool transition = false;
    bool applied = false;  // the target state
    vre_iw_cmd_t e = VRE_BW_SET;
    uint32_t classid = 0;
};

inline byte_string mac_of(uint8_t station) {
    return {0x00, 0x11, 0x22, 0x33, 0x44, station};
}

inline bw_log::fields fields_of(const limit &wanted) {
    bw_log::fields of{.pri = wanted.pri,
                      .command = static_cast<uint32_t>(wanted.e),
                      .up = wanted.up,
                      .down = wanted.down,
                      .profile = wanted.profile,
                      .classid = wanted.classid,
                      .interface = wanted.interface,
                      .flags = static_cast<uint8_t>(wanted.bss << 7 | wanted.transition << 6 | wanted.applied << 5)};
    if (!wanted.bss) {
        const byte_string mac = mac_of(wanted.station);
        std::copy(mac.begin(), mac.end(), of.mac.begin());
    }
    return of;
}

inline bw_rule_info request(const limit &wanted) {
    return bw_log::request_of(fields_of(wanted));
}

/// The 45 bytes of its record.
inline byte_string record_bytes(const limit &wanted) {
    return text_bytes(bw_log::record(fields_of(wanted)));
}

inline bool contains(const lines &log, const std::string &line) {
    return std::find(log.begin(), log.end(), line) != log.end();
}

/// Whether another thread could take queue_mutex now.
inline bool others_may_lock() {
    bool locked = false;
    std::thread([&locked] {
        locked = pthread_mutex_trylock(&queue_mutex) == 0;
        if (locked)
            pthread_mutex_unlock(&queue_mutex);
    }).join();
    return locked;
}

class BandwidthFixture : public testing::Test {
protected:
    BandwidthFixture() {
        EXPECT_EQ(bw_init(), 1);
        g_bw_queue_started = 1;  // as if a worker ran: what is queued stays
    }

    ~BandwidthFixture() override {
        forget_all_limits();
    }

    static bw_rule_info set(const limit &wanted) {
        bw_rule_info req = request(wanted);
        __bw_set_limit(&req);
        return req;
    }

    static bw_rule_info clear(limit wanted) {
        wanted.e = VRE_BW_CLR;
        bw_rule_info req = request(wanted);
        __bw_clr_limit(&req);
        return req;
    }

    /// A station's applied rule.
    static void apply(limit wanted) {
        wanted.transition = true;
        wanted.applied = true;
        set(wanted);
    }

    static void replay(const limit &wanted) {
        restoring_cache = 1;
        set(wanted);
        restoring_cache = 0;
    }

    static bw_profile *profile(uint32_t id) {
        bw_profile key{};
        key.profile_id = id;
        return static_cast<bw_profile *>(hash_table_lookup(&bw_profile_hash_t, &key));
    }

    static bw_rule *station(uint8_t number, uint32_t profile_id = 3) {
        const bw_profile *const owner = profile(profile_id);
        if (owner == nullptr)
            return nullptr;
        bw_rule key{};
        std::memcpy(key.mac, mac_of(number).data(), 6);
        return static_cast<bw_rule *>(hash_table_lookup(&owner->bw_sta_hash_t, &key));
    }

    static size_t stations(uint32_t profile_id = 3) {
        return profile(profile_id)->bw_sta_hash_t.entry_count;
    }

    struct command {
        int action;
        std::string line;
        byte_string record;
    };

    /// Takes the commands out of the queue.
    static std::vector<command> commands() {
        std::vector<command> all;
        while (dllist_t *const entry = dllist_delink_head(&bw_queue)) {
            auto *const node = static_cast<bw_list_node *>(entry->value);
            byte_string record(sizeof node->bw_rule_info);
            std::memcpy(record.data(), &node->bw_rule_info, record.size());
            all.push_back({node->action, node->rule, record});
            free_bw_list_node(node);
            free(entry);
        }
        return all;
    }

    /// Takes the commands out of the queue, each as "<action> <what follows the script's name>".
    static lines queued() {
        const std::string script = "/sbin/tc_wrapper.sh ";
        lines all;
        for (const command &one : commands()) {
            EXPECT_EQ(one.line.substr(0, script.size()), script);
            all.push_back(std::to_string(one.action) + " " + one.line.substr(script.size()));
        }
        return all;
    }

    static void add_vap(const std::string &name, const byte_string &bssid) {
        vap_info &vap = vap_array[vap_count++];
        std::memcpy(vap.name, name.data(), std::min(name.size(), sizeof vap.name));
        std::memcpy(vap.bssid, bssid.data(), sizeof vap.bssid);
    }
};
