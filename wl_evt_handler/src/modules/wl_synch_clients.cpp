// What the neighbours are told of the clients: their keys and their portal logins.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include "big_endian.h"
#include "debug_log.h"
#include "wl_synch.h"
#include "wl_synch_internal.h"
#include "wl_utils.h"

namespace {

constexpr size_t PACKET_LIMIT = 1200;  // a payload that a further client would bring to this size is sent first
constexpr size_t MAC_TEXT_SIZE = 20;   // of a portal login's item, padded with NULs

enum record_kind : uint16_t { PMK_RECORD = 1, PORTAL_RECORD = 2 };

struct [[gnu::packed]] record_prefix {
    be_u16 kind;
    be_u16 length;  // of the items that follow
};
static_assert(sizeof(record_prefix) == 4);

enum pmk_item : uint8_t {
    PMK_KEY = 1,
    PMK_LIFETIME = 2,
    PMK_IDENTITY = 3,
    PMK_EAP_TYPE = 4,
    PMK_VLAN = 6,
    PMK_BANDWIDTH = 7,
    PMK_VLAN_IS_0 = 8,
    PMK_ACCT_INTERVAL = 9,
    PMK_MAC = 10,
};

enum portal_item : uint8_t {
    PORTAL_LOGIN_LEFT = 6,
    PORTAL_IP = 7,
    PORTAL_MAC = 8,
    PORTAL_USERNAME = 14,
    PORTAL_LOGIN_TIME = 15,
    PORTAL_BLACKOUT = 16,
    PORTAL_DOWNLOAD = 17,
    PORTAL_UPLOAD = 18,
};

constexpr size_t ITEM_HEAD = 2;  // type and length
constexpr size_t WORD_ITEM = ITEM_HEAD + 4;

/// An answer under construction.
struct answer_t {
    const ssid_profile_info *profile;
    const app_header *request;
    app_data_info_t payload;
    uint8_t *end;  // where the next record goes: before the payload's length says when a key had no identity
};

/// The length on the wire is the low 8 bits, the value follows whole all the same.
uint8_t *put_item(uint8_t *at, uint8_t type, const void *value, size_t length) {
    at[0] = type;
    at[1] = static_cast<uint8_t>(length);
    std::memcpy(at + ITEM_HEAD, value, length);
    return at + ITEM_HEAD + length;
}

uint8_t *put_word(uint8_t *at, uint8_t type, uint32_t value) {
    be_u32 word;
    word = value;
    return put_item(at, type, &word, sizeof word);
}

uint8_t *put_word(uint8_t *at, uint8_t type, int32_t value) {
    return put_word(at, type, static_cast<uint32_t>(value));
}

uint8_t *put_prefix(uint8_t *at, record_kind kind, size_t length) {
    record_prefix prefix;
    prefix.kind = kind;
    prefix.length = static_cast<uint16_t>(length);
    std::memcpy(at, &prefix, sizeof prefix);
    return at + sizeof prefix;
}

uint8_t *put_mac_text(uint8_t *at, const uint8_t *mac) {
    char text[MAC_TEXT_SIZE] = {};
    std::snprintf(text, sizeof text, "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return put_item(at, PORTAL_MAC, text, sizeof text);
}

/// Times of the wall clock are 32 bits wide, and so is what lies between them.
int32_t seconds_between(int32_t from, int32_t to) {
    return static_cast<int32_t>(static_cast<uint32_t>(to) - static_cast<uint32_t>(from));
}

bool is_limited(int32_t download, int32_t upload) {
    return download != -1 || upload != -1;
}

bool has_accounting(const ssid_profile_info *profile, const portal_cl_auth_info *auth) {
    return profile->portal_radius_acc_enabled != 0 && auth->username[0] != '\0';
}

bool has_bandwidth(const ssid_profile_info *profile, const portal_cl_auth_info *auth) {
    return profile->per_user_bw_enable != 0 && is_limited(auth->bw_download_limit, auth->bw_upload_limit);
}

void start_packet(answer_t *answer) {
    wipe(answer->payload.data, sizeof answer->payload.data);  // keys may have been there
    answer->payload.data_len = 0;
    answer->end = answer->payload.data;
}

void send_held(answer_t *answer) {
    if (answer->payload.data_len == 0)
        return;
    const app_header *const request = answer->request;
    (void)send_packet_to_synch_agent(SYNCH_CLIENT_INFO, CLIENT_INFO_ANSWER, &answer->payload, request->appid,
                                     request->appid_len, request->mac, answer->profile->iapc_path);
    start_packet(answer);
}

}  // namespace

int32_t wall_clock_seconds() {
    return static_cast<int32_t>(std::time(nullptr));
}

const dot1x_pmk_cl_data *pmk_to_send(const wl_client_info *client, const os_reltime *now) {
    if (client->hapd_cl_info == nullptr)
        return nullptr;
    for (const dot1x_pmk_cl_data *const pmk : {client->hapd_cl_info->pmk_fullauth, client->hapd_cl_info->pmk_okc}) {
        if (pmk != nullptr && pmk->expiration != static_cast<uint32_t>(now->sec))
            return pmk;
    }
    return nullptr;
}

const portal_cl_auth_info *portal_login_to_send(const wl_client_info *client, int32_t cur_time) {
    if (client->portal_cl_info == nullptr)
        return nullptr;
    const portal_cl_auth_info *const auth = client->portal_cl_info->portal_cl_auth_info;
    return auth != nullptr && seconds_between(cur_time, auth->blackout_expire) >= 1 ? auth : nullptr;
}

size_t get_okc_info_len(const dot1x_pmk_cl_data *pmk) {
    size_t length = 43 + pmk->identity_len + 5 * ITEM_HEAD;
    if (pmk->vlan_id != VLAN_ID_NONE)
        length += WORD_ITEM;
    if (is_limited(pmk->bw_data.bw_download_limit, pmk->bw_data.bw_upload_limit))
        length += ITEM_HEAD + 8;
    if (pmk->acct_interim_interval != 0)
        length += WORD_ITEM;
    if (pmk->vlan_id == 0)
        length += ITEM_HEAD + 1;
    return length;
}

size_t get_portal_cl_auth_info_len(const ssid_profile_info *profile, const portal_cl_auth_info *auth) {
    size_t length = strnlen(auth->ip_addr, sizeof auth->ip_addr) + 28 + 4 * ITEM_HEAD;
    if (has_accounting(profile, auth))
        length += ITEM_HEAD + strnlen(auth->username, sizeof auth->username) + WORD_ITEM;
    if (has_bandwidth(profile, auth))
        length += 2 * WORD_ITEM;
    return length;
}

size_t get_cl_data_len(const ssid_profile_info *profile, const wl_client_info *client, int32_t cur_time,
                       const os_reltime *now) {
    size_t length = 0;
    if (const dot1x_pmk_cl_data *const pmk = pmk_to_send(client, now))
        length += sizeof(record_prefix) + get_okc_info_len(pmk);
    if (const portal_cl_auth_info *const auth = portal_login_to_send(client, cur_time))
        length += sizeof(record_prefix) + get_portal_cl_auth_info_len(profile, auth);
    return length;
}

uint8_t *fill_cl_pmk_info(const wl_client_info *client, const dot1x_pmk_cl_data *pmk, uint8_t *buf,
                          const os_reltime *now) {
    if (pmk->identity == nullptr)
        return buf;
    const bw_data_t &bandwidth = pmk->bw_data;
    uint8_t *at = put_item(buf, PMK_MAC, client->mac_addr, sizeof client->mac_addr);
    at = put_item(at, PMK_KEY, pmk->pmk, sizeof pmk->pmk);
    at = put_word(at, PMK_LIFETIME, pmk->expiration - static_cast<uint32_t>(now->sec));
    at = put_item(at, PMK_IDENTITY, pmk->identity, pmk->identity_len);
    at = put_item(at, PMK_EAP_TYPE, &pmk->eap_type_authsrv, 1);
    if (pmk->vlan_id != VLAN_ID_NONE)
        at = put_word(at, PMK_VLAN, pmk->vlan_id);
    if (is_limited(bandwidth.bw_download_limit, bandwidth.bw_upload_limit)) {
        be_i32 limits[2];
        limits[0] = bandwidth.bw_download_limit;
        limits[1] = bandwidth.bw_upload_limit;
        at = put_item(at, PMK_BANDWIDTH, limits, sizeof limits);
    }
    if (pmk->acct_interim_interval != 0)
        at = put_word(at, PMK_ACCT_INTERVAL, pmk->acct_interim_interval);
    if (pmk->vlan_id == 0)
        at = put_item(at, PMK_VLAN_IS_0, "", 1);
    return at;
}

uint8_t *fill_portal_cl_auth_info(const ssid_profile_info *profile, const wl_client_info *client,
                                  const portal_cl_auth_info *auth, uint8_t *buf, int32_t cur_time) {
    const int32_t login_left = seconds_between(cur_time, auth->expire);
    const bool is_over = login_left < 1;
    uint8_t *at = put_mac_text(buf, client->mac_addr);
    at = put_item(at, PORTAL_IP, auth->ip_addr, strnlen(auth->ip_addr, sizeof auth->ip_addr));
    at = put_word(at, PORTAL_LOGIN_LEFT, is_over ? 1 : login_left);
    at = put_word(at, PORTAL_BLACKOUT, seconds_between(is_over ? cur_time : auth->expire, auth->blackout_expire));
    if (has_accounting(profile, auth)) {
        at = put_item(at, PORTAL_USERNAME, auth->username, strnlen(auth->username, sizeof auth->username));
        at = put_word(at, PORTAL_LOGIN_TIME, auth->login_time);
    }
    if (has_bandwidth(profile, auth)) {
        at = put_word(at, PORTAL_DOWNLOAD, auth->bw_download_limit);
        at = put_word(at, PORTAL_UPLOAD, auth->bw_upload_limit);
    }
    return at;
}

uint8_t *fill_client_synch_info(const ssid_profile_info *profile, const wl_client_info *client, uint8_t *buf,
                                int32_t cur_time, const os_reltime *now) {
    uint8_t *at = buf;
    if (const dot1x_pmk_cl_data *const pmk = pmk_to_send(client, now)) {
        at = put_prefix(at, PMK_RECORD, get_okc_info_len(pmk));
        at = fill_cl_pmk_info(client, pmk, at, now);
    }
    if (const portal_cl_auth_info *const auth = portal_login_to_send(client, cur_time)) {
        at = put_prefix(at, PORTAL_RECORD, get_portal_cl_auth_info_len(profile, auth));
        at = fill_portal_cl_auth_info(profile, client, auth, at, cur_time);
    } else if (client->portal_cl_info != nullptr && client->portal_cl_info->portal_cl_auth_info != nullptr) {
        WL_LOG(3, "Completed with blaskout time. This entry should have been deleted. Not adding portal info");
    }
    return at;
}

void send_all_cl_info_for_ssid(ssid_profile_info *profile, const app_header *request) {
    const int32_t cur_time = wall_clock_seconds();
    os_reltime now{};
    (void)os_get_reltime(&now);
    answer_t answer;
    answer.profile = profile;
    answer.request = request;
    start_packet(&answer);
    hash_table_iter_t clients;
    hash_table_iter_init(&profile->cl_info_hash, &clients);
    while (hash_table_iter_next(&clients) != 0) {
        const auto *const client = static_cast<const wl_client_info *>(clients.entry->value);
        const size_t size = client->is_active != 0 ? get_cl_data_len(profile, client, cur_time, &now) : 0;
        if (size == 0 || size > sizeof answer.payload.data)
            continue;
        if (answer.payload.data_len + size >= PACKET_LIMIT)
            send_held(&answer);
        answer.end = fill_client_synch_info(profile, client, answer.end, cur_time, &now);
        answer.payload.data_len = static_cast<uint16_t>(answer.payload.data_len + size);
    }
    send_held(&answer);
}
