// The events of the client cache one after the other, and dumps between them. The input is a sequence of actions: a
// byte that says which, and what that one needs. Raw payloads are a byte with their length and their bytes; composed
// ones are made of a byte with the client, the profile and the VAP.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <span>

#include "event_payload.h"
#include "wl_cl_info.h"
#include "wl_log.h"
#include "wl_ssid_profile.h"

extern "C" FILE *__real_fopen(const char *path, const char *mode);

/// Dumps, which are opened close-on-exec, are formatted and dropped; a file without a name cannot be opened. The
/// fuzzer's own files are what they are.
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    if (std::strcmp(mode, "we") != 0)
        return __real_fopen(path, mode);
    return path[0] == '\0' ? nullptr : __real_fopen("/dev/null", mode);
}

extern "C" int __real_open(const char *path, int flags, mode_t mode);

/// The device of the traffic module, for which the product waits, is there and refuses every request.
extern "C" int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return __real_open(std::strcmp(path, "/dev/app_visibility") == 0 ? "/dev/null" : path, flags, mode);
}

namespace {

using handler = void (*)(vre_iw_cmd_t, void *, int);

enum action : uint8_t {
    RAW_CL_INFO,
    RAW_AUTHORIZE,
    RAW_LEAVE,
    DUMP,
    CL_INFO,
    AUTHORIZE,
    LEAVE,
    DELETE_PROFILE,
    ACTIONS,
};

/// Profiles of every kind; the last two are of one SSID.
struct kind {
    uint32_t id;
    const char *ssid;
    bool dot1x, portal, is_role, uses_roles;
};
constexpr kind KINDS[] = {
    {1, "keys", true, false, false, false}, {2, "portal", false, true, false, false},
    {3, "open", false, false, false, true}, {4, "staff", true, false, true, false},
    {5, "staff", true, true, false, true},  {48, "staff", true, true, false, false},
};
constexpr const char *VAPS[] = {"ath0", "ath1", "ath2", "other"};  // a profile has the first two

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

void add_profile(const kind &of) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    profile->profile_id = of.id;
    std::strcpy(profile->ssid, of.ssid);
    profile->is_1x_configured = of.dot1x;
    profile->is_portal_configured = of.portal;
    profile->flags.is_role_profile = of.is_role;
    profile->flags.role_profile_enabled = of.uses_roles;
    profile->external_interface = strdup("br0");
    for (const char *const vap : {VAPS[0], VAPS[1]}) {
        char name[16];
        std::strcpy(name, vap);
        create_and_add_vap(&profile->vap_data_list, name, &profile->num_vaps);
    }
    require(check_needed_ssid_config_present(profile) == 0);
    require(hash_table_add(ssid_profile_list, &profile->profile_id, profile) == 0);
}

void check_pmk(const dot1x_pmk_cl_data *pmk) {
    if (pmk == nullptr)
        return;
    require(pmk->pmk_len <= PMK_LEN);
    require((pmk->identity == nullptr) == (pmk->identity_len == 0));
    require(pmk->identity == nullptr || pmk->identity[pmk->identity_len] == '\0');
}

/// A client is there for a key, a login or being active, and points into its own profile only.
void check_client(const ssid_profile_info *profile, const wl_client_info *client) {
    const hapd_cl_info *const hapd = client->hapd_cl_info;
    const portal_cl_info *const portal = client->portal_cl_info;
    require(client->ssid == profile);
    require((hapd != nullptr && (hapd->pmk_fullauth != nullptr || hapd->pmk_okc != nullptr)) ||
            (portal != nullptr && portal->portal_cl_auth_info != nullptr) || client->is_active == 1);
    if (hapd != nullptr) {
        check_pmk(hapd->pmk_fullauth);
        check_pmk(hapd->pmk_okc);
    }
    require(client->connected_vap == nullptr ||
            get_vap_from_list_by_name(profile->vap_data_list, client->connected_vap->name) == client->connected_vap);
}

template <class Action> void for_each_client(Action action) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        const auto *const profile = static_cast<const ssid_profile_info *>(profiles.entry->value);
        require(profile->flags.is_role_profile == 0 || profile->cl_info_hash.entry_count == 0);
        hash_table_iter_t clients;
        hash_table_iter_init(&profile->cl_info_hash, &clients);
        while (hash_table_iter_next(&clients) != 0)
            action(profile, static_cast<const wl_client_info *>(clients.entry->value));
    }
}

