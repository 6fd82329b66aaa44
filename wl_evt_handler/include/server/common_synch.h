/// The protocol of the synch agent: packets of a 14-byte header, an application id (the SSID) and a payload of items
/// (type, length, value), over the TCP connection that the main loop keeps. What the packets mean is wl_synch's. Main
/// thread only; nothing here waits.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t SYNCH_HEADER_SIZE = 14;
constexpr size_t SYNCH_PACKET_MAX = 4395;  // header, application id and payload together
constexpr size_t SYNCH_ERROR_SIZE = 250;   // room for the text that explains a failed read

/// What a packet is for.
enum synch_packet_type : uint8_t {
    SYNCH_PORTAL_LOGIN = 3,
    SYNCH_CLIENT_INFO = 10,
    SYNCH_INTER_AP = 12,
    SYNCH_VLAN_GATEWAY = 16,
    SYNCH_REGISTER = 32,
    SYNCH_REGISTERED = 33,
    SYNCH_REFUSED = 34,
    SYNCH_UNREGISTER = 35,
    SYNCH_NEIGHBOURS_CHANGED = 36,
};

/// A header in memory. On the wire the subtype comes before the length of the application id.
struct app_header {
    uint8_t version;
    uint8_t app_msg_type;
    uint8_t packet_path;
    uint8_t flag;
    uint8_t appid_len;
    uint8_t subtype;
    uint16_t payload_len;
    uint8_t mac[6];
    char *appid;  // NUL-terminated heap copy, may hold further NULs; null without an application id
};

/// A payload under construction.
struct app_data_info_t {
    uint16_t data_len;  // bytes in use
    uint8_t data[SYNCH_PACKET_MAX];
};

/// A packet that is being received.
struct synch_tcp_pkt_info_t {
    uint8_t buffer[SYNCH_PACKET_MAX];
    int expected_pkt_len;  // 0 until the header is there
    int recvd_len;
};

extern synch_tcp_pkt_info_t synch_tcp_pkt_info;
extern char g_comm_vlan_iface_name[40];  // interface of the communication VLAN; empty when it is not known

/// Writes a header and the application id.
///
/// @param buf    14 + appid_len bytes
/// @param appid  may be null: its bytes stay as they are
/// @param mac    6 bytes; null: the broadcast address
/// @return the position after them, where the payload goes
uint8_t *set_synch_packet_app_header(uint8_t *buf, uint8_t version, uint8_t type, uint8_t packet_path, uint8_t flag,
                                     uint8_t subtype, uint8_t appid_len, const char *appid, uint16_t payload_len,
                                     const uint8_t *mac);

/// Sends a packet, whole and without waiting; a failed send drops the connection, a lack of memory does not.
///
/// @param payload  may be null; what holds more than SYNCH_PACKET_MAX bytes is refused, and the connection kept
/// @param appid    appid_len bytes; may be null when that is 0
/// @param mac      6 bytes; null: the broadcast address
/// @return 0 or -1
[[nodiscard]] int send_packet_to_synch_agent(uint8_t type, uint8_t subtype, const app_data_info_t *payload,
                                             const char *appid, uint8_t appid_len, const uint8_t *mac,
                                             uint8_t packet_path);

/// Appends one item (type, length, value) to a payload under construction.
///
/// @param info    payload; grows by length + 2 bytes on success, unchanged on failure
/// @param value   may be null when the length is 0
/// @param length  bytes of value, all of them copied; the length on the wire is its lowest 8 bits
/// @return 0, or -1 when the payload would pass SYNCH_PACKET_MAX or the length is negative
[[nodiscard]] int fill_app_data_info(app_data_info_t *info, const void *value, uint8_t tlv_type, int length);

/// Sends a request to register or unregister an application id.
///
/// @param type       SYNCH_REGISTER or SYNCH_UNREGISTER
/// @param app_name   NUL-terminated; a text's length on the wire is the lowest 8 bits of its own
/// @param number     sent as it is, in network order
/// @param interface  name of the interface; may be null, which counts as empty
/// @return 0 or -1
[[nodiscard]] int send_register_unregister_req_to_synch_agent(uint8_t type, const char *app_name, uint32_t number,
                                                              const char *interface, const char *appid,
                                                              uint8_t appid_len);

/// Reads the 14 bytes of a header; the application id is left null.
///
/// @return 0
int parse_min_app_header(const uint8_t *buf, app_header *header);

/// Receives what is there of a packet, at most one.
///
/// @param info  holds the packet across calls; the caller zeroes its counters after a complete packet and after a
///              failure
/// @param err   SYNCH_ERROR_SIZE bytes; explains -1, and 1 when the read is to be tried again
/// @return 0 complete, 1 incomplete, -1 when the connection is broken
[[nodiscard]] int handle_synch_sock_tcp_read(int fd, synch_tcp_pkt_info_t *info, char *err);

/// Reads from the synch agent's socket and acts on a complete packet; a broken connection is dropped.
void receive_synch_data();

/// Checks a complete packet and acts on it.
///
/// @return 0; -1 when it is malformed or memory is short
[[nodiscard]] int handle_synch_packet(const uint8_t *buf, int len);

/// Drops the connection, if there is one; the main loop opens a new one and registers anew. What was received of a
/// packet is forgotten.
void break_synch_connection();
