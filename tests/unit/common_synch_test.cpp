// What goes to the synch agent, byte by byte, and how the connection is dropped.
#include "common_synch_fixture.h"

#include <cerrno>
#include <climits>
#include <cstring>

#include "reload_cli.h"

namespace {

struct sent_packet {
    int descriptor;
    bytes content;
    int flags;
};

std::vector<sent_packet> sends;
const void *last_packet;
bytes last_packet_when_freed;
ssize_t accepted_at_most = SSIZE_MAX;  // by the next sends

}  // namespace

extern "C" ssize_t __real_send(int descriptor, const void *data, size_t size, int flags);
extern "C" ssize_t __wrap_send(int descriptor, const void *data, size_t size, int flags) {
    const auto *const first = static_cast<const uint8_t *>(data);
    sends.push_back({descriptor, bytes(first, first + size), flags});
    last_packet = data;
    errno = 0;
    return __real_send(descriptor, data, std::min(size, static_cast<size_t>(accepted_at_most)), flags);
}

extern "C" void __real_free(void *block);
extern "C" void __wrap_free(void *block) {
    if (block != nullptr && block == last_packet) {
        const auto *const first = static_cast<const uint8_t *>(block);
        last_packet_when_freed.assign(first, first + sends.back().content.size());
        last_packet = nullptr;
    }
    __real_free(block);
}

