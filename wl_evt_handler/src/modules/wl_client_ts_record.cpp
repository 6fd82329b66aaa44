// The life of a connection record: created with the first request, filled by events, completed by success.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

#include "debug_log.h"
#include "payload.h"
#include "vap_table.h"
#include "wl_client_ts_internal.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"
#include "wl_utils.h"

namespace {

constexpr uint32_t NO_INFO_CODE = 0xFFFFFFFF;
constexpr uint16_t NO_SUBINFO_CODE = 0xFFFF;

constexpr uint16_t ASSOC_SUCCESS = 0;
constexpr uint16_t PORTAL_LOGIN_SUCCESS = 0;
constexpr uint16_t RADIUS_ANSWERED = 11;
constexpr uint16_t DNS_ASKED = 0;
constexpr uint16_t DNS_ANSWERED = 1;

constexpr uint16_t VLAN_MAX = 4095;

/// An IPv4 address as it came, in network order.
uint32_t ipv4_of(const uint8_t (&address)[4]) {
    uint32_t ip;
    std::memcpy(&ip, address, sizeof ip);
    return ip;
}

template <class Record> Record value_of(const wl_evt_info_t &evt) {
    return read_payload<Record>(evt.subinfo_value, evt.subinfo_value_len);
}

struct address_value {
    uint8_t ip[4];
};

void copy_ssid(cl_conn_evt_rec &rec, const wl_evt_info_t &evt) {
    if (evt.ssid == nullptr || evt.ssid_len < 0)
        return;
    const auto length = static_cast<uint16_t>(evt.ssid_len);
    rec.cl_info.ssid = static_cast<char *>(clts_malloc(length + size_t{1}));
    if (rec.cl_info.ssid == nullptr)
        return;
    conn_cb.num_ssid_malloc++;
    std::memcpy(rec.cl_info.ssid, evt.ssid, length);
    rec.cl_info.ssid[length] = '\0';
    rec.cl_info.ssid_len = length;
}

void store_event(cl_conn_evt_rec &rec, const wl_evt_info_t &evt, uint32_t now) {
    if (rec.num_evt == CL_MAX_EVENTS)
        return;
    cl_evt &stored = rec.cl_evt[rec.num_evt++];
    stored = {};
    stored.tdiff_msec = msec_between(now, rec.timestamp);
    stored.info_code = evt.info_code;
    stored.subinfo_code = evt.subinfo_code;
    if (evt.subinfo_value == nullptr)
        return;
    stored.subinfo_value = static_cast<uint8_t *>(clts_malloc(evt.subinfo_value_len));
    if (stored.subinfo_value == nullptr)
        return;
    conn_cb.num_subinfovalue_malloc++;
    std::memcpy(stored.subinfo_value, evt.subinfo_value, evt.subinfo_value_len);
    stored.subinfo_value_len = evt.subinfo_value_len;
}

/// A repeat of either code of the event before deliberately leaves the clock of the stage alone.
void advance_stage_clock(cl_conn_evt_rec &rec, const wl_evt_info_t &evt, uint32_t now) {
    const bool first = rec.prev_evt_info_code == NO_INFO_CODE && rec.prev_evt_subinfo_code == NO_SUBINFO_CODE;
    if (first || (rec.prev_evt_info_code != evt.info_code && rec.prev_evt_subinfo_code != evt.subinfo_code))
        rec.timestamp = now;
    rec.prev_evt_info_code = evt.info_code;
    rec.prev_evt_subinfo_code = evt.subinfo_code;
}

void note_ipv6_address(cl_conn_evt_rec &rec, const wl_evt_info_t &evt) {
    // 31 for a 33rd event too, which is not stored: 0 would say that there was no address.
    rec.ipaddr_evt_id = static_cast<uint8_t>(rec.num_evt - 1);
    rec.rcvd_err_evt = 0;
    const uint8_t *const ip = evt.subinfo_value;
    const bool is_ipv6 = ip != nullptr && evt.subinfo_value_len == 16;
    const bool is_link_local = is_ipv6 && ip[0] == 0xFE && (ip[1] & 0xC0) == 0x80;
    if (is_ipv6 && !is_link_local) {
        rec.is_ipv6_rcvd = 1;
        rec.is_link_local_ip_rcvd = 0;
    }
}

void note_ipv4_address(cl_conn_evt_rec &rec, const wl_evt_info_t &evt, const clts_time &now) {
    const uint8_t *const ip = evt.subinfo_value;
    const bool is_link_local = ip != nullptr && evt.subinfo_value_len == 4 && ip[0] == 169 && ip[1] == 254;
    rec.is_link_local_ip_rcvd = is_link_local ? 1 : 0;
    if (is_link_local)
        return;
    if (!is_asking_for_address(rec)) {
        rec.is_ipv4_rcvd = 1;
        rec.rcvd_err_evt = 0;
    }
    // Deliberately while DHCP is pending too: a client may use its last address before DHCP confirms it.
    rec.cli_jrny.network_ts = now.usec;
}

void note_invalid_ip(cl_conn_evt_rec &rec, const wl_evt_info_t &evt) {
    const auto value = value_of<vre_node_invalid_ip_evt_data>(evt);
    rec.is_ipv4_rcvd = 0;
    rec.invalid_ip_addr = ipv4_of(value.ip);
    rec.rogue_dhcp_server_ip = ipv4_of(value.server_ip);
}

void note_ip_conflict(cl_conn_evt_rec &rec, const wl_evt_info_t &evt) {
    const auto value = value_of<vre_node_ip_conflict_data>(evt);
    rec.is_ipv4_rcvd = 0;
    std::memcpy(rec.conflict_mac, value.mac, sizeof rec.conflict_mac);
    rec.ipv4_addr = ipv4_of(value.ip);
}

void note_dhcp(cl_conn_evt_rec &rec, const wl_evt_info_t &evt, const clts_time &now) {
    rec.dhcp_state = static_cast<uint8_t>(evt.subinfo_code);
    if (evt.subinfo_code == SUBINFO_DHCP_ACK) {
        rec.dhcp_latency = msec_between(now.msec, rec.dhcp_timestamp);
        rec.dhcp_server_ip = ipv4_of(value_of<address_value>(evt).ip);
    } else if (evt.subinfo_code <= UINT8_MAX && is_asking_for_address(rec)) {
        rec.dhcp_timestamp = now.msec;
    }
}

void note_radius(cl_conn_evt_rec &rec, const wl_evt_info_t &evt, const clts_time &now) {
    if (evt.subinfo_code == SUBINFO_RADIUS_ACCESS_REQUEST) {
        rec.aaa_timestamp = now.msec;
        rec.aaa_server_ip = ipv4_of(value_of<address_value>(evt).ip);
    } else if (evt.subinfo_code == RADIUS_ANSWERED) {
        rec.aaa_latency = msec_between(now.msec, rec.aaa_timestamp);
    }
}

void note_dns(cl_conn_evt_rec &rec, const wl_evt_info_t &evt, const clts_time &now) {
    const auto value = value_of<vre_dns_evt_data>(evt);
    const auto bare = value_of<address_value>(evt);
    const bool is_bare = evt.subinfo_value_len == sizeof(address_value);
    if (evt.subinfo_code == DNS_ASKED) {
        rec.is_ipv4_rcvd = 1;
        rec.dns_timestamp = now.msec;
        rec.dns_server_ip = ipv4_of(is_bare ? bare.ip : value.server_ip);
    } else if (evt.subinfo_code == DNS_ANSWERED) {
        if (evt.subinfo_value == nullptr || evt.subinfo_value_len == 0) {
            WL_LOG_AS("add_evt", 3, "CL_CONN:dns latency is empty");
            return;
        }
        rec.dns_latency = value.latency;
        if (!is_bare)
            rec.dns_server_ip = ipv4_of(value.server_ip);
    }
}

void note_event(cl_conn_evt_rec &rec, const wl_evt_info_t &evt, const clts_time &now) {
    switch (evt.info_code) {
    case INFO_IPV6_ADDRESS:
        note_ipv6_address(rec, evt);
        break;
    case INFO_ASSOC_RESPONSE:
        if (evt.subinfo_code == ASSOC_SUCCESS)
            rec.cli_jrny.assoc_ts = now.usec;
        break;
    case INFO_AUTHORIZED:
        rec.cli_jrny.auth_ts = now.usec;
        rec.is_node_authorised = 1;
        break;
    case INFO_IPV4_ADDRESS:
        note_ipv4_address(rec, evt, now);
        break;
    case INFO_INVALID_IP:
        note_invalid_ip(rec, evt);
        break;
    case INFO_IP_CONFLICT:
        note_ip_conflict(rec, evt);
        break;
    case INFO_VLAN:
        if (const uint16_t vlan = vlan_of_value(evt.subinfo_value, evt.subinfo_value_len))
            rec.vlan = vlan;
        break;
    case INFO_DHCP:
        note_dhcp(rec, evt, now);
        break;
    case INFO_RADIUS:
        note_radius(rec, evt, now);
        break;
    case INFO_DNS:
        note_dns(rec, evt, now);
        break;
    default:
        break;
    }
}

void store_or_free(cl_conn_evt_rec *rec) {
    if (check_clrec_for_failures(rec) == 0 || move_clrec_to_err_list(rec) != 0)
        clrec_free(rec);
}

void complete_portal_login(cl_conn_evt_rec *rec) {
    hash_del(conn_cb.inprog_conn_table, rec->cl_info.mac);
    WL_LOG_AS("add_evt", 6, "CTS: Portal Client " MAC_FMT " connected successfully", MAC_ARGS(rec->cl_info.mac));
    log_latencies("add_evt", *rec);
    check_and_send_client_connection_info(rec, SUCCESS_REPORT);
    store_or_free(rec);
}

void complete(cl_conn_evt_rec *rec) {
    WL_LOG_AS("add_evt", 6, "CTS: Client " MAC_FMT " connected successfuly! Sending info to server now!!",
              MAC_ARGS(rec->cl_info.mac));
    log_latencies("add_evt", *rec);
    check_and_send_client_connection_info(rec, SUCCESS_REPORT);
    hash_del(conn_cb.inprog_conn_table, rec->cl_info.mac);
    settle_record(rec);
}

}  // namespace

