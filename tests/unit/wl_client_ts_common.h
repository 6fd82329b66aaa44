/// What the tests of client troubleshooting share: clients and their texts, lines of the log, the accounts of the
/// module, the end of all that it holds.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "event_payload.h"
#include "wl_client_ts_internal.h"

using lines = std::vector<std::string>;

inline byte_string mac_of(unsigned client) {
    return {0x00, 0x11, 0x22, 0x33, static_cast<uint8_t>(client >> 8), static_cast<uint8_t>(client)};
}

/// As log lines and dumps show it.
inline std::string mac_text(unsigned client) {
    char text[18];
    std::snprintf(text, sizeof text, "00:11:22:33:%02X:%02X", client >> 8 & 0xFF, client & 0xFF);
    return text;
}

inline byte_string ap_bssid(uint8_t last = 0x01) {
    return {0x02, 0xAA, 0xBB, 0xCC, 0xDD, last};
}

/// What the module says it holds: objects, and bytes.
struct accounts {
    int clrec, ssid, hashrec, listrec, value, size;

    static accounts now() {
        return {conn_cb.num_clrec_malloc,        conn_cb.num_ssid_malloc,
                conn_cb.num_hashrec_malloc,      conn_cb.num_listrec_malloc,
                conn_cb.num_subinfovalue_malloc, __atomic_load_n(&conn_cb.size_malloc, __ATOMIC_RELAXED)};
    }

    bool operator==(const accounts &) const = default;

    friend std::ostream &operator<<(std::ostream &out, const accounts &of) {
        return out << of.clrec << '/' << of.ssid << '/' << of.hashrec << '/' << of.listrec << '/' << of.value << '/'
                   << of.size;
    }
};

inline bool contains(const lines &log, const std::string &line) {
    return std::find(log.begin(), log.end(), line) != log.end();
}

/// The lines of one function, without its name.
inline lines lines_of(const lines &log, const std::string &function) {
    lines found;
    for (const std::string &line : log)
        if (line.compare(0, function.size() + 2, function + ": ") == 0)
            found.push_back(line.substr(function.size() + 2));
    return found;
}

inline cl_conn_evt_rec *record_of(const dllist_t *node) {
    return static_cast<const client_list_rec *>(node->value)->clrec;
}

/// Frees all that the tables hold.
inline void drop_everything() {
    while (auto *const rec = static_cast<cl_conn_evt_rec *>(hash_first_element(conn_cb.inprog_conn_table))) {
        hash_del(conn_cb.inprog_conn_table, rec->cl_info.mac);
        clrec_free(rec);
    }
    while (dllist_t *const node = dllist_delink_head(&conn_cb.err_conn_list)) {
        auto *entry = static_cast<client_list_rec *>(node->value);
        remove_hash_entry(entry->ch_ptr, node);
        clrec_free(entry->clrec);
        clts_release(entry, sizeof *entry);
        conn_cb.num_listrec_malloc--;
        std::free(node);
    }
    while (auto *rec = static_cast<detail_clrec *>(hash_first_element(conn_cb.detail_conn_table))) {
        hash_del(conn_cb.detail_conn_table, rec->cl_mac);
        clts_release(rec, sizeof *rec);
    }
}

inline void drop_tables() {
    (void)hash_delTable(&conn_cb.inprog_conn_table, nullptr);
    (void)hash_delTable(&conn_cb.err_conn_table, nullptr);
    (void)hash_delTable(&conn_cb.detail_conn_table, nullptr);
    hash_del_iterator(&conn_cb.inprog_conn_iter);
    hash_del_iterator(&conn_cb.detail_conn_iter);
}
