/// What the tests of the synchronisation share: an agent at the other end of a socket pair, which sees every packet by
/// itself, profiles with clients, and the bytes of packets written down by hand.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "common_synch.h"
#include "event_payload.h"
#include "fault.h"
#include "log_capture.h"
#include "wl_cl_info.h"
#include "wl_server.h"
#include "wl_ssid_profile.h"
#include "wl_synch.h"

using lines = std::vector<std::string>;
using packets = std::vector<byte_string>;

/// The bytes of "0A 1b ..."; a piece in 'quotes' is text. A quoted text may hold blanks.
inline byte_string bytes_of(const std::string &text) {
    byte_string bytes;
    for (size_t at = 0; at < text.size();) {
        if (text[at] == ' ') {
            at++;
        } else if (text[at] == '\'') {
            const size_t end = text.find('\'', at + 1);
            bytes.insert(bytes.end(), text.begin() + long(at) + 1, text.begin() + long(end));
            at = end + 1;
        } else {
            bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
            at += 2;
        }
    }
    return bytes;
}

inline byte_string operator+(byte_string first, const byte_string &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline bool holds(const lines &all, const std::string &line) {
    return std::ranges::find(all, line) != all.end();
}

inline constexpr char NO_MEMORY[] = "send_packet_to_synch_agent: Could not allocate memory for packet buffer";

inline std::string send_failed(const std::string &why) {
    return "send_packet_to_synch_agent: error in sending packet to sunch agent. send() failed [" + why + "]";
}

inline lines lines_at_level(int level, const std::function<void()> &action) {
    log_capture log(level);
    action();
    return log.lines();
}

/// Expects a repeatable action to log a line at its level and not below.
inline void expect_logged(int level, const std::string &line, const std::function<void()> &action) {
    EXPECT_FALSE(holds(lines_at_level(level - 1, action), line)) << line;
    EXPECT_TRUE(holds(lines_at_level(level, action), line)) << line;
}

class SynchFixture : public testing::Test {
protected:
    SynchFixture() {
        wl_init_cl_cache_info();
        connect();
        g_synch_nack_count = 0;
    }

    ~SynchFixture() override {
        clear_faults();
        close(g_synch_sock);
        close(agent_);
        hash_table_destroy(ssid_profile_list);
        std::free(ssid_profile_list);
    }

    /// A new connection, as after the loss of the one before.
    void connect() {
        close(agent_);
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        g_synch_sock = ends[0];
        agent_ = ends[1];
    }

    /// The packets that have reached the agent since the last call.
    packets sent() const {
        packets found;
        uint8_t buffer[8192];
        for (ssize_t size; (size = recv(agent_, buffer, sizeof buffer, MSG_DONTWAIT)) > 0;)
            found.emplace_back(buffer, buffer + size);
        return found;
    }

    /// Has every packet from now on fail.
    void stop_agent() const {
        shutdown(agent_, SHUT_RDWR);
    }

    /// A profile that talks through the agent.
    static ssid_profile_info *add_profile(uint32_t id, const std::string &ssid = "net") {
        ssid_profile_info *const profile = create_ssid_profile_data();
        profile->profile_id = id;
        std::strncpy(profile->ssid, ssid.c_str(), sizeof profile->ssid - 1);
        profile->external_interface = strdup("eth0");
        profile->iapc_path = 2;
        EXPECT_NE(hash_table_init(&profile->cl_info_hash, CLIENT_CACHE_BUCKETS, &cl_cache_hash_fn, nullptr), nullptr);
        EXPECT_EQ(hash_table_add(ssid_profile_list, &profile->profile_id, profile), 0);
        return profile;
    }

    /// The active client 02:00:00:00:xx:xx of a profile.
    static wl_client_info *add_client(ssid_profile_info *profile, uint16_t number) {
        auto *const client = static_cast<wl_client_info *>(std::calloc(1, sizeof(wl_client_info)));
        client->mac_addr[0] = 2;
        client->mac_addr[4] = static_cast<uint8_t>(number >> 8);
        client->mac_addr[5] = static_cast<uint8_t>(number);
        client->is_active = 1;
        client->ssid = profile;
        EXPECT_EQ(hash_table_add(&profile->cl_info_hash, client->mac_addr, client), 0);
        return client;
    }

    /// A key of 32 bytes of `filler` that has no options.
    static dot1x_pmk_cl_data *new_pmk(const std::string &identity, uint8_t filler, uint32_t expiration) {
        auto *const pmk = static_cast<dot1x_pmk_cl_data *>(std::calloc(1, sizeof(dot1x_pmk_cl_data)));
        std::memset(pmk->pmk, filler, sizeof pmk->pmk);
        pmk->pmk_len = sizeof pmk->pmk;
        pmk->expiration = expiration;
        pmk->eap_type_authsrv = 25;
        pmk->bw_data = {-1, -1};
        pmk->vlan_id = VLAN_ID_NONE;
        if (!identity.empty()) {
            pmk->identity_len = identity.size();
            pmk->identity = static_cast<uint8_t *>(std::malloc(identity.size() + 1));
            std::memcpy(pmk->identity, identity.c_str(), identity.size() + 1);
        }
        return pmk;
    }

    static hapd_cl_info *keys_of(wl_client_info *client) {
        if (client->hapd_cl_info == nullptr)
            client->hapd_cl_info = static_cast<hapd_cl_info *>(std::calloc(1, sizeof(hapd_cl_info)));
        return client->hapd_cl_info;
    }

    static dot1x_pmk_cl_data *add_key(wl_client_info *client, const std::string &identity, uint8_t filler = 0xAA,
                                      uint32_t expiration = 4600) {
        return keys_of(client)->pmk_fullauth = new_pmk(identity, filler, expiration);
    }

    static dot1x_pmk_cl_data *add_okc_key(wl_client_info *client, const std::string &identity, uint8_t filler,
                                          uint32_t expiration) {
        return keys_of(client)->pmk_okc = new_pmk(identity, filler, expiration);
    }

    static portal_cl_auth_info *add_login(wl_client_info *client, int32_t expire, int32_t blackout_expire) {
        auto *const auth = static_cast<portal_cl_auth_info *>(std::calloc(1, sizeof(portal_cl_auth_info)));
        std::strcpy(auth->ip_addr, "192.168.1.20");
        auth->expire = expire;
        auth->blackout_expire = blackout_expire;
        auth->bw_download_limit = -1;
        auth->bw_upload_limit = -1;
        client->portal_cl_info = static_cast<portal_cl_info *>(std::calloc(1, sizeof(portal_cl_info)));
        client->portal_cl_info->portal_cl_auth_info = auth;
        return auth;
    }

    int agent_ = -1;
};