namespace {

class SynchSend : public SynchProtocol {
protected:
    SynchSend() {
        sends.clear();
        accepted_at_most = SSIZE_MAX;
    }
};

using SynchRegistration = SynchProtocol;
using SynchBreak = SynchProtocol;

/// A payload that is filled already.
inline app_data_info_t payload_of(const bytes &content) {
    app_data_info_t info{};
    info.data_len = static_cast<uint16_t>(content.size());
    std::copy(content.begin(), content.end(), info.data);
    return info;
}

// --- header ---

TEST(SynchHeader, StandsOnTheWireFieldByField) {
    bytes buffer(20, 0xEE);
    uint8_t *const end = set_synch_packet_app_header(buffer.data(), 1, 10, 2, 3, 4, 5, "guest", 0x1234, MAC);
    EXPECT_EQ(end, buffer.data() + 19);
    EXPECT_EQ(buffer, (bytes{1,    10,   2,    3,    4,   5,   0x12, 0x34, 0x00, 0x11,
                             0x22, 0x33, 0x44, 0xAB, 'g', 'u', 'e',  's',  't',  0xEE}));
}

TEST(SynchHeader, WithoutAMacNamesEveryone) {
    bytes buffer(14);
    EXPECT_EQ(set_synch_packet_app_header(buffer.data(), 1, 32, 0, 0, 0, 0, nullptr, 0, nullptr), buffer.data() + 14);
    EXPECT_EQ(buffer, (bytes{1, 32, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(SynchHeader, WithoutAnApplicationIdLeavesItsBytes) {
    bytes buffer(17, 0xEE);
    EXPECT_EQ(set_synch_packet_app_header(buffer.data(), 1, 32, 0, 0, 0, 3, nullptr, 0, MAC), buffer.data() + 17);
    EXPECT_EQ(buffer[5], 3);
    EXPECT_EQ(bytes(buffer.begin() + 14, buffer.end()), bytes(3, 0xEE));
}

TEST(SynchHeader, TakesEveryFieldsLargestValue) {
    bytes buffer(14 + 255);
    const std::string appid(255, 'a');
    EXPECT_EQ(set_synch_packet_app_header(buffer.data(), 255, 255, 255, 255, 255, 255, appid.c_str(), 65535, nullptr),
              buffer.data() + buffer.size());
    EXPECT_EQ(buffer, bytes(14, 0xFF) + text(appid));
}

TEST(SynchHeader, IsParsedByOffset) {
    const bytes wire = {1, 2, 3, 4, 5, 6, 0x12, 0x34, 7, 8, 9, 10, 11, 12};
    app_header parsed;
    std::memset(&parsed, 0xEE, sizeof parsed);
    EXPECT_EQ(parse_min_app_header(wire.data(), &parsed), 0);
    EXPECT_EQ(parsed.version, 1);
    EXPECT_EQ(parsed.app_msg_type, 2);
    EXPECT_EQ(parsed.packet_path, 3);
    EXPECT_EQ(parsed.flag, 4);
    EXPECT_EQ(parsed.subtype, 5);
    EXPECT_EQ(parsed.appid_len, 6);
    EXPECT_EQ(parsed.payload_len, 0x1234);
    EXPECT_EQ(bytes(parsed.mac, parsed.mac + 6), (bytes{7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(parsed.appid, nullptr);
}

TEST(SynchHeader, HasItsDocumentedOrderInMemory) {
    EXPECT_EQ(offsetof(app_header, appid_len), 4U);
    EXPECT_EQ(offsetof(app_header, subtype), 5U);
    EXPECT_EQ(offsetof(app_header, payload_len), 6U);
    EXPECT_EQ(offsetof(app_header, mac), 8U);
}

TEST(SynchHeader, IsParsedAtAnyAlignment) {
    for (size_t at = 0; at < 8; at++) {
        const bytes wire = bytes(at, 0) + header(10, 1, 2, 0xABCD);
        app_header parsed;
        EXPECT_EQ(parse_min_app_header(wire.data() + at, &parsed), 0);
        EXPECT_EQ(parsed.payload_len, 0xABCD) << at;
    }
}

// --- sending ---

TEST_F(SynchSend, PacketsOfTheTableGoOutByteByByte) {
    const bytes client(MAC, MAC + 6);
    struct {
        uint8_t type, subtype, path;
        std::string appid;
        bytes payload, mac, expected;
    } const rows[] = {
        {10, 1, 2, "guest", {30, 1, 1}, {}, {1,    10,   2,    0,   1,   5,   0,   3,   0xFF, 0xFF, 0xFF,
                                             0xFF, 0xFF, 0xFF, 'g', 'u', 'e', 's', 't', 30,   1,    1}},
        {10, 2, 1, "a", {9, 8}, client, {1, 10, 1, 0, 2, 1, 0, 2, 0x00, 0x11, 0x22, 0x33, 0x44, 0xAB, 'a', 9, 8}},
        {3, 1, 1, "a", {7}, {}, {1, 3, 1, 0, 1, 1, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 'a', 7}},
        {12, 2, 2, "", bytes{5, 6} + client + bytes{6, 1, 3}, {}, {1,    12,   2,    0,    2,    0, 0, 11,   0xFF,
                                                                   0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 5, 6, 0x00, 0x11,
                                                                   0x22, 0x33, 0x44, 0xAB, 6,    1, 3}},
        {12, 3, 2, "", {9, 1, 1, 10, 1, 60}, {}, {1,    12,   2,    0,    3, 0, 0, 6,  0xFF, 0xFF,
                                                  0xFF, 0xFF, 0xFF, 0xFF, 9, 1, 1, 10, 1,    60}},
        {16, 1, 0, "", {16, 0}, {}, {1, 16, 0, 0, 1, 0, 0, 2, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 16, 0}},
    };
    for (const auto &row : rows) {
        const app_data_info_t payload = payload_of(row.payload);
        EXPECT_EQ(send_packet_to_synch_agent(row.type, row.subtype, &payload, row.appid.c_str(),
                                             static_cast<uint8_t>(row.appid.size()),
                                             row.mac.empty() ? nullptr : row.mac.data(), row.path),
                  0);
        EXPECT_EQ(received_by_agent(), row.expected) << int(row.type) << "/" << int(row.subtype);
    }
    expect_connected();
}

TEST_F(SynchSend, WithoutAPayloadSendsHeaderAndApplicationId) {
    EXPECT_EQ(send_packet_to_synch_agent(10, 1, nullptr, "ab", 2, MAC, 2), 0);
    EXPECT_EQ(received_by_agent(), packet_of(10, 1, "ab", {}, 2, bytes(MAC, MAC + 6)));
}

TEST_F(SynchSend, WithoutAnythingSendsTheHeader) {
    EXPECT_EQ(send_packet_to_synch_agent(16, 1, nullptr, nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(received_by_agent(), header(16, 1, 0, 0));
}

TEST_F(SynchSend, TheLongestPacketGoesOutWhole) {
    const std::string appid(255, 'a');
    const app_data_info_t payload = payload_of(filler(4395));
    EXPECT_EQ(send_packet_to_synch_agent(10, 2, &payload, appid.c_str(), 255, nullptr, 1), 0);
    EXPECT_EQ(received_by_agent(), packet_of(10, 2, appid, filler(4395), 1));
}

TEST_F(SynchSend, AnApplicationIdIsTakenByItsLength) {
    EXPECT_EQ(send_packet_to_synch_agent(10, 1, nullptr, "a\0bc", 4, nullptr, 0), 0);
    EXPECT_EQ(received_by_agent(), packet_of(10, 1, std::string("a\0bc", 4)));
}

TEST_F(SynchSend, IsOneSendThatNeitherWaitsNorSignals) {
    const app_data_info_t payload = payload_of(filler(3));
    EXPECT_EQ(send_packet_to_synch_agent(10, 2, &payload, "a", 1, nullptr, 1), 0);
    ASSERT_EQ(sends.size(), 1U);
    EXPECT_EQ(sends[0].descriptor, daemon_);
    EXPECT_EQ(sends[0].flags, MSG_NOSIGNAL | MSG_DONTWAIT);
}

TEST_F(SynchSend, IsToldAtLevel7) {
    const app_data_info_t payload = payload_of(filler(300));
    log_capture log(7);
    EXPECT_EQ(send_packet_to_synch_agent(10, 2, &payload, "a", 1, nullptr, 1), 0);
    EXPECT_EQ(log.lines(), lines({"send_packet_to_synch_agent: Sending packet to synchagent. pkt type [10] subtype [2] "
                                  "payload/tlv len[300]"}));
}

TEST_F(SynchSend, SaysNothingBelowLevel7) {
    log_capture log(6);
    EXPECT_EQ(send_packet_to_synch_agent(255, 255, nullptr, nullptr, 0, nullptr, 1), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SynchSend, LeavesNothingOfThePacketOnTheHeap) {
    const app_data_info_t payload = payload_of(filler(50));
    EXPECT_EQ(send_packet_to_synch_agent(10, 2, &payload, "a", 1, nullptr, 1), 0);
    ASSERT_EQ(sends.size(), 1U);
    EXPECT_EQ(sends[0].content, packet_of(10, 2, "a", filler(50), 1));
    EXPECT_EQ(last_packet_when_freed, bytes(14 + 1 + 50, 0));
}

TEST_F(SynchSend, AnUnsentPacketLeavesNothingOnTheHeapEither) {
    g_synch_sock = -1;
    EXPECT_EQ(send_packet_to_synch_agent(10, 2, nullptr, "a", 1, nullptr, 1), -1);
    EXPECT_EQ(last_packet_when_freed, bytes(14 + 1, 0));
}

TEST_F(SynchSend, RefusesAPayloadThatClaimsMoreThanItHolds) {
    app_data_info_t payload = payload_of(filler(4395));
    for (const uint16_t claimed : {uint16_t{4396}, uint16_t{65535}}) {
        payload.data_len = claimed;
        log_capture log(7);
        EXPECT_EQ(send_packet_to_synch_agent(10, 2, &payload, "a", 1, nullptr, 1), -1);
        EXPECT_EQ(log.lines(),
                  lines({"send_packet_to_synch_agent: Sufficient memory not available. Avoiding memory overwrite"}));
    }
    log_capture log(2);
    EXPECT_EQ(send_packet_to_synch_agent(10, 2, &payload, "a", 1, nullptr, 1), -1);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(sends.empty());
    expect_connected();
}

TEST_F(SynchSend, WithoutMemorySendsNothingAndKeepsTheConnection) {
    for (const int level : {3, 2}) {
        fail_nth_call("calloc", 1);
        log_capture log(level);
        EXPECT_EQ(send_packet_to_synch_agent(10, 2, nullptr, "a", 1, nullptr, 1), -1);
        EXPECT_EQ(faults_fired("calloc"), 1);
        EXPECT_EQ(log.lines(),
                  level < 3 ? lines()
                            : lines({"send_packet_to_synch_agent: Could not allocate memory for packet buffer"}));
    }
    EXPECT_TRUE(sends.empty());
    expect_connected();
}

lines send_failed(const std::string &why) {
    return {"send_packet_to_synch_agent: error in sending packet to sunch agent. send() failed [" + why + "]"};
}

TEST_F(SynchSend, AShortSendDropsTheConnection) {
    accepted_at_most = 14;
    log_capture log(3);
    EXPECT_EQ(send_packet_to_synch_agent(10, 1, nullptr, "a", 1, nullptr, 2), -1);
    EXPECT_EQ(log.lines(), send_failed("Resource temporarily unavailable"));
    EXPECT_EQ(sends.size(), 1U) << "not tried again";
    expect_dropped();
}

TEST_F(SynchSend, AnAgentThatDoesNotReadLosesTheConnection) {
    const app_data_info_t payload = payload_of(filler(4395));
    log_capture log(3);
    int sent = 0;
    while (send_packet_to_synch_agent(10, 2, &payload, "a", 1, nullptr, 1) == 0)
        ASSERT_LT(++sent, 10000);
    EXPECT_EQ(log.lines(), send_failed("Resource temporarily unavailable"));
    expect_dropped();
}

TEST_F(SynchSend, AFailedSendDropsTheConnection) {
    close_agent();
    log_capture log(3);
    EXPECT_EQ(send_packet_to_synch_agent(10, 1, nullptr, "a", 1, nullptr, 2), -1);
    EXPECT_EQ(log.lines(), send_failed("Broken pipe"));
    expect_dropped();
}

TEST_F(SynchSend, AFailedSendIsAnError) {
    close_agent();
    log_capture log(2);
    EXPECT_EQ(send_packet_to_synch_agent(10, 1, nullptr, "a", 1, nullptr, 2), -1);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SynchSend, WithoutAConnectionEveryPacketFails) {
    break_synch_connection();
    log_capture log(3);
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(send_packet_to_synch_agent(10, 1, nullptr, "a", 1, nullptr, 2), -1);
    const lines one = send_failed("Bad file descriptor");
    EXPECT_EQ(log.lines(), lines({one[0], one[0]}));
    expect_dropped();
}

// --- items ---

TEST(SynchItems, AreAppendedOneAfterTheOther) {
    app_data_info_t info{};
    EXPECT_EQ(fill_app_data_info(&info, "abc", 10, 3), 0);
    EXPECT_EQ(info.data_len, 5);
    EXPECT_EQ(fill_app_data_info(&info, "\x01", 30, 1), 0);
    EXPECT_EQ(bytes(info.data, info.data + info.data_len), (bytes{10, 3, 'a', 'b', 'c', 30, 1, 1}));
}

TEST(SynchItems, MayBeEmpty) {
    app_data_info_t info{};
    EXPECT_EQ(fill_app_data_info(&info, nullptr, 12, 0), 0);
    EXPECT_EQ(bytes(info.data, info.data + info.data_len), (bytes{12, 0}));
}

TEST(SynchItems, MayFillAPayloadToItsLastByte) {
    app_data_info_t info{};
    info.data_len = 4390;
    EXPECT_EQ(fill_app_data_info(&info, "abc", 10, 3), 0);
    EXPECT_EQ(info.data_len, 4395);
    EXPECT_EQ(bytes(info.data + 4390, info.data + 4395), (bytes{10, 3, 'a', 'b', 'c'}));
}

TEST(SynchItems, AnEmptyOneMayBeTheLast) {
    app_data_info_t info{};
    info.data_len = 4393;
    EXPECT_EQ(fill_app_data_info(&info, "", 10, 0), 0);
    EXPECT_EQ(info.data_len, 4395);
}

TEST(SynchItems, AByteTooManyIsRefused) {
    app_data_info_t info{};
    std::memset(info.data, 0xEE, sizeof info.data);
    info.data_len = 4391;
    log_capture log(3);
    EXPECT_EQ(fill_app_data_info(&info, "abc", 10, 3), -1);
    EXPECT_EQ(log.lines(), lines({"fill_app_data_info: Synch agent packet size[4396] exceeding max size[4395]."}));
    EXPECT_EQ(info.data_len, 4391);
    EXPECT_EQ(bytes(info.data, info.data + 4395), bytes(4395, 0xEE));
}

TEST(SynchItems, ARefusalIsAnError) {
    app_data_info_t info{};
    info.data_len = 4394;
    log_capture log(2);
    EXPECT_EQ(fill_app_data_info(&info, "", 10, 0), -1);
    EXPECT_TRUE(log.lines().empty());
}

TEST(SynchItems, AFullPayloadTakesNoMore) {
    app_data_info_t info{};
    info.data_len = 4395;
    log_capture log(3);
    EXPECT_EQ(fill_app_data_info(&info, "", 10, 0), -1);
    EXPECT_EQ(log.lines(), lines({"fill_app_data_info: Synch agent packet size[4397] exceeding max size[4395]."}));
}

TEST(SynchItems, AValueOf255BytesKeepsItsLength) {
    app_data_info_t info{};
    EXPECT_EQ(fill_app_data_info(&info, filler(255).data(), 10, 255), 0);
    EXPECT_EQ(bytes(info.data, info.data + info.data_len), bytes({10, 255}) + filler(255));
}

TEST(SynchItems, ALongerValueIsWholeBehindTheLow8BitsOfItsLength) {
    app_data_info_t info{};
    EXPECT_EQ(fill_app_data_info(&info, filler(4393).data(), 3, 4393), 0);
    EXPECT_EQ(bytes(info.data, info.data + info.data_len), bytes({3, 4393 & 0xFF}) + filler(4393));
}

TEST(SynchItems, ANegativeLengthIsRefusedSilently) {
    app_data_info_t info{};
    info.data_len = 100;
    log_capture log(7);
    EXPECT_EQ(fill_app_data_info(&info, "abc", 10, -1), -1);
    EXPECT_EQ(fill_app_data_info(&info, "abc", 10, INT_MIN), -1);
    EXPECT_EQ(info.data_len, 100);
    EXPECT_TRUE(log.lines().empty());
}

TEST(SynchItems, ALengthNearTheIntegersEndIsRefused) {
    app_data_info_t info{};
    info.data_len = 65535;
    EXPECT_EQ(fill_app_data_info(&info, "abc", 10, INT_MAX), -1);
    EXPECT_EQ(info.data_len, 65535);
}

// --- registration ---

TEST_F(SynchRegistration, StandsOnTheWireByteByByte) {
    EXPECT_EQ(send_register_unregister_req_to_synch_agent(SYNCH_REGISTER, "wl_evt_handler", 1032, "br0.5", "guest", 5),
              0);
    EXPECT_EQ(received_by_agent(),
              (bytes{1,   32,  0,   0,   0,   5,   0,   29,  0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 'g', 'u',
                     'e', 's', 't', 10,  5,   'b', 'r', '0', '.',  '5',  11,   4,    0,    0,    4,   8,
                     12,  14,  'w', 'l', '_', 'e', 'v', 't', '_',  'h',  'a',  'n',  'd',  'l',  'e', 'r'}));
}

TEST_F(SynchRegistration, IsTakenBackByTheSamePacketOfType35) {
    EXPECT_EQ(send_register_unregister_req_to_synch_agent(SYNCH_UNREGISTER, "wl_evt_handler", 1032, "br0", "a", 1), 0);
    EXPECT_EQ(received_by_agent(),
              packet_of(35, 0, "a", bytes{10, 3, 'b', 'r', '0', 11, 4, 0, 0, 4, 8, 12, 14} + text("wl_evt_handler")));
}

TEST_F(SynchRegistration, TakesAnyNumber) {
    EXPECT_EQ(send_register_unregister_req_to_synch_agent(32, "", 0x89ABCDEF, "", "", 0), 0);
    EXPECT_EQ(received_by_agent(), packet_of(32, 0, "", {10, 0, 11, 4, 0x89, 0xAB, 0xCD, 0xEF, 12, 0}));
}

TEST_F(SynchRegistration, NoInterfaceIsAnEmptyName) {
    EXPECT_EQ(send_register_unregister_req_to_synch_agent(32, "w", 1, nullptr, "a", 1), 0);
    EXPECT_EQ(received_by_agent(), packet_of(32, 0, "a", {10, 0, 11, 4, 0, 0, 0, 1, 12, 1, 'w'}));
}

TEST_F(SynchRegistration, ANamesLengthIsTheLow8BitsOfItsOwn) {
    const std::string interface(256 + 3, 'i');
    const std::string application(255, 'w');
    EXPECT_EQ(send_register_unregister_req_to_synch_agent(32, application.c_str(), 1, interface.c_str(), "a", 1), 0);
    EXPECT_EQ(received_by_agent(),
              packet_of(32, 0, "a", bytes{10, 3, 'i', 'i', 'i', 11, 4, 0, 0, 0, 1, 12, 255} + text(application)));
}

TEST_F(SynchRegistration, GivesTheResultOfItsSend) {
    close_agent();
    EXPECT_EQ(send_register_unregister_req_to_synch_agent(32, "w", 1, "br0", "a", 1), -1);
    expect_dropped();
}

// --- dropping the connection ---

TEST_F(SynchBreak, ClosesTheSocketAndForgetsIt) {
    synch_tcp_pkt_info.recvd_len = 20;
    synch_tcp_pkt_info.expected_pkt_len = 30;
    log_capture log(7);
    break_synch_connection();
    expect_dropped();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SynchBreak, RecomputesTheHighestDescriptor) {
    g_reload_cli_fd = 7;
    g_maxfd = 900;
    break_synch_connection();
    EXPECT_EQ(g_maxfd, 7);
}

TEST_F(SynchBreak, LeavesTheOtherDescriptorsWatched) {
    FD_SET(daemon_ + 1, &g_readfds);
    FD_SET(2, &g_readfds);
    break_synch_connection();
    EXPECT_TRUE(FD_ISSET(daemon_ + 1, &g_readfds));
    EXPECT_TRUE(FD_ISSET(2, &g_readfds));
}

TEST_F(SynchBreak, ADescriptorBelow1IsNoConnection) {
    ASSERT_EQ(dup2(daemon_, 0), 0);
    FD_SET(0, &g_readfds);
    for (const int none : {0, -1}) {
        g_synch_sock = none;
        g_maxfd = 900;
        synch_tcp_pkt_info.recvd_len = 20;
        break_synch_connection();
        EXPECT_EQ(g_synch_sock, none);
        EXPECT_TRUE(is_open(0));
        EXPECT_TRUE(FD_ISSET(0, &g_readfds));
        EXPECT_EQ(g_maxfd, 900);
        EXPECT_EQ(profile_updates, 0);
        EXPECT_EQ(synch_tcp_pkt_info.recvd_len, 20);
    }
}

TEST_F(SynchBreak, Descriptor1IsAConnection) {
    ASSERT_EQ(dup2(daemon_, 1), 1);
    FD_SET(1, &g_readfds);
    g_synch_sock = 1;
    break_synch_connection();
    const bool open = is_open(1);
    dup2(2, 1);
    EXPECT_FALSE(open);
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_FALSE(FD_ISSET(1, &g_readfds));
}

}  // namespace
