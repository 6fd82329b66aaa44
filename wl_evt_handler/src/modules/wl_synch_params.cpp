// What is sent to the synch agent beside the clients of an SSID, and what it is sent about: interfaces and their state.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "debug_log.h"
#include "error_text.h"
#include "payload.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"
#include "wl_synch.h"
#include "wl_utils.h"

namespace {

constexpr uint16_t INTER_AP_ETHERNET_PROTOCOL = 0x890D;
constexpr size_t LINE_SIZE = 512;
constexpr size_t PATH_SIZE = 64;
constexpr char BLANKS[] = " \t\n\v\f\r";

// Subtypes of SYNCH_INTER_AP, and their items.
constexpr uint8_t STEERING_ATTEMPTS = 2;
constexpr uint8_t INTER_AP_PARAMETERS = 3;
constexpr uint8_t ITEM_CLIENT_MAC = 5;
constexpr uint8_t ITEM_ATTEMPTS = 6;
constexpr uint8_t ITEM_INTER_AP_FLAG = 9;
constexpr uint8_t ITEM_SYNCH_PERIOD = 10;

// The subtype of SYNCH_VLAN_GATEWAY, its item and its path.
constexpr uint8_t GATEWAY_INFORMATION = 1;
constexpr uint8_t ITEM_GATEWAY = 16;
constexpr uint8_t GATEWAY_PATH = 0;

constexpr size_t MAC_SIZE = 6;

/// What the agent takes for the gateway's record is a byte longer than the record.
struct [[gnu::packed]] gateway_value {
    vre_vg_evt_data gateway;
    uint8_t zero;
};
static_assert(sizeof(gateway_value) == 27);

struct item_t {
    uint8_t type;
    const void *value;
    int length;
};

/// Sends a packet that belongs to no SSID.
int send_items(uint8_t type, uint8_t subtype, uint8_t path, std::initializer_list<item_t> items) {
    app_data_info_t payload{};
    for (const item_t &item : items) {
        if (fill_app_data_info(&payload, item.value, item.type, item.length) != 0)
            return -1;
    }
    return send_packet_to_synch_agent(type, subtype, &payload, nullptr, 0, nullptr, path);
}

/// @return the first word of a text, cut off in place
char *first_word(char *text) {
    text += std::strspn(text, BLANKS);
    text[std::strcspn(text, BLANKS)] = '\0';
    return text;
}

/// @return the number of the communication VLAN; 0 when the file does not say
int communication_vlan(FILE *file) {
    char line[LINE_SIZE];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        char *const separator = std::strchr(line, '=');
        if (separator == nullptr)
            continue;
        *separator = '\0';
        const char *const value = first_word(separator + 1);
        const char *const key = first_word(line);
        WL_LOG_AS("set_comm_vlan_iface_name", 2, "pos : [%s], buf : [%s]\n", value, key);
        if (std::strcmp(key, "communication_vlan") == 0)
            return to_number(value);
    }
    return 0;
}

bool can_be_opened(const char *path) {
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    close(descriptor);
    return true;
}

bool is_behind_nat(const vre_vg_evt_data *gateway) {
    char path[PATH_SIZE];
    std::snprintf(path, sizeof path, "/tmp/profile%d/nat.conf", static_cast<int>(gateway->profile_id));
    return can_be_opened(path);
}

bool is_behind_tunnel(const vre_vg_evt_data *gateway) {
    char path[PATH_SIZE];
    std::snprintf(path, sizeof path, "/tmp/network%d/network.conf", static_cast<int>(gateway->tunnel_profile_id));
    return can_be_opened(path);
}

}  // namespace

