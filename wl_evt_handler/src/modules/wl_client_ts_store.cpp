// The error store: the records of failed attempts, at most five of a client and 512 in all, the oldest pushed out
// first.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "debug_log.h"
#include "wl_client_ts_internal.h"

namespace {

client_hash_rec *find_client(const cl_conn_evt_rec &rec) {
    return static_cast<client_hash_rec *>(hash_find(conn_cb.err_conn_table, rec.cl_info.mac));
}

cl_conn_evt_rec *record_of(const dllist_t *node) {
    return static_cast<const client_list_rec *>(node->value)->clrec;
}

void drop_client(client_hash_rec *client) {
    hash_del(conn_cb.err_conn_table, client->cl_mac);
    clts_release(client, sizeof *client);
    conn_cb.num_hashrec_malloc--;
}

client_hash_rec *add_client(const uint8_t *mac) {
    auto *client = static_cast<client_hash_rec *>(clts_malloc(sizeof(client_hash_rec)));
    if (client == nullptr)
        return nullptr;
    *client = {};
    std::memcpy(client->cl_mac, mac, sizeof client->cl_mac);
    if (hash_add(conn_cb.err_conn_table, mac, client) != 0) {
        clts_release(client, sizeof *client);
        return nullptr;
    }
    conn_cb.num_hashrec_malloc++;
    return client;
}

int free_slot(const client_hash_rec &client) {
    return static_cast<int>(std::find(std::begin(client.cl_ptr), std::end(client.cl_ptr), nullptr) -
                            std::begin(client.cl_ptr));
}

/// Of a client with all slots taken. Deliberately a plain compare: around the wrap of the milliseconds the records from
/// after it count as the oldest.
int oldest_slot(const client_hash_rec &client) {
    return static_cast<int>(
        std::ranges::min_element(client.cl_ptr, {}, [](const dllist_t *node) { return record_of(node)->timestamp; }) -
        std::begin(client.cl_ptr));
}

/// @return the last node of the list, with a new record in it; null when memory is short
dllist_t *append(client_hash_rec *client, cl_conn_evt_rec *rec) {
    auto *entry = static_cast<client_list_rec *>(clts_malloc(sizeof(client_list_rec)));
    if (entry == nullptr)
        return nullptr;
    *entry = {client, rec};
    dllist_t *const node = dllist_insert_tail_new(&conn_cb.err_conn_list, entry);
    if (node == nullptr)
        clts_release(entry, sizeof *entry);
    else
        conn_cb.num_listrec_malloc++;
    return node;
}

/// Puts a record into an unlinked node in place of the one it held, and the node at the end of the list.
void recycle(dllist_t *node, client_hash_rec *client, cl_conn_evt_rec *rec) {
    auto *const entry = static_cast<client_list_rec *>(node->value);
    clrec_free(entry->clrec);
    *entry = {client, rec};
    dllist_insert_tail_recycle(&conn_cb.err_conn_list, node);
}

bool is_recent(const cl_conn_evt_rec &stored, const cl_conn_evt_rec &rec) {
    return rec.timestamp - stored.timestamp < PREVIOUS_RECORD_LIMIT;
}

bool has_failure(const cl_conn_evt_rec &rec, uint8_t failure) {
    return std::ranges::find(rec.failure_code, failure) != std::end(rec.failure_code);
}

bool share_failure(const cl_conn_evt_rec &stored, const cl_conn_evt_rec &rec) {
    return std::ranges::any_of(rec.failure_code,
                               [&](uint8_t failure) { return failure != 0 && has_failure(stored, failure); });
}

/// Finds the first stored record of the same client and BSSID that is recent and that `matches`.
template <class Predicate> cl_conn_evt_rec *find_previous(const cl_conn_evt_rec &rec, Predicate matches) {
    const client_hash_rec *const client = find_client(rec);
    if (client == nullptr)
        return nullptr;
    for (const dllist_t *const node : client->cl_ptr) {
        if (node == nullptr)
            continue;
        cl_conn_evt_rec *const stored = record_of(node);
        if (is_recent(*stored, rec) && matches(*stored) &&
            std::memcmp(stored->cl_info.bssid, rec.cl_info.bssid, sizeof rec.cl_info.bssid) == 0)
            return stored;
    }
    return nullptr;
}

}  // namespace