clts_time clts_now() {
    timeval time;
    gettimeofday(&time, nullptr);
    const auto sec = static_cast<uint64_t>(time.tv_sec);
    const auto usec = static_cast<uint64_t>(time.tv_usec);
    return {sec * 1000000 + usec, static_cast<uint32_t>(sec * 1000 + usec / 1000)};
}

uint32_t msec_between(uint32_t a, uint32_t b) {
    const uint32_t difference = a - b;
    return static_cast<int32_t>(difference) < 0 ? 0 - difference : difference;
}

uint32_t timediff_msec(uint32_t sec1, uint32_t usec1, uint32_t sec2, uint32_t usec2) {
    return msec_between(sec1 * 1000 + usec1 / 1000, sec2 * 1000 + usec2 / 1000);
}

void *clts_malloc(size_t size) {
    // An empty value has a block too, on every C library.
    void *const block = std::malloc(std::max(size, size_t{1}));
    if (block != nullptr)
        __atomic_fetch_add(&conn_cb.size_malloc, static_cast<int>(size), __ATOMIC_RELAXED);
    return block;
}

void clts_free(void **block, size_t size) {
    if (*block == nullptr)
        return;
    std::free(*block);
    *block = nullptr;
    __atomic_fetch_sub(&conn_cb.size_malloc, static_cast<int>(size), __ATOMIC_RELAXED);
}

