// Events that make the daemon run commands for single clients, one after the other: disconnects and the traffic test's.
// The input is a sequence of a byte that chooses the event, a byte with the event's length and the event. Linked with
// --wrap=system: a command has its documented form and nothing else in it that a shell could understand, and only those
// process ids are killed that an event has told, each once.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>
#include <string>

#include "event_payload.h"
#include "vap_table.h"
#include "wl_disconnect.h"
#include "wl_log.h"
#include "wl_ssid_profile.h"
#include "wl_traffic_test.h"

namespace {

struct {
    vre_iw_cmd_t event;
    void (*handler)(vre_iw_cmd_t e, void *buf, int len);
} const events[] = {
    {VRE_TARGET_AP_TRAFFIC_TEST_INFO, wl_handle_traffic_test_details},
    {VRE_TARGET_AP_TRAFFIC_TEST_PID, wl_handle_traffic_test_details},
    {VRE_NODE_AUTHORIZE, vre_handle_traffic_authorized_event},
    {VRE_NODE_LEAVE, vre_handle_traffic_leave_event},
    {VRE_CLIENT_DISCONNECT, handle_vre_disconnect_event},
    {VRE_TARGET_AP_TRAFFIC_TEST, wl_handle_traffic_test_details},
};

std::multiset<int> told_pids;
int commands_run;

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

/// Whether a command consists of exactly what was read out of it.
template <class... Parts> bool is_made_of(const char *command, const char *format, Parts... parts) {
    char again[256];
    const int length = std::snprintf(again, sizeof again, format, parts...);
    return length > 0 && static_cast<size_t>(length) < sizeof again && std::strcmp(command, again) == 0;
}

bool is_open_vap(const char *name) {
    return std::any_of(vap_array, vap_array + vap_count, [name](const vap_info &vap) {
        return std::strcmp(vap.name, name) == 0 && vap.secured_vap == 0;
    });
}

bool is_mac(const char *text) {
    unsigned bytes[6];
    return std::sscanf(text, "%2X:%2X:%2X:%2X:%2X:%2X", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                       &bytes[5]) == 6 &&
           is_made_of(text, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
                      bytes[5]);
}

bool is_ip(const char *text) {
    unsigned octets[4];
    return std::sscanf(text, "%3u.%3u.%3u.%3u", &octets[0], &octets[1], &octets[2], &octets[3]) == 4 &&
           std::all_of(octets, octets + 4, [](unsigned octet) { return octet < 256; }) &&
           is_made_of(text, "%u.%u.%u.%u", octets[0], octets[1], octets[2], octets[3]);
}

bool is_kick(const char *command) {
    char vap[16];
    char mac[18];
    return std::sscanf(command, "iwpriv %15s kickmac %17s", vap, mac) == 2 &&
           is_made_of(command, "iwpriv %s kickmac %s &", vap, mac) && is_open_vap(vap) && is_mac(mac);
}

bool is_start(const char *command) {
    char server_ip[16], client_ip[16];
    char server_mac[18], client_mac[18];
    unsigned profile, port;
    return std::sscanf(command, "/opt/ap/cl_test_target.sh %15s %17s %15s %17s %5u %5u", server_ip, server_mac,
                       client_ip, client_mac, &profile, &port) == 6 &&
           is_made_of(command, "/opt/ap/cl_test_target.sh %s %s %s %s %u %u > /tmp/target_ap_log &", server_ip,
                      server_mac, client_ip, client_mac, profile, port) &&
           is_ip(server_ip) && is_ip(client_ip) && is_mac(server_mac) && is_mac(client_mac) && port <= 65535 &&
           (profile == 7 || profile == 65535);
}

bool is_kill(const char *command) {
    int pid;
    if (std::sscanf(command, "kill -15 %d", &pid) != 1 || !is_made_of(command, "kill -15 %d &", pid))
        return false;
    const auto told = told_pids.find(pid);
    if (told == told_pids.end())
        return false;
    told_pids.erase(told);
    return true;
}

vap_info vap_of(const char *name, const char *ssid, uint8_t secured) {
    vap_info vap{};
    std::memcpy(vap.name, name, std::strlen(name));
    std::memcpy(vap.ssid, ssid, std::strlen(ssid));
    vap.secured_vap = secured;
    return vap;
}

void add_profile(uint32_t id) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    profile->profile_id = id;
    require(hash_table_add(ssid_profile_list, &profile->profile_id, profile) == 0);
}

/// Log lines are formatted and dropped.
void set_up() {
    g_logfile_fd = std::fopen("/dev/null", "w");
    g_max_logfile_size = INT_MAX;
    debug = 7;
    ssid_profile_list = hash_table_init(nullptr, SSID_PROFILE_BUCKETS, &ssid_cache_hash_fn, nullptr);
    add_profile(7);
    add_profile(65535);
    vap_array[vap_count++] = vap_of("ath0", "Lobby", 0);
    vap_array[vap_count++] = vap_of("ath1", "Lobby", 1);
    vap_array[vap_count++] = vap_of("a12345678901234", "12345678901234567890123456789012", 0);
}

void deliver(unsigned choice, const byte_string &payload) {
    const auto &[event, handler] = events[choice % std::size(events)];
    if (event == VRE_TARGET_AP_TRAFFIC_TEST_PID && payload.size() >= 10)
        told_pids.insert(static_cast<int>(uint32_t{payload[6]} << 24 | uint32_t{payload[7]} << 16 |
                                          uint32_t{payload[8]} << 8 | payload[9]));
    received_payload received(payload);
    handler(event, received.data(), received.length());
}

/// Ends whatever test there is. Afterwards the client's leave says nothing any more.
void end_test() {
    const byte_string nobody(6);
    byte_string details = {1};
    details.resize(31);
    details[2] = 7;  // a profile that is there: a test that is still armed would start
    deliver(0, details);
    details[0] = 2;
    deliver(0, details);
    const byte_string leave = event_payload().header(nobody, 0).text(3, "").bytes();
    deliver(3, leave);
    commands_run = 0;
    deliver(2, leave);
    deliver(3, leave);
    require(commands_run == 0);
}

}  // namespace

extern "C" int __wrap_system(const char *command) {
    commands_run++;
    require(is_kick(command) || is_start(command) || is_kill(command));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_logfile_fd == nullptr)
        set_up();
    const uint8_t *const end = data + size;
    while (end - data >= 2) {
        const unsigned choice = *data++;
        const size_t stated = *data++;
        const size_t length = std::min(stated, static_cast<size_t>(end - data));
        deliver(choice, byte_string(data, data + length));
        data += length;
    }
    end_test();
    told_pids.clear();
    return 0;
}