int move_clrec_to_err_list(cl_conn_evt_rec *rec) {
    client_hash_rec *const client = find_client(*rec);
    if (client != nullptr) {
        const bool replace = client->num_entries >= CL_MAX_ERR_RECORDS;
        return add_err_cache_entry(client, replace ? oldest_slot(*client) : free_slot(*client), rec, replace ? 1 : 0);
    }
    client_hash_rec *const added = add_client(rec->cl_info.mac);
    if (added == nullptr)
        return -1;
    if (add_err_cache_entry(added, 0, rec, 0) == 0)
        return 0;
    drop_client(added);
    return -1;
}

int add_err_cache_entry(client_hash_rec *hrec, int slot, cl_conn_evt_rec *rec, int replace) {
    const uint8_t *const mac = rec->cl_info.mac;
    dllist_ctrl_t *const list = &conn_cb.err_conn_list;
    if (replace != 0) {
        dllist_t *const node = hrec->cl_ptr[slot];
        dllist_delink_node(list, node);
        recycle(node, hrec, rec);
        WL_LOG(7, "CTS: Replace Err Conn Cache entry for " MAC_FMT "; Client has MAX entries\n", MAC_ARGS(mac));
        return 0;
    }
    if (dllist_num_entries(list) < AP_MAX_ERR_RECORDS) {
        hrec->cl_ptr[slot] = append(hrec, rec);
        if (hrec->cl_ptr[slot] == nullptr)
            return -1;
        hrec->num_entries++;
        WL_LOG(7, "CTS: Add Err Conn Cache entry for " MAC_FMT "\n", MAC_ARGS(mac));
        return 0;
    }
    // Counted first: when the oldest record is the only one of this very client, the client must stay.
    hrec->num_entries++;
    dllist_t *const node = dllist_delink_head(list);
    remove_hash_entry(static_cast<client_list_rec *>(node->value)->ch_ptr, node);
    hrec->cl_ptr[slot] = node;
    recycle(node, hrec, rec);
    WL_LOG(7, "CTS: Replace Err Conn Cache entry for " MAC_FMT "; Err List has MAX entries\n", MAC_ARGS(mac));
    return 0;
}

void remove_hash_entry(client_hash_rec *hrec, const dllist_t *node) {
    std::ranges::replace(hrec->cl_ptr, const_cast<dllist_t *>(node), nullptr);
    if (--hrec->num_entries == 0)
        drop_client(hrec);
}

int check_connection_info_in_previous_records(const cl_conn_evt_rec *rec, int slot) {
    const uint8_t failure = rec->failure_code[slot];
    return find_previous(*rec, [=](const auto &stored) { return has_failure(stored, failure); }) != nullptr ? 1 : 0;
}

void merge_connection_info_in_previous_records(const cl_conn_evt_rec *rec) {
    cl_conn_evt_rec *const stored =
        find_previous(*rec, [=](const auto &previous) { return share_failure(previous, *rec); });
    if (stored == nullptr)
        return;
    stored->timestamp = rec->timestamp;
    stored->auth_timestamp = rec->auth_timestamp;
    stored->dhcp_timestamp = rec->dhcp_timestamp;
    stored->aaa_timestamp = rec->aaa_timestamp;
    stored->dns_timestamp = rec->dns_timestamp;
    stored->dhcp_latency = rec->dhcp_latency;
    stored->aaa_latency = rec->aaa_latency;
    stored->dns_latency = rec->dns_latency;
}
