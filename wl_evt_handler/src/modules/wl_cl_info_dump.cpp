#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include "debug_log.h"
#include "payload.h"
#include "wl_cl_info_internal.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"

namespace {

constexpr uint8_t DUMP_ROLES = 1;  // of vre_client_info_dump_req_evt::evt_flags

/// Ends a line with a text: up to its NUL or `size` characters.
void dump_text(FILE *out, const void *text, size_t size) {
    for (const uint8_t letter : std::span(static_cast<const uint8_t *>(text), size)) {
        if (letter == '\0')
            break;
        std::fputc(letter >= ' ' && letter <= '~' ? letter : '?', out);
    }
    std::fputc('\n', out);
}

void dump_bw_data(FILE *out, const bw_data_t &bw) {
    std::fprintf(out, "  Download limit : %d\n", bw.bw_download_limit);
    std::fprintf(out, "  Upload limit : %d\n", bw.bw_upload_limit);
}

void dump_clients(FILE *out, const ssid_profile_info *profile, void (*dump)(FILE *, const wl_client_info *)) {
    hash_table_iter_t clients;
    hash_table_iter_init(&profile->cl_info_hash, &clients);
    while (hash_table_iter_next(&clients) != 0)
        dump(out, static_cast<const wl_client_info *>(clients.entry->value));
}

void dump_client_of_profile(FILE *out, const ssid_profile_info *profile, const uint8_t mac[6]) {
    const wl_client_info *const client =
        profile->flags.is_role_profile == 0 ? find_cached_client(profile, mac) : nullptr;
    if (client == nullptr)
        return;
    std::fputs("Client info found for following SSID Profile\n", out);
    dump_ssid_profile_info(out, profile);
    std::fputs("Client Info : \n", out);
    dump_client_info(out, client);
}

/// A stream on standard output that can be closed without closing standard output: its descriptor would go to the next
/// socket or file, and what a shell command prints would end up there.
FILE *open_standard_output() {
    const int fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    FILE *const out = fd < 0 ? nullptr : fdopen(fd, "w");
    if (out == nullptr && fd >= 0)
        close(fd);
    return out;
}

FILE *open_dump(const char *function, const vre_client_info_dump_req_evt &request) {
    char path[sizeof request.filename + 1] = {};
    std::copy_n(request.filename, sizeof request.filename, path);
    FILE *const out = std::fopen(path, "we");
    if (out != nullptr)
        return out;
    WL_LOG_AS(function, 3, "Could not open file for dumping client info. Dumping to default stdout.");
    return open_standard_output();
}

}  // namespace

void handle_wl_client_info_dump_req(vre_iw_cmd_t, void *buf, int len) {
    if (len < static_cast<int>(sizeof(vre_client_info_dump_req_evt))) {
        WL_LOG(3, "Insufficient data len [%d] received for event[%d]", len, VRE_WL_CLIENT_INFO_DUMP);
        return;
    }
    handle_client_info_dump_req(buf);
}

int handle_client_info_dump_req(const void *request) {
    if (request == nullptr) {
        WL_LOG(3, "Received evt info null for eevent[%d]", VRE_WL_CLIENT_INFO_DUMP);
        return -1;
    }
    const auto event = read_payload<vre_client_info_dump_req_evt>(request, sizeof(vre_client_info_dump_req_evt));
    FILE *const out = open_dump(__func__, event);
    if (out == nullptr)
        return -1;
    if (event.evt_flags == DUMP_ROLES)
        dump_client_role_info_for_all_ssid(out);
    else
        dump_client_for_all_ssid(out, event.mac);
    std::fclose(out);
    return 0;
}

void dump_client_role_info_for_all_ssid(FILE *out) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        const auto *const profile = static_cast<const ssid_profile_info *>(profiles.entry->value);
        dump_clients(out, profile, dump_cl_role_info_brief);
    }
}

void dump_client_for_all_ssid(FILE *out, const uint8_t mac[6]) {
    const bool everything = std::all_of(mac, mac + 6, [](uint8_t byte) { return byte == 0xFF; });
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        const auto *const profile = static_cast<const ssid_profile_info *>(profiles.entry->value);
        if (!everything) {
            dump_client_of_profile(out, profile, mac);
            continue;
        }
        dump_ssid_profile_info(out, profile);
        dump_clients(out, profile, dump_client_info);
    }
}

