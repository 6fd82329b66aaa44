// What leaves: the report of an attempt on the bus, the record of every client event on the bus, stored records in
// dumps.
#include <algorithm>
#include <cstring>
#include <ctime>

#include "debug_log.h"
#include "libwl.h"
#include "payload.h"
#include "valtrix_socklib.h"
#include "wl_apc.h"
#include "wl_client_ts_internal.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"
#include "wl_logger.h"
#include "wl_utils.h"

namespace {

constexpr size_t REPORT_SIZE = 2048;  // bytes; a report takes about 200
constexpr int SEND_TRIES = 3;
constexpr uint16_t BAND_5_GHZ = 1;
constexpr uint16_t BAND_2_GHZ = 6;
constexpr uint16_t LAST_2_GHZ_CHANNEL = 14;

constexpr uint16_t SUB_ROGUE_DHCP_SERVER = 2;  // of FAILURE_IP

/// Items of a report.
enum report_item : uint16_t {
    ITEM_FAILURE_CODE = 1,
    ITEM_SUBINFO_CODE = 2,
    ITEM_AAA_LATENCY = 3,
    ITEM_DHCP_LATENCY = 4,
    ITEM_DNS_LATENCY = 5,
    ITEM_SINCE_ASSOC = 7,
    ITEM_SINCE_AUTH = 8,
    ITEM_SINCE_NETWORK = 9,
    ITEM_SINCE_LAST_STAGE = 10,
    ITEM_APC_ID = 11,
    ITEM_VLAN = 15,
    ITEM_CLIENT_IP = 16,
    ITEM_DNS_SERVER = 35,
    ITEM_DHCP_SERVER = 36,
    ITEM_CONFLICT_MAC = 37,
    ITEM_AAA_SERVER = 38,
};

struct [[gnu::packed]] report_head {
    uint8_t mac[6];
    uint8_t bssid[6];
    be_u16 band;
    uint8_t success;
};
static_assert(sizeof(report_head) == 15);

struct [[gnu::packed]] item_head {
    be_u16 type;
    be_u16 length;
};
static_assert(sizeof(item_head) == 4);

/// A packet under construction in a buffer that is known to be large enough.
struct packet {
    uint8_t *bytes;
    size_t length;
};

void put(packet &out, const void *bytes, size_t length) {
    std::memcpy(out.bytes + out.length, bytes, length);
    out.length += length;
}

void put_item(packet &out, uint16_t type, const void *value, size_t length) {
    item_head head;
    head.type = type;
    head.length = static_cast<uint16_t>(length);
    put(out, &head, sizeof head);
    put(out, value, length);
}

void put_item_u16(packet &out, uint16_t type, uint16_t number) {
    be_u16 value;
    value = number;
    put_item(out, type, &value, sizeof value);
}

void put_item_u32(packet &out, uint16_t type, uint32_t number) {
    be_u32 value;
    value = number;
    put_item(out, type, &value, sizeof value);
}

/// @param address  in network order
void put_item_ip(packet &out, uint16_t type, uint32_t address) {
    put_item(out, type, &address, sizeof address);
}

void put_text(packet &out, uint16_t type, const char *text) {
    put_item(out, type, text, std::strlen(text));
}

void put_ip_failure(packet &out, const cl_conn_evt_rec &rec, uint16_t sub) {
    if (sub == SUB_IP_CONFLICT) {
        put_item_ip(out, ITEM_CLIENT_IP, rec.ipv4_addr);
        put_item(out, ITEM_CONFLICT_MAC, rec.conflict_mac, sizeof rec.conflict_mac);
        return;
    }
    put_item_ip(out, ITEM_CLIENT_IP, rec.invalid_ip_addr);
    if (sub == SUB_ROGUE_DHCP_SERVER)
        put_item_ip(out, ITEM_DHCP_SERVER, rec.rogue_dhcp_server_ip);
}

void put_apc_id(packet &out, const struct cl_info &client) {
    if (apc_check_bssid_is_feature_enabled(client.bssid) == 0)
        return;
    char id[33];
    if (apc_generate_id(client.mac, client.bssid, id, sizeof id) == 0)
        put_text(out, ITEM_APC_ID, id);
    else
        WL_LOG_AS("check_and_send_client_connection_info", 3,
                  "Failed to generate APC ID for clmac " MAC_FMT " and bssid " MAC_FMT, MAC_ARGS(client.mac),
                  MAC_ARGS(client.bssid));
}

void put_failure(packet &out, const cl_conn_evt_rec &rec, int slot) {
    const uint8_t failure = rec.failure_code[slot];
    const uint16_t sub = rec.subinfo_code[slot];
    put_item(out, ITEM_FAILURE_CODE, &failure, sizeof failure);
    put_item_u16(out, ITEM_SUBINFO_CODE, sub);
    if (failure == FAILURE_IP)
        put_ip_failure(out, rec, sub);
    if ((failure == FAILURE_DHCP && sub == SUB_DHCP_VLAN_NOT_SEEN) ||
        (failure == FAILURE_DNS && sub == SUB_DNS_VLAN_NOT_SEEN))
        put_item_u16(out, ITEM_VLAN, rec.vlan);
    put_apc_id(out, rec.cl_info);
}

void put_success(packet &out, const cl_conn_evt_rec &rec) {
    put_item_u32(out, ITEM_AAA_LATENCY, rec.aaa_latency);
    put_item_u32(out, ITEM_DHCP_LATENCY, rec.dhcp_latency);
    put_item_u32(out, ITEM_DNS_LATENCY, rec.dns_latency);
}

void put_servers(packet &out, const cl_conn_evt_rec &rec) {
    if (rec.dhcp_server_ip != 0)
        put_item_ip(out, ITEM_DHCP_SERVER, rec.dhcp_server_ip);
    if (rec.dns_server_ip != 0)
        put_item_ip(out, ITEM_DNS_SERVER, rec.dns_server_ip);
    if (rec.aaa_server_ip != 0)
        put_item_ip(out, ITEM_AAA_SERVER, rec.aaa_server_ip);
}

/// @return microseconds since then, cut to 32 bits; 0 when it has not happened or lies in the future
uint32_t usec_since(uint64_t then, uint64_t now) {
    return then != 0 && then <= now ? static_cast<uint32_t>(now - then) : 0;
}

void put_journey(packet &out, const cl_conn_evt_rec &rec) {
    const clts_time now = clts_now();
    const uint32_t assoc = usec_since(rec.cli_jrny.assoc_ts, now.usec);
    const uint32_t auth = usec_since(rec.cli_jrny.auth_ts, now.usec);
    const uint32_t network = usec_since(rec.cli_jrny.network_ts, now.usec);
    const uint32_t last_seen = now.msec - rec.timestamp;
    put_item_u32(out, ITEM_SINCE_ASSOC, assoc);
    put_item_u32(out, ITEM_SINCE_AUTH, auth);
    put_item_u32(out, ITEM_SINCE_NETWORK, network);
    put_item_u32(out, ITEM_SINCE_LAST_STAGE, last_seen);
    WL_LOG_AS("check_and_send_client_connection_info", 7,
              "Client Journey: ASSOC SUCCESS[%uus], AUTH SUCCESS[%uus], NETWORK SUCCESS[%uus], "
              "LAST_SEEN_EVT_TS[%ums]\n",
              assoc, auth, network, last_seen);
}

void put_report(packet &out, const cl_conn_evt_rec &rec, int slot) {
    report_head head;
    std::memcpy(head.mac, rec.cl_info.mac, sizeof head.mac);
    std::memcpy(head.bssid, rec.cl_info.bssid, sizeof head.bssid);
    head.band = rec.channel == 0 || rec.channel > LAST_2_GHZ_CHANNEL ? BAND_5_GHZ : BAND_2_GHZ;
    head.success = slot == SUCCESS_REPORT ? 1 : 0;
    put(out, &head, sizeof head);
    if (slot == SUCCESS_REPORT)
        put_success(out, rec);
    else
        put_failure(out, rec, slot);
    put_servers(out, rec);
    put_journey(out, rec);
}

void send_report(const packet &report, const uint8_t *mac) {
    const auto length = static_cast<int>(report.length);
    for (int i = 0; i < SEND_TRIES; i++) {
        if (wl_send_evt(VRE_DEBUG_CLIENT_CONN_INFO, report.bytes, length) <= 0)
            continue;
        WL_LOG_AS("check_and_send_client_connection_info", 6,
                  "CONN INFO: Successfully sent packet to server for " MAC_FMT " length %d\n", MAC_ARGS(mac), length);
        return;
    }
    WL_LOG_AS("check_and_send_client_connection_info", 6,
              "CONN INFO: Failed to send packet to server for " MAC_FMT " length %d\n", MAC_ARGS(mac), length);
}

constexpr int ADDRESS_TEXT_SIZE = 46;  // bytes, the longest IPv6 address and its NUL
constexpr int MAC_TEXT_SIZE = 18;
constexpr int OVERWRITE_MARK = 423;  // what the support tools look for in that line
constexpr size_t RADIUS_SERVER_SIZE = 4;
constexpr uint32_t VLAN_NONE = 0xFFFFFFFF;

/// Items of a forwarded event; the first two mean the same in a report of the access point's own events.
enum forwarded_item : uint16_t {
    FORWARD_SUBINFO_CODE = 1,
    FORWARD_VALUE = 2,
    FORWARD_SSID = 3,
    FORWARD_VLAN = 4,
    FORWARD_SERVER = 5,
    FORWARD_CONFLICT_MAC = 6,
};

struct [[gnu::packed]] forwarded_head {
    uint8_t mac[6];
    be_u16 kind;
    be_u32 zero;
    char mac_text[MAC_TEXT_SIZE];
    be_u32 info_code;
    char bssid_text[MAC_TEXT_SIZE];  // all zero without a BSSID
};
static_assert(sizeof(forwarded_head) == 52);
constexpr uint16_t KIND_CLIENT_EVENT = 5;

/// No forwarded event is longer than this.
size_t forwarded_limit(const wl_evt_info_t &evt) {
    constexpr size_t items = 6 * sizeof(item_head) + 2 * sizeof(be_u32) + 2 * ADDRESS_TEXT_SIZE + MAC_TEXT_SIZE;
    return sizeof(forwarded_head) + items + static_cast<size_t>(evt.ssid_len) + evt.subinfo_value_len;
}

void put_ip_text(packet &out, uint16_t type, const void *address, int length) {
    char text[ADDRESS_TEXT_SIZE];
    ip_address_text(address, length, text);
    put_text(out, type, text);
}

void put_bandwidth(packet &out, const wl_evt_info_t &evt) {
    bw_info value;
    value.pri = evt.bw.pri;
    value.up = evt.bw.up;
    value.down = evt.bw.down;
    value.profile_id = evt.profile_id;
    put_item(out, FORWARD_VALUE, &value, sizeof value);
}

/// The value, where it may leave the access point; addresses as text.
void put_value(packet &out, const wl_evt_info_t &evt) {
    const uint8_t *const value = evt.subinfo_value;
    const size_t length = evt.subinfo_value_len;
    if (evt.info_code == INFO_CLIENT_PMK || evt.info_code == INFO_CLIENT_PORTAL_LOGIN)
        return;
    if (value == nullptr) {
        if (evt.info_code == INFO_BANDWIDTH)
            put_bandwidth(out, evt);
        return;
    }
    if (evt.subinfo_code == SUBINFO_VLAN_ASSIGNED) {
        if (length >= sizeof(be_u32))
            put_item(out, FORWARD_VALUE, value, length);
        return;
    }
    switch (evt.info_code) {
    case INFO_IPV6_ADDRESS:
    case INFO_DHCP:
        put_ip_text(out, FORWARD_VALUE, value, static_cast<int>(length));
        break;
    case INFO_INVALID_IP:
        put_ip_text(out, FORWARD_VALUE, read_payload<vre_node_invalid_ip_evt_data>(value, evt.subinfo_value_len).ip, 4);
        break;
    case INFO_IP_CONFLICT:
        put_ip_text(out, FORWARD_VALUE, read_payload<vre_node_ip_conflict_data>(value, evt.subinfo_value_len).ip, 4);
        break;
    case INFO_RADIUS: {
        const size_t server =
            evt.subinfo_code == SUBINFO_RADIUS_ACCESS_REQUEST ? std::min(length, RADIUS_SERVER_SIZE) : 0;
        put_item(out, FORWARD_VALUE, value + server, length - server);
        break;
    }
    default:
        put_item(out, FORWARD_VALUE, value, length);
    }
}

/// What the value says about others than the client.
void put_details(packet &out, const wl_evt_info_t &evt) {
    const uint8_t *const value = evt.subinfo_value;
    if (value == nullptr)
        return;
    if (evt.info_code == INFO_VLAN) {
        if (const uint16_t vlan = vlan_of_value(value, evt.subinfo_value_len))
            put_item_u32(out, FORWARD_VLAN, vlan);
    } else if (evt.info_code == INFO_RADIUS && evt.subinfo_code == SUBINFO_RADIUS_ACCESS_REQUEST) {
        if (evt.subinfo_value_len >= RADIUS_SERVER_SIZE)
            put_ip_text(out, FORWARD_SERVER, value, RADIUS_SERVER_SIZE);
    } else if (evt.info_code == INFO_INVALID_IP) {
        const auto invalid = read_payload<vre_node_invalid_ip_evt_data>(value, evt.subinfo_value_len);
        put_ip_text(out, FORWARD_SERVER, invalid.server_ip, sizeof invalid.server_ip);
    } else if (evt.info_code == INFO_IP_CONFLICT) {
        const auto conflict = read_payload<vre_node_ip_conflict_data>(value, evt.subinfo_value_len);
        char text[MAC_TEXT_SIZE];
        put_text(out, FORWARD_CONFLICT_MAC, socklib_mac_ntoa(conflict.mac, sizeof conflict.mac, text, sizeof text));
    }
}

void put_forwarded_event(packet &out, const wl_evt_info_t &evt) {
    forwarded_head head{};
    std::memcpy(head.mac, evt.cl_mac, sizeof head.mac);
    head.kind = KIND_CLIENT_EVENT;
    (void)socklib_mac_ntoa(evt.cl_mac, sizeof head.mac, head.mac_text, sizeof head.mac_text);
    head.info_code = evt.info_code;
    if (evt.bssid != nullptr)
        (void)socklib_mac_ntoa(evt.bssid, sizeof head.mac, head.bssid_text, sizeof head.bssid_text);
    put(out, &head, sizeof head);
    put_item_u32(out, FORWARD_SUBINFO_CODE, evt.subinfo_code);
    if (evt.ssid != nullptr && evt.ssid_len > 0)
        put_item(out, FORWARD_SSID, evt.ssid, static_cast<size_t>(evt.ssid_len));
    put_value(out, evt);
    put_details(out, evt);
}

/// @return whether an event brings the VLAN that means none
bool has_invalid_vlan(const wl_evt_info_t &evt) {
    return evt.subinfo_code == SUBINFO_VLAN_ASSIGNED && evt.subinfo_value != nullptr &&
           evt.subinfo_value_len >= sizeof(be_u32) &&
           read_payload<be_u32>(evt.subinfo_value, evt.subinfo_value_len) == VLAN_NONE;
}

/// A line of `count` "=" between newlines.
void print_rule(FILE *fp, int count) {
    std::fputc('\n', fp);
    for (int i = 0; i < count; i++)
        std::fputc('=', fp);
    std::fputc('\n', fp);
}

}  // namespace

