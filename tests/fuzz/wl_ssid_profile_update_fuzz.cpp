// Profile events one after the other. The input is a sequence of a byte with the state before the event, a byte with
// the event's length and the event.
#include <algorithm>
#include <memory>

#include "profile_files.h"
#include "wl_server.h"

namespace {

// What the first byte of an event sets.
constexpr uint8_t CONNECTED = 0x01;
constexpr uint8_t REFUSED = 0x02;
constexpr uint8_t CLIENTS_HAVE_ROLES = 0x04;
constexpr uint8_t INTERFACES_ARE_UP = 0x08;

template <class Action> void for_each_profile(Action action) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0)
        action(static_cast<ssid_profile_info *>(profiles.entry->value));
}

/// The one client of a profile, made when it is missing; null for a role profile.
wl_client_info *client_of(ssid_profile_info *profile) {
    static const uint8_t MAC[6] = {};
    if (profile->cl_info_hash.table_size == 0)
        return nullptr;
    if (void *const client = hash_table_lookup(&profile->cl_info_hash, MAC))
        return static_cast<wl_client_info *>(client);
    auto *const client = static_cast<wl_client_info *>(std::calloc(1, sizeof(wl_client_info)));
    require(hash_table_add(&profile->cl_info_hash, client->mac_addr, client) == 0);
    return client;
}

void give_clients_a_role() {
    ssid_profile_info *role = nullptr;
    for_each_profile([&role](ssid_profile_info *profile) {
        if (profile->flags.is_role_profile != 0)
            role = profile;
    });
    for_each_profile([role](ssid_profile_info *profile) {
        if (wl_client_info *const client = client_of(profile))
            client->role_ssid = role;
    });
}

void set_state(uint8_t state) {
    g_synch_sock = (state & CONNECTED) != 0 ? FD_SETSIZE - 1 : -1;  // no descriptor has this number
    interfaces_are_up = (state & INTERFACES_ARE_UP) != 0;
    g_synch_nack_count = 0;
    for_each_profile([state](ssid_profile_info *profile) {
        profile->synch_registered = (state & CONNECTED) != 0;
        profile->nack = (state & REFUSED) != 0;
        g_synch_nack_count = static_cast<uint8_t>(g_synch_nack_count + profile->nack);
    });
    if ((state & CLIENTS_HAVE_ROLES) != 0)
        give_clients_a_role();
}

/// The role of every client is a profile that is still there.
void check_roles() {
    for_each_profile([](ssid_profile_info *profile) {
        const wl_client_info *const client = client_of(profile);
        if (client == nullptr || client->role_ssid == nullptr)
            return;
        bool listed = false;
        for_each_profile([&](const ssid_profile_info *other) { listed |= other == client->role_ssid; });
        require(listed);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    wl_init_cl_cache_info();
    const uint8_t *const end = data + size;
    while (end - data >= 2) {
        set_state(*data++);
        const size_t stated = *data++;
        const size_t length = std::min(stated, static_cast<size_t>(end - data));
        const std::unique_ptr<uint8_t[]> event(new uint8_t[length]);
        std::copy_n(data, length, event.get());
        handle_wl_ssid_profile_update(VRE_WL_SSID_PROFILE_UPDATE, event.get(), static_cast<int>(length));
        data += length;
    }
    check_roles();
    check_and_drop_profiles();
    return 0;
}
