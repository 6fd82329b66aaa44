// The verdict on an attempt, as it leaves on the bus, and stored records in dump files.
#include <cstring>
#include <ctime>

#include "debug_log.h"
#include "libwl.h"
#include "wl_apc.h"
#include "wl_client_ts_internal.h"
#include "wl_client_ts_packet.h"
#include "wl_logger.h"

namespace {

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
        put_item_text(out, ITEM_APC_ID, id);
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
    packet report{static_cast<uint8_t *>(clts_malloc(PACKET_SIZE)), PACKET_SIZE, 0};
    if (report.bytes == nullptr)
        return;
    std::memset(report.bytes, 0, PACKET_SIZE);
    put_report(report, *clrec, slot);
    send_report(report, mac);
    clts_release(report.bytes, PACKET_SIZE);
}

void print_record(FILE *fp, const cl_conn_evt_rec *clrec) {
    if (fp == nullptr || clrec == nullptr)
        return;
    const struct cl_info &client = clrec->cl_info;
    // Signed, as it is where a time_t has 32 bits.
    const time_t created = static_cast<int32_t>(clrec->gmt);
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