void set_comm_vlan_iface_name() {
    FILE *const file = std::fopen(g_discovery_conf_file, "re");
    if (file == nullptr) {
        const int error = errno;
        WL_LOG(3, "Could not open file : %s, error : %s", g_discovery_conf_file, error_text(error));
        return;
    }
    const int vlan = communication_vlan(file);
    std::fclose(file);
    if (vlan == 0 || vlan == -1)
        std::snprintf(g_comm_vlan_iface_name, sizeof g_comm_vlan_iface_name, "br0");
    else
        std::snprintf(g_comm_vlan_iface_name, sizeof g_comm_vlan_iface_name, "br0.%d", vlan);
    WL_LOG(2, "g_comm_vlan_iface_name : %s", g_comm_vlan_iface_name);
}

int is_iface_up(const char *name) {
    if (name == nullptr)
        return -1;
    // Nothing is sent or received with it.
    const int sock = socket(PF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(INTER_AP_ETHERNET_PROTOCOL));
    if (sock < 0) {
        const int error = errno;
        WL_LOG(3, "socket(PF_PACKET), error [%s]", error_text(error));
        return -1;
    }
    ifreq request{};
    std::snprintf(request.ifr_name, sizeof request.ifr_name, "%s", name);
    const int result = ioctl(sock, SIOCGIFFLAGS, &request);
    const int error = errno;
    close(sock);
    if (result < 0) {
        WL_LOG(3, "ioctl[SIOCGIFFLAGS], error [%s]", error_text(error));
        return -1;
    }
    const unsigned flags = static_cast<uint16_t>(request.ifr_flags);
    if ((flags & IFF_UP) == 0 || (flags & IFF_RUNNING) == 0) {
        WL_LOG(3, "ioctl[SIOCGIFFLAGS], iface name %s flags %02X", name, flags);
        return -1;
    }
    return 0;
}

void handle_inter_ap_synch_params(vre_iw_cmd_t, void *buf, int len) {
    if (len < static_cast<int>(sizeof(vre_inter_ap_param))) {
        WL_LOG(3, "Insufficient data len [%d] received for event[%d]", len, VRE_INTER_AP_SYNCH_CONF);
        return;
    }
    (void)handle_inter_ap_params(buf);
}

int handle_inter_ap_params(const void *parameters) {
    if (parameters == nullptr) {
        WL_LOG(3, "%s: Return , Inter AP parmas NULL", __func__);
        return -1;
    }
    const auto params = read_payload<vre_inter_ap_param>(parameters, sizeof(vre_inter_ap_param));
    return send_items(SYNCH_INTER_AP, INTER_AP_PARAMETERS, IAPC_PATH_SYNCH_AGENT,
                      {{ITEM_INTER_AP_FLAG, &params.inter_ap_flag, 1}, {ITEM_SYNCH_PERIOD, &params.synch_period, 1}});
}

int send_client_steering_attempts_packet(const uint8_t *mac, uint16_t, uint8_t attempts) {
    if (mac == nullptr) {
        WL_LOG(3, "%s: Return , client mac is NULL", __func__);
        return -1;
    }
    return send_items(SYNCH_INTER_AP, STEERING_ATTEMPTS, IAPC_PATH_SYNCH_AGENT,
                      {{ITEM_CLIENT_MAC, mac, MAC_SIZE}, {ITEM_ATTEMPTS, &attempts, 1}});
}

int send_vlan_gateway_info_packet(const vre_vg_evt_data *gateway) {
    if (gateway == nullptr) {
        WL_LOG(3, "%s: Return , vlan gateway parmas NULL", __func__);
        return -1;
    }
    if (is_behind_nat(gateway) || is_behind_tunnel(gateway))
        return 0;
    const gateway_value value{*gateway, 0};
    WL_LOG(3, "Set packet path [%d] for profile ID [%d] for VRE_VLAN_GATEWAY_INFO_PACKET", GATEWAY_PATH,
           static_cast<int>(gateway->profile_id));
    return send_items(SYNCH_VLAN_GATEWAY, GATEWAY_INFORMATION, GATEWAY_PATH, {{ITEM_GATEWAY, &value, sizeof value}});
}
