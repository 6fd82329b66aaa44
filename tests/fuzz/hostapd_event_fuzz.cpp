// What the authenticator says of clients, one event after the other: roles set and cleared, organisational units,
// VLANs. The input is the files of an SSID that is loaded, of a role and of an SSID that is not loaded, each two bytes
// of length and its bytes, and then a sequence of actions: a byte that says which, and what that one needs. The device
// of the traffic module is there; whether it, the driver and the bus refuse is an action too.
#include "hostapd_event.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>

#include "event_payload.h"
#include "fuzz_input.h"
#include "wl_cl_info.h"
#include "wl_client_role_internal.h"
#include "wl_dynamic_vlan.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"
#include "wl_vap_helpers.h"

namespace {

constexpr uint32_t SSID = 1;
constexpr uint32_t OTHER_SSID = 2;
constexpr uint32_t ROLE = 4;
constexpr uint32_t PROFILES[] = {SSID, ROLE, OTHER_SSID, 3, 0};  // the last two have no files
constexpr unsigned long DEVICE_REQUEST = 0x40046401;
constexpr int MOST_ACTIONS = 40;  // of an input: a thousand times loading a profile takes long and shows nothing more

enum action : uint8_t {
    RAW_EVENT,
    EVENT,
    ROLE_EVENT,
    LOAD,
    DELETE,
    ANSWERS,
    ACTIONS,
};

/// A file of a profile: `beginning`, which makes a profile of it, and bytes of the input. One without bytes is missing.
struct profile_file {
    const char *path, *beginning;
    std::string text;
};

profile_file files[] = {
    {"/tmp/profile1/profile.conf",
     "SSID_PROFILE_ID=1\nWL_PROFILE_SSID=net\nVAP_LIST=ath0,ath1\nExternalDevice=br0\nROLE_PROFILE_ENABLED=1\n", ""},
    {"/tmp/profile1/wl.conf", "", ""},
    {"/tmp/profile1/role_derivation.conf", "", ""},
    {"/tmp/profile4/profile.conf",
     "SSID_PROFILE_ID=4\nROLE_VALUE=staff\nVAP_LIST=ath0\nExternalDevice=br0\nIS_ROLE_PROFILE=1\n", ""},
    {"/tmp/profile4/wl.conf", "", ""},
    {"/tmp/profile2/profile.conf", "", ""},
};

/// What the surroundings answer.
struct answers {
    bool client_is_unknown, device_refuses, vlan_is_refused, bus_is_full;
};
answers now;

int device = -1;

bool is_loaded(const ssid_profile_info *profile) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        if (profiles.entry->value == profile)
            return true;
    }
    return false;
}

uint32_t number_at(const uint8_t *bytes) {
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

/// The items of an event fill it, and an SSID among them ends.
void check_items(const uint8_t *payload, size_t length) {
    size_t at = 10;
    while (at < length) {
        require(length - at >= 8);
        const uint32_t tag = number_at(payload + at);
        const uint32_t size = number_at(payload + at + 4);
        at += 8;
        require(size <= length - at);
        require(tag != 1 || (size <= 33 && payload[at + size - 1] == 0));
        at += size;
    }
    require(at == length);
}

void check_role_text(const vre_cl_role &event) {
    require(strnlen(event.macaddr, sizeof event.macaddr) == 17);
    require(std::memchr(event.role, 0, 33) != nullptr);
    require(std::all_of(event.role + 33, event.role + sizeof event.role, [](char left) { return left == 0; }));
}

}  // namespace

extern "C" FILE *__real_fopen(const char *path, const char *mode);

extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    for (profile_file &file : files) {
        if (file.text.empty() || std::strcmp(path, file.path) != 0)
            continue;
        require(std::strcmp(mode, "re") == 0);
        return fmemopen(file.text.data(), file.text.size(), "r");
    }
    return __real_fopen(path, mode);
}

extern "C" int __real_open(const char *path, int flags, mode_t mode);

extern "C" int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (std::strcmp(path, "/dev/app_visibility") != 0)
        return __real_open(path, flags, mode);
    device = __real_open("/dev/null", flags, mode);
    return device;
}

extern "C" int __real_ioctl(int fd, unsigned long number, void *data);

extern "C" int __wrap_ioctl(int fd, unsigned long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    void *const data = va_arg(arguments, void *);
    va_end(arguments);
    if (number != DEVICE_REQUEST)
        return __real_ioctl(fd, number, data);
    require(fd == device && fcntl(fd, F_GETFD) == FD_CLOEXEC);
    client_role_ioctl_data request;
    std::memcpy(&request, data, sizeof request);
    require(request.action >= ADD_CLIENT_ROLE && request.action <= CLEAR_ROLE_INFO);
    require(request.role_client.client_role[32] == '\0');
    return now.device_refuses ? -1 : 0;
}

extern "C" int __wrap_get_wl_client_radio(const uint8_t *mac) {
    require(mac != nullptr);
    return now.client_is_unknown ? -1 : 0;
}

extern "C" int __wrap__Z18do_wlan_priv_ioctlPKcPviS0_(const char *command, void *data, int flags, const char *ifname) {
    require(std::strcmp(command, "set_user_vlan") == 0 && flags == 0 && std::strlen(ifname) < 16);
    const auto *const rest = static_cast<const uint8_t *>(data) + 8;
    require(std::all_of(rest, rest + 8, [](uint8_t byte) { return byte == 0; }));
    return now.vlan_is_refused ? -1 : 0;
}