bool is_asking_for_address(const cl_conn_evt_rec &rec) {
    return rec.dhcp_state == SUBINFO_DHCP_DISCOVER || rec.dhcp_state == SUBINFO_DHCP_REQUEST ||
           rec.dhcp_state == SUBINFO_DHCP_INFORM;
}

uint16_t vlan_of_value(const uint8_t *value, int len) {
    const uint32_t vlan = len >= static_cast<int>(sizeof(be_u32))   ? uint32_t{read_payload<be_u32>(value, len)}
                          : len >= static_cast<int>(sizeof(be_u16)) ? uint32_t{read_payload<be_u16>(value, len)}
                                                                    : 0;
    return vlan <= VLAN_MAX ? static_cast<uint16_t>(vlan) : uint16_t{0};
}

void log_latencies(const char *function, const cl_conn_evt_rec &rec) {
    WL_LOG_AS(function, 6, "CTS: Latency info Dhcp = %d aaa = %d dns = %d", static_cast<int>(rec.dhcp_latency),
              static_cast<int>(rec.aaa_latency), static_cast<int>(rec.dns_latency));
}

void settle_record(cl_conn_evt_rec *rec) {
    if (rec->is_rec_sent_to_server != 0) {
        store_or_free(rec);
        return;
    }
    merge_connection_info_in_previous_records(rec);
    clrec_free(rec);
}

