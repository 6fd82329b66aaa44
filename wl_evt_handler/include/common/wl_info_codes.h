/// What a client event is about: its info code. The subinfo code says more, for authentication and association
/// responses it is the IEEE 802.11 status code.
#pragma once

#include <cstdint>

enum wl_info_code : uint32_t {
    INFO_NONE = 0,
    INFO_KEY_HANDSHAKE = 1,
    INFO_AUTH_REQUEST = 2,
    INFO_AUTH_RESPONSE = 3,
    INFO_ASSOC_REQUEST = 4,
    INFO_ASSOC_RESPONSE = 5,
    INFO_PORTAL = 8,
    INFO_IPV6_ADDRESS = 9,
    INFO_DEAUTH_SENT = 10,  // 10 to 13, 17 and 18: the client has left
    INFO_DEAUTH_RECEIVED = 11,
    INFO_DISASSOC_SENT = 12,
    INFO_DISASSOC_RECEIVED = 13,
    INFO_DHCP = 14,
    INFO_RADIUS = 15,
    INFO_AUTHORIZED = 16,
    INFO_NODE_LEAVE = 17,
    INFO_NODE_TIMEOUT = 18,
    INFO_BANDWIDTH = 19,
    INFO_STEERING = 20,
    INFO_DNS = 21,
    INFO_ROAMING = 22,
    INFO_IPV4_ADDRESS = 23,
    INFO_INVALID_IP = 25,
    INFO_IP_CONFLICT = 26,
    INFO_VLAN = 27,
    INFO_CLIENT_PMK = 100,           // value: key material
    INFO_CLIENT_PORTAL_LOGIN = 101,  // value: a portal login
    INFO_ROLE = 104,
};

constexpr uint16_t SUBINFO_VLAN_ASSIGNED = 39;           // with any info code: the value is a VLAN
constexpr uint16_t SUBINFO_RADIUS_ACCESS_REQUEST = 801;  // value: the server's address, then the attributes
