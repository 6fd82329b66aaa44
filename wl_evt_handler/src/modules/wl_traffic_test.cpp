#include "wl_traffic_test.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>

#include "debug_log.h"
#include "payload.h"
#include "valtrix_socklib.h"
#include "wl_common.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"

namespace {

constexpr size_t MAC_SIZE = 6;

// Whose addresses a details event tells.
constexpr uint8_t CLIENT_DETAILS = 1;
constexpr uint8_t SERVER_DETAILS = 2;

/// The one test.
struct traffic_test_sta {
    uint8_t server_mac_addr[MAC_SIZE];
    uint32_t server_ip_addr;  // the first octet is the highest
    uint16_t server_port;
    uint8_t client_mac_addr[MAC_SIZE];
    uint32_t client_ip_addr;
    int profile_id;
    char vap_name[sizeof vre_traffic_test_evt_data::interface_name + 1];
    int32_t ap_test_pid;       // of the running script, signed and unchecked as it came; 0: none
    uint8_t test_active_flag;  // 1 while a test is armed
};

traffic_test_sta sta;

// What the handler of details and process ids does in several functions is logged under its name.
constexpr char DETAILS_HANDLER[] = "wl_handle_traffic_test_details";

// Support tools search for the texts of this file as they stand: "wl_traffic_test:Invalid PID" has no blank behind its
// colon, and "for  Invalid interface name" has two where the leave's has one.

/// A negative process id names a process group, and -1 every process there is. It is deliberately not refused: only
/// local processes can send the event that brings it.
void kill_script() {
    char command[32];
    (void)snprintf(command, sizeof command, "kill -15 %d &", sta.ap_test_pid);
    (void)std::system(command);
    sta.ap_test_pid = 0;
}

bool is_client(const uint8_t *mac) {
    return std::memcmp(mac, sta.client_mac_addr, MAC_SIZE) == 0;
}

void arm_test(const vre_traffic_test_evt_data &details) {
    std::memcpy(sta.server_mac_addr, details.vre_mac_addr, MAC_SIZE);
    sta.server_ip_addr = details.vre_ip_addr;
    sta.server_port = details.vre_port;
    sta.profile_id = details.profile_id;
    std::memcpy(sta.vap_name, details.interface_name, sizeof details.interface_name);
    sta.test_active_flag = 1;
    WL_LOG_AS(DETAILS_HANDLER, 2, "wl_traffic_test: setting active flag for profile id %d vap %s", sta.profile_id,
              sta.vap_name);
}

void take_details(const vre_traffic_test_evt_data &details) {
    WL_LOG_AS(DETAILS_HANDLER, 2,
              "wl_traffic_test: traffic_test subinfo = %d MAC = %02x:%02x:%02x:%02x:%02x:%02x Ip=0x%x Port=%d ",
              details.subinfo_code, MAC_ARGS(details.vre_mac_addr), static_cast<uint32_t>(details.vre_ip_addr),
              static_cast<uint16_t>(details.vre_port));
    if (sta.test_active_flag != 0 && sta.ap_test_pid != 0) {
        WL_LOG_AS(DETAILS_HANDLER, 2, "wl_traffic_test: Killing the Target AP script as client connecting again -> %d",
                  sta.ap_test_pid);
        kill_script();
    }
    if (details.subinfo_code == SERVER_DETAILS) {
        arm_test(details);
    } else if (details.subinfo_code == CLIENT_DETAILS) {
        std::memcpy(sta.client_mac_addr, details.vre_mac_addr, MAC_SIZE);
        sta.client_ip_addr = details.vre_ip_addr;
    }
}

/// Takes the process id of a script that has started, also while no test is armed.
void take_pid(const void *buf, int len) {
    constexpr int SIZE = sizeof(vre_traffic_test_pid);
    if (len < SIZE) {
        WL_LOG_AS(DETAILS_HANDLER, 2, "wl_traffic_test:Invalid PID data length Actual %d Expected %d", len, SIZE);
        return;
    }
    const auto script = read_payload<vre_traffic_test_pid>(buf, len);
    WL_LOG_AS(DETAILS_HANDLER, 2, "wl_traffic_test: Received PID info of Target Ap script");
    if (script.pid == 0)
        return;
    if (!is_client(script.client_mac_addr)) {
        WL_LOG_AS(DETAILS_HANDLER, 2, "wl_traffic_test: PID data for wrong mac addr %02x:%02x:%02x:%02x:%02x:%02x",
                  MAC_ARGS(script.client_mac_addr));
        return;
    }
    if (sta.ap_test_pid != 0) {
        WL_LOG_AS(DETAILS_HANDLER, 2, "wl_traffic_test: Killing the Target AP script as already script is running");
        kill_script();
    }
    sta.ap_test_pid = script.pid;
    WL_LOG_AS(DETAILS_HANDLER, 2, "wl_traffic_test: Updated PID info, Target script pid %d", sta.ap_test_pid);
}

/// Decodes an event about a client, while a test is armed.
///
/// @return whether it names both the client and its VAP
bool decode_for_test(vre_iw_cmd_t e, wl_evt_info_t *info, void *buf, int len) {
    if (sta.test_active_flag == 0)
        return false;
    wl_get_evt_info(e, info, buf, len);
    return info->cl_mac != nullptr && info->name != nullptr;
}

/// A party of the test in words.
struct endpoint {
    char mac[18];
    char ip[INET_ADDRSTRLEN];
};

endpoint endpoint_of(const uint8_t *mac_addr, uint32_t ip_addr) {
    endpoint party;
    socklib_mac_ntoa(mac_addr, MAC_SIZE, party.mac, sizeof party.mac);
    socklib_inet_ntoa(socklib_htonl(ip_addr), party.ip, sizeof party.ip);
    return party;
}

void form_start_command(char *command, size_t size) {
    const endpoint server = endpoint_of(sta.server_mac_addr, sta.server_ip_addr);
    const endpoint client = endpoint_of(sta.client_mac_addr, sta.client_ip_addr);
    (void)snprintf(command, size,
                   "/opt/ap/cl_test_target.sh %s %s "
                   "%s %s %d %d > /tmp/target_ap_log &",
                   server.ip, server.mac, client.ip, client.mac, sta.profile_id, sta.server_port);
}

}  // namespace