void check_and_send_client_connection_info(cl_conn_evt_rec *clrec, int slot) {
    if (clrec == nullptr)
        return;
    const uint8_t *const mac = clrec->cl_info.mac;
    if (slot != SUCCESS_REPORT && check_connection_info_in_previous_records(clrec, slot) != 0) {
        WL_LOG(6, "CONN INFO: Not sending to server for client " MAC_FMT ", already sent in %d ms interval\n",
               MAC_ARGS(mac), static_cast<int>(PREVIOUS_RECORD_LIMIT));
        return;
    }
    // Whether the report gets through or not: the record is then kept and can be dumped.
    clrec->is_rec_sent_to_server = 1;
    packet report{static_cast<uint8_t *>(clts_malloc(REPORT_SIZE)), 0};
    if (report.bytes == nullptr)
        return;
    std::memset(report.bytes, 0, REPORT_SIZE);
    put_report(report, *clrec, slot);
    send_report(report, mac);
    clts_release(report.bytes, REPORT_SIZE);
}

int send_client_ts_info(vre_iw_cmd_t, const wl_evt_info_t *evt) {
    // A RADIUS packet may take more than the usual size; it is sent all the same.
    const size_t size = std::max(REPORT_SIZE, forwarded_limit(*evt));
    packet record{static_cast<uint8_t *>(clts_malloc(size)), 0};
    if (record.bytes == nullptr)
        return -1;
    std::memset(record.bytes, 0, size);
    if (has_invalid_vlan(*evt)) {
        WL_LOG(3, "CLIENT TS INFO: Invalid vlan %d received, not sending it!", static_cast<int>(VLAN_NONE));
        clts_release(record.bytes, size);
        return -1;
    }
    put_forwarded_event(record, *evt);
    if (record.length > REPORT_SIZE)
        WL_LOG(3, "CRASH_DEBUG[%d]: Memory overwrite detected.", OVERWRITE_MARK);
    (void)wl_send_evt(VRE_DEBUG_CLIENT_TS, record.bytes, static_cast<int>(record.length));
    clts_release(record.bytes, size);
    return 0;
}

void print_record(FILE *fp, const cl_conn_evt_rec *clrec) {
    if (fp == nullptr || clrec == nullptr)
        return;
    const struct cl_info &client = clrec->cl_info;
    const time_t created = static_cast<time_t>(clrec->gmt);
    tm when{};
    localtime_r(&created, &when);
    print_rule(fp, 81);
    std::fprintf(fp, MAC_FMT " ==> [%s(" MAC_FMT ")] @ %04d.%02d.%02d %02d:%02d:%02d Num Events:%d Err Event:%d\n",
                 MAC_ARGS(client.mac), client.ssid != nullptr ? client.ssid : "", MAC_ARGS(client.bssid),
                 when.tm_year + 1900, when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec,
                 clrec->num_evt, static_cast<int>(clrec->rcvd_err_evt));
    for (int i = 0; i < clrec->num_evt; i++) {
        const cl_evt &event = clrec->cl_evt[i];
        wl_log_evt(fp, client.mac, client.bssid, client.ssid, client.ssid_len, event.info_code, event.subinfo_code,
                   event.subinfo_value, event.subinfo_value_len, static_cast<int>(event.tdiff_msec), nullptr);
    }
    print_rule(fp, 80);
}
