#include "wl_synch.h"

#include <cstring>

#include "debug_log.h"
#include "wl_server.h"
#include "wl_ssid_profile.h"
#include "wl_synch_internal.h"

namespace {

constexpr char APPLICATION[] = "wl_evt_handler";
constexpr uint32_t APPLICATION_NUMBER = 1032;  // its meaning is the agent's affair
constexpr uint8_t ITEM_REQUEST_FLAG = 30;
constexpr uint8_t CLIENT_IS_ACTIVE = 1;  // subtype of SYNCH_PORTAL_LOGIN

// What is done for one profile is part of this function: its lines carry the name.
constexpr char PROCESS_PACKET[] = "process_synch_packet";

/// @return the next profile of a walk over all of them; null at the end
ssid_profile_info *next_profile(hash_table_iter_t *profiles) {
    return hash_table_iter_next(profiles) != 0 ? static_cast<ssid_profile_info *>(profiles->entry->value) : nullptr;
}

uint8_t ssid_len(const ssid_profile_info *profile) {
    return static_cast<uint8_t>(strnlen(profile->ssid, sizeof profile->ssid));
}

const char *interface_of(const ssid_profile_info *profile) {
    const bool over_the_communication_vlan = profile->ena_remote_bridging == 1 && profile->remote_iapc_enabled == 0;
    return over_the_communication_vlan ? g_comm_vlan_iface_name : profile->external_interface;
}

/// Whether it goes out is not asked: a failed send drops the connection, and the next one registers every SSID. Without
/// memory for the packet nothing is sent and the connection is kept: the SSID waits for the next one.
void send_registration(synch_packet_type type, const ssid_profile_info *profile) {
    (void)send_register_unregister_req_to_synch_agent(type, APPLICATION, APPLICATION_NUMBER, interface_of(profile),
                                                      profile->ssid, ssid_len(profile));
}

/// Has the main loop register the profile again.
void mark_for_retry(ssid_profile_info *profile) {
    if (profile->nack != 0)
        return;
    profile->nack = 1;
    g_synch_nack_count++;
}

bool is_for(const app_header *header, const ssid_profile_info *profile) {
    if (profile->iapc_path != IAPC_PATH_SYNCH_AGENT || ssid_len(profile) != header->appid_len)
        return false;
    return header->appid_len == 0 || std::memcmp(profile->ssid, header->appid, header->appid_len) == 0;
}

void accept_registration(ssid_profile_info *profile) {
    WL_LOG_AS(PROCESS_PACKET, 7, "Registration with synch-agent successful for [%s]", profile->ssid);
    if (profile->send_cl_info_req != 0) {
        (void)send_cl_info_req_packet(profile, 1);
        profile->send_cl_info_req = 0;
    }
    profile->synch_registered = 1;  // deliberately also when that request has just failed and dropped the connection
}

void answer_client_info(ssid_profile_info *profile, const app_header *header) {
    switch (header->subtype) {
    case CLIENT_INFO_REQUEST:
        send_all_cl_info_for_ssid(profile, header);
        break;
    case CLIENT_INFO_ANSWER:
        WL_LOG_AS(PROCESS_PACKET, 3, "Packet subtype [%d] recevied (which should not be received) for type [%d].",
                  header->subtype, header->app_msg_type);
        break;
    default:
        WL_LOG_AS(PROCESS_PACKET, 3, "Invalid packet subtype [%d] recevied for type [%d].", header->subtype,
                  header->app_msg_type);
    }
}

void process_for_profile(ssid_profile_info *profile, const app_header *header) {
    switch (header->app_msg_type) {
    case SYNCH_REGISTERED:
        accept_registration(profile);
        break;
    case SYNCH_REFUSED:
        WL_LOG_AS(PROCESS_PACKET, 7, "Registration with synch-agent failed for [%s]", profile->ssid);
        mark_for_retry(profile);
        break;
    case SYNCH_CLIENT_INFO:
        answer_client_info(profile, header);
        break;
    default:
        WL_LOG_AS(PROCESS_PACKET, 3, "Invalid packet type [%d] subtype [%d].", header->app_msg_type, header->subtype);
    }
}

}  // namespace

