/// A connection between the daemon and a synch agent that is the test itself, and packets written byte by byte.
#pragma once

#include "common_synch.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "fault.h"
#include "log_capture.h"
#include "wl_server.h"

using bytes = std::vector<uint8_t>;
using lines = std::vector<std::string>;

inline constexpr uint8_t MAC[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0xAB};

inline int profile_updates;

/// Stands in for synch_disconn_update_ssid_profiles.
extern "C" inline __attribute__((used)) void __wrap__Z34synch_disconn_update_ssid_profilesv() {
    profile_updates++;
}

inline bytes operator+(bytes all, const bytes &more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

inline bytes text(const std::string &of) {
    return bytes(of.begin(), of.end());
}

/// Bytes that differ from their neighbours and from zero.
inline bytes filler(size_t size) {
    bytes all(size);
    for (size_t i = 0; i < size; i++)
        all[i] = static_cast<uint8_t>(i % 251 + 1);
    return all;
}

/// The 14 bytes, with nothing checked.
inline bytes header(uint8_t type, uint8_t subtype, uint8_t appid_len, uint16_t payload_len, uint8_t path = 0,
                    const bytes &mac = bytes(6, 0xFF)) {
    return bytes{1,
                 type,
                 path,
                 0,
                 subtype,
                 appid_len,
                 static_cast<uint8_t>(payload_len >> 8),
                 static_cast<uint8_t>(payload_len)} +
           mac;
}

inline bytes packet_of(uint8_t type, uint8_t subtype, const std::string &appid = "", const bytes &payload = {},
                       uint8_t path = 0, const bytes &mac = bytes(6, 0xFF)) {
    return header(type, subtype, static_cast<uint8_t>(appid.size()), static_cast<uint16_t>(payload.size()), path, mac) +
           text(appid) + payload;
}

inline bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

/// A connection to a synch agent that is the test itself.
class SynchProtocol : public testing::Test {
protected:
    SynchProtocol() {
        FD_ZERO(&g_readfds);
        profile_updates = 0;
        connect();
    }

    ~SynchProtocol() override {
        clear_faults();
    }

    void connect() {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        g_synch_sock = daemon_ = pair[0];
        agent_ = pair[1];
        FD_SET(daemon_, &g_readfds);
        g_maxfd = daemon_;
    }

    void deliver(const bytes &content) const {
        ASSERT_EQ(write(agent_, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    }

    void close_agent() {
        close(agent_);
        agent_ = -1;
    }

    /// @return what the agent has received by now
    bytes received_by_agent() const {
        bytes content(8192);
        const ssize_t size = recv(agent_, content.data(), content.size(), MSG_DONTWAIT);
        content.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return content;
    }

    void expect_connected() const {
        EXPECT_EQ(g_synch_sock, daemon_);
        EXPECT_TRUE(is_open(daemon_));
        EXPECT_TRUE(FD_ISSET(daemon_, &g_readfds));
        EXPECT_EQ(profile_updates, 0);
    }

    void expect_dropped() const {
        EXPECT_EQ(g_synch_sock, -1);
        EXPECT_FALSE(is_open(daemon_));
        EXPECT_FALSE(FD_ISSET(daemon_, &g_readfds));
        EXPECT_EQ(profile_updates, 1);
        expect_nothing_held();
    }

    static void expect_nothing_held() {
        EXPECT_EQ(synch_tcp_pkt_info.recvd_len, 0);
        EXPECT_EQ(synch_tcp_pkt_info.expected_pkt_len, 0);
    }

    int daemon_ = -1;
    int agent_ = -1;
};