cl_conn_evt_rec *create_rec(const wl_evt_info_t *evt) {
    auto *const rec = static_cast<cl_conn_evt_rec *>(clts_malloc(sizeof(cl_conn_evt_rec)));
    if (rec == nullptr)
        return nullptr;
    conn_cb.num_clrec_malloc++;
    *rec = {};
    std::memcpy(rec->cl_info.mac, evt->cl_mac, sizeof rec->cl_info.mac);
    copy_ssid(*rec, *evt);
    if (evt->bssid != nullptr)
        std::memcpy(rec->cl_info.bssid, evt->bssid, sizeof rec->cl_info.bssid);
    static_assert(sizeof(vre_auth_recv_evt_data::chan) == 2);  // both requests begin with the channel
    if (evt->subinfo_value_len >= sizeof(be_u16))
        rec->channel = value_of<vre_auth_recv_evt_data>(*evt).chan;
    reset_clrec(rec);
    if (get_config_from_vapinfo(rec, evt) == 0)
        WL_LOG(3, "Fail in getting config from the ssid profile");
    rec->prev_evt_info_code = NO_INFO_CODE;
    rec->prev_evt_subinfo_code = NO_SUBINFO_CODE;
    rec->gmt = static_cast<uint32_t>(time(nullptr));
    rec->timestamp = rec->auth_timestamp = clts_now().msec;
    WL_LOG(7, "CONN INFO: Successfully created the client record");
    return rec;
}

void reset_clrec(cl_conn_evt_rec *rec) {
    rec->state = CL_CREATED;
    rec->ignore_assoc_fail = rec->is_node_authorised = rec->roaming_failure_occured = 0;
    rec->is_ipv4_rcvd = rec->is_ipv6_rcvd = rec->is_link_local_ip_rcvd = 0;
    rec->is_rec_sent_to_server = rec->is_client_disconnected = 0;
    rec->timestamp = rec->auth_timestamp = 0;
    rec->dhcp_state = 0;
    rec->dhcp_timestamp = rec->aaa_timestamp = rec->dns_timestamp = 0;
    rec->dhcp_latency = rec->aaa_latency = rec->dns_latency = 0;
    rec->cli_jrny = {};
    rec->dhcp_server_ip = rec->dns_server_ip = rec->aaa_server_ip = 0;
    rec->invalid_ip_addr = rec->rogue_dhcp_server_ip = rec->ipv4_addr = 0;
    std::memset(rec->conflict_mac, 0, sizeof rec->conflict_mac);
}

bool add_evt(cl_conn_evt_rec *rec, const wl_evt_info_t *evt) {
    const clts_time now = clts_now();
    store_event(*rec, *evt, now.msec);
    advance_stage_clock(*rec, *evt, now.msec);
    note_event(*rec, *evt, now);
    if (evt->info_code == INFO_PORTAL && evt->subinfo_code == PORTAL_LOGIN_SUCCESS) {
        complete_portal_login(rec);
        return false;
    }
    const bool failed = check_err_code(evt, rec) != 0;
    // An answer that took 0 ms deliberately never completes: a latency of 0 says that there was none yet.
    if (failed || rec->is_portal_enabled != 0 || rec->dns_timestamp == 0 || rec->dns_latency == 0)
        return true;
    complete(rec);
    return false;
}

void clrec_free(cl_conn_evt_rec *rec) {
    for (int i = 0; i < rec->num_evt; i++) {
        cl_evt &event = rec->cl_evt[i];
        if (event.subinfo_value == nullptr)
            continue;
        wipe(event.subinfo_value, event.subinfo_value_len);
        clts_release(event.subinfo_value, event.subinfo_value_len);
        conn_cb.num_subinfovalue_malloc--;
    }
    if (rec->cl_info.ssid != nullptr) {
        clts_release(rec->cl_info.ssid, rec->cl_info.ssid_len + size_t{1});
        conn_cb.num_ssid_malloc--;
    }
    clts_release(rec, sizeof *rec);
    conn_cb.num_clrec_malloc--;
}

detail_clrec *create_detail_clrec(const wl_evt_info_t *evt) {
    auto *const rec = static_cast<detail_clrec *>(clts_malloc(sizeof(detail_clrec)));
    if (rec != nullptr)
        init_detailed_clrec(rec, evt);
    return rec;
}

void init_detailed_clrec(detail_clrec *rec, const wl_evt_info_t *evt) {
    *rec = {};
    std::memcpy(rec->cl_mac, evt->cl_mac, sizeof rec->cl_mac);
    rec->timestamp = clts_now().msec;
    rec->prev_info_code = evt->info_code;
    rec->prev_sub_info_code = evt->subinfo_code;
    if (evt->bssid != nullptr)
        std::memcpy(rec->bssid, evt->bssid, sizeof rec->bssid);
}

// The detailed log has no content yet; these are where its events come in.
void track_network_events(const wl_evt_info_t *) {}

void send_detailed_log(const wl_evt_info_t *) {}