int register_ssid_with_synch_agent(ssid_profile_info *profile) {
    if (profile == nullptr) {
        WL_LOG(3, "NULL ssid_profile_info passed for registering with synch_agent.");
        return -1;
    }
    if (profile->iapc_path != IAPC_PATH_SYNCH_AGENT) {
        WL_LOG(7, "Packet path is [%d]. Not registering with synch agent.", profile->iapc_path);
        return -1;
    }
    const char *const interface = interface_of(profile);
    if (is_iface_up(interface) != 0) {
        WL_LOG(3, "Interface [%s] is not UP/Running, not sending register request, try again.",
               text_or_null(interface));
        mark_for_retry(profile);
        return -1;
    }
    if (profile->flags.is_mesh_enabled == 0)
        send_registration(SYNCH_REGISTER, profile);
    return 0;
}

int unregister_ssid_with_synch_agent(ssid_profile_info *profile) {
    if (profile == nullptr) {
        WL_LOG(3, "NULL ssid_profile_info passed for registering with synch_agent.");
        return -1;
    }
    if (profile->iapc_path != IAPC_PATH_SYNCH_AGENT) {
        WL_LOG(7, "Packet path is [%d]. Not unregistering since didn't register earlier.", profile->iapc_path);
        return -1;
    }
    send_registration(SYNCH_UNREGISTER, profile);
    return 0;
}

int check_and_register_ssids(int all) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (ssid_profile_info *const profile = next_profile(&profiles)) {
        if (all == 0 && (profile->nack == 0 || g_synch_nack_count == 0))
            continue;
        if (register_ssid_with_synch_agent(profile) != 0 || profile->nack == 0 || g_synch_nack_count == 0)
            continue;
        profile->nack = 0;
        g_synch_nack_count--;
    }
    return 0;
}

void synch_disconn_update_ssid_profiles() {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (ssid_profile_info *const profile = next_profile(&profiles))
        profile->synch_registered = 0;
}

void process_synch_packet(const uint8_t *, const app_header *header) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (ssid_profile_info *const profile = next_profile(&profiles)) {
        if (!is_for(header, profile))
            continue;
        WL_LOG(7, "SSID [%s] Matched for interface [%s] for packet [type:%d subtype:%d]", profile->ssid,
               text_or_null(profile->external_interface), header->app_msg_type, header->subtype);
        process_for_profile(profile, header);
    }
}

void handle_rf_neighbor_list_update() {
    WL_LOG(2, "RF neighbor list update packet received.Will send Cl info request packet for each SSID.");
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (ssid_profile_info *const profile = next_profile(&profiles)) {
        if (profile->iapc_path == IAPC_PATH_SYNCH_AGENT)
            (void)send_cl_info_req_packet(profile, 0);
    }
}

int send_cl_info_req_packet(ssid_profile_info *profile, uint8_t flag) {
    WL_LOG(7, "Sending cl info req packet for ssid '%s'", profile->ssid);
    app_data_info_t payload{};
    if (fill_app_data_info(&payload, &flag, ITEM_REQUEST_FLAG, sizeof flag) != 0)
        return -1;
    return send_packet_to_synch_agent(SYNCH_CLIENT_INFO, CLIENT_INFO_REQUEST, &payload, profile->ssid,
                                      ssid_len(profile), nullptr, IAPC_PATH_SYNCH_AGENT);
}

void send_cl_portal_login_packet(ssid_profile_info *profile, wl_client_info *client) {
    const int32_t cur_time = wall_clock_seconds();
    const portal_cl_auth_info *const auth = portal_login_to_send(client, cur_time);
    if (auth == nullptr) {
        // Deliberately also for a client without any portal login: else the line that follows every 802.1X
        // authorisation in the log would be missing.
        WL_LOG(3, "Completed with blaskout time. This entry should have been deleted. Not sending synch pakcet.");
        return;
    }
    app_data_info_t payload{};
    fill_portal_cl_auth_info(profile, client, auth, payload.data, cur_time);
    payload.data_len = static_cast<uint16_t>(get_portal_cl_auth_info_len(profile, auth));
    // Deliberately sent whatever the profile's path is: else the agent would not hear of logins at an SSID that is not
    // registered with it. The packet carries the path.
    (void)send_packet_to_synch_agent(SYNCH_PORTAL_LOGIN, CLIENT_IS_ACTIVE, &payload, profile->ssid, ssid_len(profile),
                                     nullptr, profile->iapc_path);
}