void dump_ssid_profile_info(FILE *out, const ssid_profile_info *profile) {
    std::fprintf(out, "\n=========== SSID Profile : [%d]\n", static_cast<int>(profile->profile_id));
    std::fprintf(out, "SSID : %s\n", profile->ssid);
    std::fprintf(out, "Role profile : %d\n", profile->flags.is_role_profile);
    std::fprintf(out, "Role profiles enabled : %d\n", profile->flags.role_profile_enabled);
    std::fprintf(out, "802.1X configured : %d\n", profile->is_1x_configured);
    std::fprintf(out, "Portal configured : %d\n", profile->is_portal_configured);
    std::fprintf(out, "Vlan : %u\n", profile->ap_vlan);
    std::fprintf(out, "External interface : %s\n", text_or_null(profile->external_interface));
    std::fprintf(out, "Inter AP path : %d\n", profile->iapc_path);
    std::fprintf(out, "Registered with synch agent : %d\n", profile->synch_registered);
    std::fprintf(out, "Refused by synch agent : %d\n", profile->nack);
    dump_vaps(out, profile);
    std::fprintf(out, "Number of clients : %zu\n", profile->cl_info_hash.entry_count);
}

void dump_vaps(FILE *out, const ssid_profile_info *profile) {
    std::fprintf(out, "Number of VAPs : %d\n", profile->num_vaps);
    for (const list_t *node = profile->vap_data_list; node != nullptr; node = node->next)
        std::fprintf(out, "  VAP : %s\n", static_cast<const vapinfo *>(node->value)->name);
}

void dump_client_info(FILE *out, const wl_client_info *client) {
    std::fprintf(out, "\n----------- Client MAC : [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]\n", MAC_ARGS(client->mac_addr));
    std::fprintf(out, "Is Active on this SSID : %d\n", client->is_active);
    std::fprintf(out, "Connected to VAP : %s\n",
                 text_or_null(client->connected_vap != nullptr ? client->connected_vap->name : nullptr));
    dump_cl_hapd_info(out, client->hapd_cl_info);
    dump_cl_portal_info(out, client->portal_cl_info);
    dump_cl_role_info(out, client);
    std::fprintf(out, "Vlan applied to the client: [%d] \n", static_cast<int>(client->vlan_info.vlan_id));
    std::fprintf(out, "Vlan received : %u\n", client->vlan_info.recv_vlan_id);
    std::fprintf(out, "Vlan priority : %d\n", client->vlan_info.priority);
    std::fprintf(out, "Bandwidth down : %u\n", client->cl_bw_info.down);
    std::fprintf(out, "Bandwidth up : %u\n", client->cl_bw_info.up);
    std::fprintf(out, "Bandwidth priority : %d\n", client->cl_bw_info.pri);
}

void dump_pmk_info(FILE *out, const char *kind, const dot1x_pmk_cl_data *pmk) {
    std::fprintf(out, "PMK of %s : %s\n", kind, pmk != nullptr ? "present" : "none");
    if (pmk == nullptr)
        return;
    std::fprintf(out, "  Length : %zu\n", pmk->pmk_len);
    std::fprintf(out, "  Expiration : %u\n", pmk->expiration);
    std::fprintf(out, "  EAP type : %d\n", pmk->eap_type_authsrv);
    std::fprintf(out, "  Accounting interval : %d\n", pmk->acct_interim_interval);
    dump_bw_data(out, pmk->bw_data);
    std::fprintf(out, "  Vlan : %d\n", pmk->vlan_id);
    std::fprintf(out, "  Identity length : %zu\n", pmk->identity_len);
    std::fputs("  Identity : ", out);
    dump_text(out, pmk->identity, pmk->identity != nullptr ? pmk->identity_len : 0);
}