void wl_handle_traffic_test_details(vre_iw_cmd_t e, void *buf, int len) {
    if (buf == nullptr || len < 0)
        return;
    WL_LOG(2, "wl_traffic_test: Traffic test event of len %d", len);
    if (e == VRE_TARGET_AP_TRAFFIC_TEST_INFO)
        take_details(read_payload<vre_traffic_test_evt_data>(buf, len));
    else if (e == VRE_TARGET_AP_TRAFFIC_TEST_PID)
        take_pid(buf, len);
}

ssid_profile_info *vre_traffic_fetch_vap_info(int profile_id) {
    const auto id = static_cast<uint32_t>(profile_id);
    auto *const profile = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &id));
    if (profile == nullptr)
        WL_LOG(2, "wl_traffic_test: No matching ssid profile found");
    return profile;
}

void vre_handle_traffic_authorized_event(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    if (!decode_for_test(e, &info, buf, len) || !is_client(info.cl_mac))
        return;
    if (std::strcmp(info.name, sta.vap_name) != 0) {
        WL_LOG(2,
               "wl_traffic_test: Received authorize event for  Invalid interface name(%s %s) for client  "
               "%02x:%02x:%02x:%02x:%02x:%02x",
               info.name, sta.vap_name, MAC_ARGS(info.cl_mac));
        return;
    }
    WL_LOG(2, "wl_traffic_test: Got authorized event from client, %02x:%02x:%02x:%02x:%02x:%02x",
           MAC_ARGS(info.cl_mac));
    if (vre_traffic_fetch_vap_info(sta.profile_id) == nullptr)
        return;
    char command[256];
    form_start_command(command, sizeof command);
    WL_LOG(2, "wl_traffic_test: Start the Target AP script (%s)", command);
    (void)std::system(command);
}

void vre_handle_traffic_leave_event(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    if (!decode_for_test(e, &info, buf, len))
        return;
    WL_LOG(2, "wl_traffic_test: Received Leave event for %02x:%02x:%02x:%02x:%02x:%02x vap %s", MAC_ARGS(info.cl_mac),
           info.name);
    if (!is_client(info.cl_mac))
        return;
    if (std::strcmp(info.name, sta.vap_name) != 0) {
        WL_LOG(2,
               "wl_traffic_test: Received Leave event for Invalid interface name(%s %s) for client  "
               "%02x:%02x:%02x:%02x:%02x:%02x",
               info.name, sta.vap_name, MAC_ARGS(info.cl_mac));
        return;
    }
    WL_LOG(2, "wl_traffic_test: Got leave event from client, %02x:%02x:%02x:%02x:%02x:%02x", MAC_ARGS(info.cl_mac));
    if (sta.ap_test_pid != 0) {
        WL_LOG(2, "wl_traffic_test: Killing the Target AP script ");
        kill_script();
    }
    sta = {};
}