using logins = std::map<const wl_client_info *, portal_cl_auth_info *>;

logins logins_now() {
    logins now;
    for_each_client([&now](const ssid_profile_info *, const wl_client_info *client) {
        if (client->portal_cl_info != nullptr && client->portal_cl_info->portal_cl_auth_info != nullptr)
            now[client] = client->portal_cl_info->portal_cl_auth_info;
    });
    return now;
}

/// Frees the logins that were replaced, which the cache deliberately does not: any other leak is seen then.
void free_replaced(const logins &before) {
    const logins now = logins_now();
    for (const auto &[client, login] : before) {
        const auto found = now.find(client);
        if (found != now.end() && found->second != login)
            std::free(login);
    }
}

/// Takes the input apart; beyond its end there are zeros.
class reader {
public:
    explicit reader(std::span<const uint8_t> input) : rest_(input) {}

    bool done() const {
        return rest_.empty();
    }

    uint8_t byte() {
        if (done())
            return 0;
        const uint8_t value = rest_[0];
        rest_ = rest_.subspan(1);
        return value;
    }

    byte_string block() {
        const size_t length = std::min<size_t>(byte(), rest_.size());
        const byte_string bytes(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(length));
        rest_ = rest_.subspan(length);
        return bytes;
    }

private:
    std::span<const uint8_t> rest_;
};

void receive(handler handle, vre_iw_cmd_t e, const byte_string &payload) {
    received_payload received(payload);
    handle(e, received.data(), received.length());
}

const kind &kind_of(uint8_t where) {
    return KINDS[(where >> 2 & 7) % std::size(KINDS)];
}

event_payload header(uint8_t where) {
    return event_payload().header({2, 0, 0, 0, 0, static_cast<uint8_t>(where & 3)}, kind_of(where).id);
}

byte_string whereabouts(uint8_t where) {
    return header(where).text(1, kind_of(where).ssid).item(2, {2, 0, 0, 0, 1, 0}).text(3, VAPS[where >> 5 & 3]).bytes();
}

/// An event with the codes of a byte: the low two bits count from info code 100 on.
byte_string client_information(reader &input) {
    const uint8_t where = input.byte();
    const uint8_t codes = input.byte();
    return header(where).u32(5, 100 + (codes & 3)).u16(6, codes >> 2).item(7, input.block()).bytes();
}

void dump(const byte_string &request) {
    // No zeros follow: the handler is given what it says, of at least the record's length.
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[request.size()]);
    std::copy(request.begin(), request.end(), exact.get());
    handle_wl_client_info_dump_req(VRE_WL_CLIENT_INFO_DUMP, exact.get(), static_cast<int>(request.size()));
}

void act(reader &input) {
    switch (input.byte() % ACTIONS) {
    case RAW_CL_INFO:
        return receive(handle_client_info, VRE_CL_INFO, input.block());
    case RAW_AUTHORIZE:
        return receive(vre_cl_authorized_updates, VRE_NODE_AUTHORIZE, input.block());
    case RAW_LEAVE:
        return receive(vre_cl_leave_updates, VRE_NODE_LEAVE, input.block());
    case DUMP:
        return dump(input.block());
    case CL_INFO:
        return receive(handle_client_info, VRE_CL_INFO, client_information(input));
    case AUTHORIZE:
        return receive(vre_cl_authorized_updates, VRE_NODE_AUTHORIZE, whereabouts(input.byte()));
    case LEAVE:
        return receive(vre_cl_leave_updates, VRE_NODE_LEAVE, whereabouts(input.byte()));
    default:
        (void)destroy_ssid_profile_data(static_cast<int>(kind_of(input.byte()).id), nullptr);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_logfile_fd == nullptr) {
        g_logfile_fd = std::fopen("/dev/null", "w");
        g_max_logfile_size = INT32_MAX;
        debug = 7;
    }
    wl_init_cl_cache_info();
    for (const kind &of : KINDS)
        add_profile(of);
    reader input({data, size});
    while (!input.done()) {
        const logins before = logins_now();
        act(input);
        free_replaced(before);
        for_each_client(check_client);
    }
    hash_table_destroy(ssid_profile_list);
    std::free(ssid_profile_list);
    return 0;
}