void dump_cl_hapd_info(FILE *out, const hapd_cl_info *hapd) {
    dump_pmk_info(out, "full authentication", hapd != nullptr ? hapd->pmk_fullauth : nullptr);
    dump_pmk_info(out, "OKC", hapd != nullptr ? hapd->pmk_okc : nullptr);
    const ft_80211r_cl_data *const ft = hapd != nullptr ? hapd->ft_data : nullptr;
    std::fprintf(out, "802.11r data : %s\n", ft != nullptr ? "present" : "none");
    if (ft == nullptr)
        return;
    std::fprintf(out, "  Expiration : %u\n", ft->expiration);
    std::fprintf(out, "  Accounting interval : %d\n", ft->acct_interim_interval);
    std::fprintf(out, "  Pairwise : %d\n", ft->pairwise);
    dump_bw_data(out, ft->bw_data);
    std::fprintf(out, "  Vlan : %d\n", ft->vlan_id);
    std::fprintf(out, "  Identity length : %zu\n", ft->identity_len);
}

void dump_cl_portal_info(FILE *out, const portal_cl_info *portal) {
    const portal_cl_auth_info *const auth = portal != nullptr ? portal->portal_cl_auth_info : nullptr;
    std::fprintf(out, "Portal login : %s\n", auth != nullptr ? "present" : "none");
    if (auth == nullptr)
        return;
    std::fputs("  IP address : ", out);
    dump_text(out, auth->ip_addr, sizeof auth->ip_addr);
    std::fprintf(out, "  Expiration : %d\n", auth->expire);
    std::fprintf(out, "  Blackout expiration : %d\n", auth->blackout_expire);
    std::fprintf(out, "  Login time : %u\n", auth->login_time);
    dump_bw_data(out, {auth->bw_download_limit, auth->bw_upload_limit});
    std::fputs("  User name : ", out);
    dump_text(out, auth->username, sizeof auth->username);
}

void dump_cl_role_info(FILE *out, const wl_client_info *client) {
    const role_client_t &role = client->role_info;
    std::fputs("Role : ", out);
    dump_text(out, role.client_role, sizeof role.client_role);
    std::fprintf(out, "  Role id : %u\n", static_cast<uint32_t>(role.role_id));
    std::fprintf(out, "  Vendor id : %u\n", static_cast<uint32_t>(role.vendor_id));
    std::fprintf(out, "  Attribute id : %u\n", static_cast<uint32_t>(role.attr_id));
    std::fprintf(out, "  Method : %s\n", get_rdp_method_str(role.rdp_method));
    std::fprintf(out, "  SSID firewall applied : %d\n", role.apply_ssid_firewall);
    std::fprintf(out, "  SSID portal or web filter applied : %d\n", role.apply_ssid_portal_or_webq);
    std::fprintf(out, "  SSID bandwidth limit applied : %d\n", role.apply_ssid_bw_limit);
    std::fputs("  Google OU : ", out);
    dump_text(out, client->google_ou, client->google_ou != nullptr ? std::strlen(client->google_ou) : 0);
    if (client->role_ssid != nullptr)
        std::fprintf(out, "  Role profile : %d\n", static_cast<int>(client->role_ssid->profile_id));
}

void dump_cl_role_info_brief(FILE *out, const wl_client_info *client) {
    std::fprintf(out, "\n----------- Client MAC : [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]\n", MAC_ARGS(client->mac_addr));
    std::fprintf(out, "SSID : %s\n", text_or_null(client->ssid != nullptr ? client->ssid->ssid : nullptr));
    std::fputs("Role : ", out);
    dump_text(out, client->role_info.client_role, sizeof client->role_info.client_role);
    std::fprintf(out, "  Role id : %u\n", static_cast<uint32_t>(client->role_info.role_id));
    std::fprintf(out, "  Method : %s\n", get_rdp_method_str(client->role_info.rdp_method));
}

const char *get_rdp_method_str(uint8_t method) {
    switch (method) {
    case RDP_METHOD_RADIUS:
        return "Radius";
    case RDP_METHOD_GOOGLE_OU:
        return "Google OU";
    case RDP_METHOD_AUTH_FAIL:
        return "Secondary Auth";
    default:
        return "Unknown";
    }
}