extern "C" void __wrap__Z14__bw_set_limitP12bw_rule_info(const bw_rule_info *rule) {
    require(std::memchr(rule->interface, 0, sizeof rule->interface) != nullptr);
    require(rule->e == VRE_BW_SET && rule->state_transition == 1 && rule->to_state == 1 && rule->pri <= 1);
}

/// The kernel is not asked for interfaces, which takes it milliseconds.
extern "C" int __wrap__Z11is_iface_upPKc(const char *) {
    return -1;
}

extern "C" int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    require(length >= 10 && length < 2048);
    const auto *const begin = static_cast<const uint8_t *>(payload);
    const byte_string bytes(begin, begin + length);
    if (event == VRE_CL_ROLE) {
        vre_cl_role role;
        require(bytes.size() == sizeof role);
        std::memcpy(&role, bytes.data(), sizeof role);
        check_role_text(role);
    } else {
        require(event == VRE_HOSTAPD_EVENT || event == VRE_CLIENT_DISCONNECT);
        check_items(bytes.data(), bytes.size());
    }
    return now.bus_is_full ? -1 : 1;
}

namespace {

/// Whether the SSID carries a VLAN: its own and those it lists, of which 16 bits count.
bool carries(const ssid_profile_info *profile, uint32_t vlan) {
    if (vlan == profile->ap_vlan)
        return true;
    for (const list_t *at = profile->extra_vlan_list; at != nullptr; at = at->next) {
        if (static_cast<uint16_t>(*static_cast<const int32_t *>(at->value)) == static_cast<uint16_t>(vlan))
            return true;
    }
    return false;
}

/// A client refers to what is there, and has no VLAN that its SSID does not carry.
void check_client(const ssid_profile_info *profile, const wl_client_info *client) {
    require(client->ssid == profile);
    require(client->role_ssid == nullptr || is_loaded(client->role_ssid));
    require(client->role_info.client_role[32] == '\0');
    require(client->google_ou == nullptr || std::strlen(client->google_ou) <= UINT16_MAX);
    require(client->vlan_info.priority <= CLIENT_PER_USER_VLAN);
    require(client->vlan_info.priority == 0 || carries(profile, client->vlan_info.vlan_id));
}

void check() {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        const auto *const profile = static_cast<const ssid_profile_info *>(profiles.entry->value);
        require(std::memchr(profile->ssid, 0, sizeof profile->ssid) != nullptr);
        require(profile->flags.is_role_profile == 0 || profile->cl_info_hash.entry_count == 0);
        hash_table_iter_t clients;
        hash_table_iter_init(&profile->cl_info_hash, &clients);
        while (hash_table_iter_next(&clients) != 0)
            check_client(profile, static_cast<const wl_client_info *>(clients.entry->value));
    }
}

void receive(const byte_string &payload) {
    received_payload received(payload);
    handle_vre_hostapd_event(VRE_HOSTAPD_EVENT, received.data(), received.length());
}

/// An event with the client, the profile and the items of a byte. The last of the four clients has no address.
void receive(uint8_t what, uint8_t subinfo_code, const byte_string &value) {
    const uint8_t client = what & 3;
    const byte_string mac = client == 3 ? byte_string(6) : byte_string{2, 0, 0, 0, 0, client};
    event_payload event = event_payload().header(mac, PROFILES[(what >> 2 & 7) % std::size(PROFILES)]);
    if ((what & 0x20) != 0)
        event.text(1, "net");
    if ((what & 0x40) != 0)
        event.item(2, {2, 0, 0, 0, 1, 0});
    if ((what & 0x80) != 0)
        event.text(3, "ath0");
    receive(event.u32(5, 104).u16(6, subinfo_code).item(7, value).bytes());
}

/// A role as the authenticator has it, which may say a name or an id.
byte_string role_value(input_reader &input) {
    const uint8_t method = input.byte();
    const uint8_t vendor = input.byte();
    const uint8_t attribute = input.byte();
    const uint8_t id = input.byte();
    byte_string name = input.short_block();
    name.resize(33);
    return event_payload()
        .bytes(name)
        .bytes(big_endian_bytes(vendor, 4))
        .bytes(big_endian_bytes(attribute, 4))
        .bytes({method})
        .bytes(big_endian_bytes(id, 4))
        .bytes();
}

uint32_t profile_of(uint8_t byte) {
    return PROFILES[byte % 3];
}

void act(input_reader &input) {
    switch (input.byte() % ACTIONS) {
    case RAW_EVENT:
        return receive(input.short_block());
    case EVENT: {
        const uint8_t what = input.byte();
        const uint8_t code = input.byte();
        return receive(what, code, input.file());
    }
    case ROLE_EVENT: {
        const uint8_t what = input.byte();
        return receive(what, 42, role_value(input));
    }
    case LOAD:
        return init_ssid_config(profile_of(input.byte()));
    case DELETE:
        (void)destroy_ssid_profile_data(static_cast<int>(profile_of(input.byte())), nullptr);
        return;
    default: {
        const uint8_t bits = input.byte();
        now = {(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0, (bits & 8) != 0};
    }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    now = {};
    device = -1;
    input_reader input(data, size);
    for (profile_file &file : files) {
        const byte_string bytes = input.file();
        file.text = file.beginning;
        file.text.append(bytes.begin(), bytes.end());
    }
    wl_init_cl_cache_info();
    init_ssid_config(SSID);
    init_ssid_config(ROLE);
    check();
    for (int acted = 0; acted < MOST_ACTIONS && !input.done(); acted++) {
        act(input);
        check();
    }
    hash_table_destroy(ssid_profile_list);
    std::free(ssid_profile_list);
    require(device < 0 || fcntl(device, F_GETFD) < 0);  // closed
    return 0;
}
