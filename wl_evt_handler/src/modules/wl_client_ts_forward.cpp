// Every event of a client, as it leaves on the bus.
#include <algorithm>
#include <cstring>

#include "debug_log.h"
#include "libwl.h"
#include "payload.h"
#include "valtrix_socklib.h"
#include "wl_client_ts_internal.h"
#include "wl_client_ts_packet.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"
#include "wl_utils.h"

namespace {

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
    put_item_text(out, type, text);
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
    if (evt.subinfo_code == SUBINFO_VLAN_ASSIGNED) {
        if (value != nullptr && length >= sizeof(be_u32))
            put_item(out, FORWARD_VALUE, value, length);
        return;
    }
    if (value == nullptr) {
        if (evt.info_code == INFO_BANDWIDTH)
            put_bandwidth(out, evt);
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
        put_item_text(out, FORWARD_CONFLICT_MAC,
                      socklib_mac_ntoa(conflict.mac, sizeof conflict.mac, text, sizeof text));
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

}  // namespace

int send_client_ts_info(vre_iw_cmd_t, const wl_evt_info_t *evt) {
    // A RADIUS packet may take more than the usual size; it is sent all the same.
    const size_t size = std::max(PACKET_SIZE, forwarded_limit(*evt));
    packet record{static_cast<uint8_t *>(clts_malloc(size)), size, 0};
    if (record.bytes == nullptr)
        return -1;
    std::memset(record.bytes, 0, size);
    if (has_invalid_vlan(*evt)) {
        WL_LOG(3, "CLIENT TS INFO: Invalid vlan %d received, not sending it!", static_cast<int>(VLAN_NONE));
        clts_release(record.bytes, size);
        return -1;
    }
    put_forwarded_event(record, *evt);
    if (record.length > PACKET_SIZE)
        WL_LOG(3, "CRASH_DEBUG[%d]: Memory overwrite detected.", OVERWRITE_MARK);
    (void)wl_send_evt(VRE_DEBUG_CLIENT_TS, record.bytes, static_cast<int>(record.length));
    clts_release(record.bytes, size);
    return 0;
}
