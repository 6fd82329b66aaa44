/// What a client event is about: its info code. The subinfo code says more, for authentication and association
/// responses it is the IEEE 802.11 status code.
#pragma once

#include <cstdint>

enum wl_info_code : uint32_t {
    INFO_NONE = 0,           // no event of a client
    INFO_KEY_HANDSHAKE = 1,  // WPA handshake, group keys, key failures
    INFO_AUTH_REQUEST = 2,   // 802.11 authentication; begins an attempt
    INFO_AUTH_RESPONSE = 3,
    INFO_ASSOC_REQUEST = 4,  // association or reassociation
    INFO_ASSOC_RESPONSE = 5,
    INFO_PORTAL = 8,                 // captive portal: logged in, or why not
    INFO_IPV6_ADDRESS = 9,           // the client uses it; value: an address of either family
    INFO_DEAUTH_SENT = 10,           // the access point sends the client away
    INFO_DEAUTH_RECEIVED = 11,       // the client leaves
    INFO_DISASSOC_SENT = 12,         // the access point sends the client away
    INFO_DISASSOC_RECEIVED = 13,     // the client leaves
    INFO_DHCP = 14,                  // subinfo code: type of the DHCP message
    INFO_RADIUS = 15,                // 802.1X and what RADIUS answers
    INFO_AUTHORIZED = 16,            // the port is open for the client's traffic
    INFO_NODE_LEAVE = 17,            // the driver has dropped the client
    INFO_NODE_TIMEOUT = 18,          // the client fell silent
    INFO_BANDWIDTH = 19,             // its limits change
    INFO_STEERING = 20,              // smart steering moves or refuses it
    INFO_DNS = 21,                   // asked, answered, or neither
    INFO_ROAMING = 22,               // came from another access point, or failed to
    INFO_IPV4_ADDRESS = 23,          // the client uses it
    INFO_INVALID_IP = 25,            // an address that the network's DHCP server did not give
    INFO_IP_CONFLICT = 26,           // an address that another station uses too
    INFO_VLAN = 27,                  // the VLAN that it was put into
    INFO_CLIENT_PMK = 100,           // value: key material
    INFO_CLIENT_PORTAL_LOGIN = 101,  // value: a portal login
    INFO_ROLE = 104,                 // the role that applies to it
};

constexpr uint16_t SUBINFO_VLAN_ASSIGNED = 39;           // with any info code: the value is a VLAN
constexpr uint16_t SUBINFO_RADIUS_ACCESS_REQUEST = 801;  // value: the server's address, then the attributes

// Of INFO_DHCP: the message.
constexpr uint16_t SUBINFO_DHCP_DISCOVER = 1;
constexpr uint16_t SUBINFO_DHCP_REQUEST = 3;
constexpr uint16_t SUBINFO_DHCP_ACK = 5;  // value: the server's address
constexpr uint16_t SUBINFO_DHCP_INFORM = 8;

// Of INFO_STEERING: why an association is ignored or rejected.
constexpr uint16_t SUBINFO_STEERING_SIGNAL_IGNORED = 4;
constexpr uint16_t SUBINFO_STEERING_BAND_IGNORED = 6;
constexpr uint16_t SUBINFO_STEERING_BAND_REJECTED = 7;
constexpr uint16_t SUBINFO_STEERING_LOAD_IGNORED = 9;
constexpr uint16_t SUBINFO_STEERING_SIGNAL_REJECTED = 26;
constexpr uint16_t SUBINFO_STEERING_LOAD_REJECTED = 27;
