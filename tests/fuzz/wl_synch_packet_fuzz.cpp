// Packets of the synch agent, one after the other, for a daemon that has profiles and clients. The input is a sequence
// of a byte with the state before the step, two bytes with a length, and as many bytes: a packet, or a new client.
#include <algorithm>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

#include "common_synch.h"
#include "payload.h"
#include "profile_files.h"
#include "synch_packets.h"
#include "wl_server.h"
#include "wl_synch.h"

namespace {

// What the first byte of a step sets.
constexpr uint8_t CONNECTED = 0x01;
constexpr uint8_t AGENT_READS = 0x02;
constexpr uint8_t INTERFACES_ARE_UP = 0x04;
constexpr uint8_t RETRY = 0x08;       // as the main loop does after the packet
constexpr uint8_t ADD_CLIENT = 0x10;  // the bytes are a client_description

/// A client as the input describes it.
struct [[gnu::packed]] client_description {
    uint8_t profile;
    uint8_t number;  // in its MAC address
    uint8_t is_active;
    uint8_t has;  // a key, a key of the cache, a login
    be_u16 identity_len;
    be_u32 expiration;
    be_i32 vlan_id;
    be_i32 limit;
    be_i32 expire;
    be_i32 blackout_expire;
    char ip_addr[16];
    char username[64];
};

constexpr uint32_t PROFILES = 4;

int agent = -1;

ssid_profile_info *profile_of(uint32_t id) {
    return static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &id));
}

/// Two of one SSID, one that takes part in nothing, one without an SSID.
void add_profiles() {
    wl_init_cl_cache_info();
    for (uint32_t id = 0; id < PROFILES; id++) {
        ssid_profile_info *const profile = create_ssid_profile_data();
        profile->profile_id = id;
        std::strcpy(profile->ssid, id == 3 ? "" : "net");
        profile->iapc_path = id == 2 ? 1 : IAPC_PATH_SYNCH_AGENT;
        profile->external_interface = strdup("eth0");
        profile->send_cl_info_req = 1;
        profile->portal_radius_acc_enabled = profile->per_user_bw_enable = id == 1;
        require(hash_table_init(&profile->cl_info_hash, CLIENT_CACHE_BUCKETS, &cl_cache_hash_fn, nullptr) != nullptr);
        require(hash_table_add(ssid_profile_list, &profile->profile_id, profile) == 0);
    }
}

dot1x_pmk_cl_data *new_key(const client_description &described) {
    dot1x_pmk_cl_data *const pmk = get_new_dot1x_pmk_cl_data();
    pmk->expiration = described.expiration;
    pmk->vlan_id = described.vlan_id;
    pmk->bw_data = {described.limit, -1};
    pmk->acct_interim_interval = described.limit;
    pmk->identity_len = described.identity_len;
    if (pmk->identity_len != 0)
        pmk->identity = static_cast<uint8_t *>(std::calloc(1, pmk->identity_len + 1));
    return pmk;
}

portal_cl_info *new_login(const client_description &described) {
    portal_cl_info *const portal = get_new_portal_cl_info();
    portal_cl_auth_info *const auth = portal->portal_cl_auth_info = get_new_portal_cl_auth_info();
    std::memcpy(auth->ip_addr, described.ip_addr, sizeof auth->ip_addr);
    std::memcpy(auth->username, described.username, sizeof auth->username);
    auth->expire = described.expire;
    auth->blackout_expire = described.blackout_expire;
    auth->bw_download_limit = described.limit;
    auth->bw_upload_limit = -1;
    return portal;
}

void add_client(const client_description &described) {
    ssid_profile_info *const profile = profile_of(described.profile % PROFILES);
    const uint8_t mac[6] = {2, 0, 0, 0, 0, described.number};
    hash_table_delete(&profile->cl_info_hash, mac);
    wl_client_info *const client = get_new_wl_client_info(mac, profile);
    client->is_active = described.is_active;
    client->hapd_cl_info = get_new_hapd_cl_info();
    if ((described.has & 1) != 0)
        client->hapd_cl_info->pmk_fullauth = new_key(described);
    if ((described.has & 2) != 0)
        client->hapd_cl_info->pmk_okc = new_key(described);
    if ((described.has & 4) != 0)
        client->portal_cl_info = new_login(described);
    require(hash_table_add(&profile->cl_info_hash, client->mac_addr, client) == 0);
    send_cl_portal_login_packet(profile, client);
}

void set_state(uint8_t state) {
    interfaces_are_up = (state & INTERFACES_ARE_UP) != 0;
    if ((state & CONNECTED) == 0) {
        break_synch_connection();
    } else if (g_synch_sock < 0) {
        close(agent);
        int ends[2];
        require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0);
        g_synch_sock = ends[0];
        agent = ends[1];
        check_and_register_ssids(1);
    }
}

void read_packets() {
    uint8_t packet[8192];
    for (ssize_t size; (size = recv(agent, packet, sizeof packet, MSG_DONTWAIT)) > 0;)
        check_sent({packet, static_cast<size_t>(size)});
}

/// Profiles that are to be registered again are counted, and none is registered without a connection.
void check_profiles() {
    int refused = 0;
    for (uint32_t id = 0; id < PROFILES; id++) {
        refused += profile_of(id)->nack;
        require(profile_of(id)->iapc_path == IAPC_PATH_SYNCH_AGENT || profile_of(id)->synch_registered == 0);
    }
    require(refused == g_synch_nack_count);
}

void step(uint8_t state, uint8_t *bytes, size_t length) {
    set_state(state);
    if ((state & ADD_CLIENT) != 0)
        add_client(read_payload<client_description>(bytes, static_cast<int64_t>(length)));
    else
        (void)handle_synch_packet(bytes, static_cast<int>(length));
    if ((state & RETRY) != 0 && g_synch_nack_count != 0)
        check_and_register_ssids(0);
    if ((state & AGENT_READS) != 0)
        read_packets();
    check_profiles();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    g_synch_nack_count = 0;
    add_profiles();
    const uint8_t *const end = data + size;
    while (end - data >= 3) {
        const uint8_t state = data[0];
        const size_t stated = data[1] * size_t{256} + data[2];
        data += 3;
        const size_t length = std::min(stated, static_cast<size_t>(end - data));
        const std::unique_ptr<uint8_t[]> bytes(new uint8_t[length]);
        std::copy_n(data, length, bytes.get());
        step(state, bytes.get(), length);
        data += length;
    }
    read_packets();
    break_synch_connection();
    close(agent);
    agent = -1;
    hash_table_destroy(ssid_profile_list);
    std::free(ssid_profile_list);
    return 0;
}
