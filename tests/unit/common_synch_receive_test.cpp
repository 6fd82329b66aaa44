// Receiving from the synch agent: how a packet is put together from a stream, what is made of it, and where the
// connection is dropped.
#include "common_synch_fixture.h"

#include <cerrno>
#include <functional>
#include <sys/ioctl.h>

#include "wl_synch.h"

namespace {

constexpr const char *TRY_AGAIN = "recv() error try again. error Resource temporarily unavailable ";

/// A packet as process_synch_packet got it.
struct processed {
    app_header header;
    bytes appid;  // with the byte behind it
    bytes payload;
};

std::vector<processed> packets;
std::function<void()> on_packet = [] {};
int neighbour_updates;

}  // namespace

/// Stands in for process_synch_packet.
extern "C" void __wrap__Z20process_synch_packetPKhPK10app_header(const uint8_t *payload, const app_header *header) {
    processed packet{*header, {}, bytes(payload, payload + header->payload_len)};
    if (header->appid != nullptr)
        packet.appid.assign(header->appid, header->appid + header->appid_len + 1);
    packet.header.appid = nullptr;
    packets.push_back(packet);
    on_packet();
}

/// Stands in for handle_rf_neighbor_list_update.
extern "C" void __wrap__Z30handle_rf_neighbor_list_updatev() {
    neighbour_updates++;
}

namespace {

class SynchReceive : public SynchProtocol {
protected:
    SynchReceive() {
        packets.clear();
        neighbour_updates = 0;
        on_packet = [] {};
        synch_tcp_pkt_info = {};
    }

    /// Closes so that the daemon's next read gives ECONNRESET.
    void reset_by_agent() {
        ASSERT_EQ(write(daemon_, "x", 1), 1);
        close_agent();
    }

    int unread() const {
        int count = -1;
        EXPECT_EQ(ioctl(daemon_, FIONREAD, &count), 0);
        return count;
    }

    std::string closed() const {
        return "connection close for fd " + std::to_string(daemon_);
    }
};

class SynchReader : public SynchReceive {
protected:
    int read_some() {
        return handle_synch_sock_tcp_read(daemon_, &info_, err_);
    }

    synch_tcp_pkt_info_t info_{};
    char err_[SYNCH_ERROR_SIZE] = "nothing said";
};

using SynchDispatch = SynchReceive;

// --- reading ---

TEST_F(SynchReader, AssemblesAPacketFromOneDelivery) {
    const bytes whole = packet_of(10, 1, "guest", {30, 1, 1});
    deliver(whole);
    EXPECT_EQ(read_some(), 0);
    EXPECT_EQ(info_.expected_pkt_len, 22);
    EXPECT_EQ(info_.recvd_len, 22);
    EXPECT_EQ(bytes(info_.buffer, info_.buffer + 22), whole);
    EXPECT_STREQ(err_, "nothing said");
}

TEST_F(SynchReader, APacketMayBeNothingButItsHeader) {
    deliver(header(36, 0, 0, 0));
    EXPECT_EQ(read_some(), 0);
    EXPECT_EQ(info_.expected_pkt_len, 14);
}

TEST_F(SynchReader, AssemblesAPacketFromSingleBytes) {
    const bytes whole = packet_of(10, 1, "guest", {30, 1, 1});
    for (size_t i = 0; i < whole.size(); i++) {
        deliver({whole[i]});
        // The byte that ends the header leaves the read of the body without any.
        const bool last = i + 1 == whole.size();
        EXPECT_EQ(read_some(), last ? 0 : 1) << i;
        EXPECT_EQ(info_.recvd_len, static_cast<int>(i) + 1);
        EXPECT_STREQ(err_, i < 13 ? "nothing said" : TRY_AGAIN) << i;
    }
    EXPECT_EQ(bytes(info_.buffer, info_.buffer + whole.size()), whole);
}

TEST_F(SynchReader, AssemblesAPacketCutInTwoAnywhere) {
    const bytes whole = packet_of(10, 1, "guest", filler(30));
    for (size_t cut = 1; cut < whole.size(); cut++) {
        info_ = {};
        deliver(bytes(whole.begin(), whole.begin() + static_cast<long>(cut)));
        EXPECT_EQ(read_some(), 1) << cut;
        deliver(bytes(whole.begin() + static_cast<long>(cut), whole.end()));
        EXPECT_EQ(read_some(), 0) << cut;
        EXPECT_EQ(bytes(info_.buffer, info_.buffer + whole.size()), whole) << cut;
    }
}

TEST_F(SynchReader, LeavesTheNextPacketForTheNextCall) {
    const bytes first = packet_of(34, 0, "one", filler(4));
    const bytes second = packet_of(33, 0, "other");
    deliver(first + second);
    EXPECT_EQ(read_some(), 0);
    EXPECT_EQ(bytes(info_.buffer, info_.buffer + info_.recvd_len), first);
    EXPECT_EQ(unread(), static_cast<int>(second.size()));
    info_ = {};
    EXPECT_EQ(read_some(), 0);
    EXPECT_EQ(bytes(info_.buffer, info_.buffer + info_.recvd_len), second);
}

TEST_F(SynchReader, ACompletePacketNeedsNoFurtherRead) {
    deliver(packet_of(10, 1, "a", {30, 1, 1}));
    EXPECT_EQ(read_some(), 0);
    close_agent();
    EXPECT_EQ(read_some(), 0);
}

TEST_F(SynchReader, WithNothingToReadTriesAgain) {
    EXPECT_EQ(read_some(), 1);
    EXPECT_STREQ(err_, TRY_AGAIN);
    EXPECT_EQ(info_.recvd_len, 0);
}

TEST_F(SynchReader, AnInterruptedHeaderIsTriedAgain) {
    deliver(packet_of(10, 1, "a", {30, 1, 1}));
    fail_nth_call("recv", 1, EINTR);
    EXPECT_EQ(read_some(), 1);
    EXPECT_STREQ(err_, "recv() error try again. error Interrupted system call ");
    EXPECT_EQ(read_some(), 0);
}

TEST_F(SynchReader, AnInterruptedBodyIsAnError) {
    deliver(packet_of(10, 1, "a", {30, 1, 1}));
    fail_nth_call("recv", 2, EINTR);
    EXPECT_EQ(read_some(), -1);
    EXPECT_STREQ(err_, "recv() error. error Interrupted system call");
}

TEST_F(SynchReader, ABodyThatIsNotThereYetIsTriedAgain) {
    deliver(header(10, 1, 1, 3));
    EXPECT_EQ(read_some(), 1);
    EXPECT_STREQ(err_, TRY_AGAIN);
    EXPECT_EQ(info_.recvd_len, 14);
    EXPECT_EQ(info_.expected_pkt_len, 18);
}

TEST_F(SynchReader, AnErrorInTheHeaderHasItsNumber) {
    for (const int held : {0, 13}) {
        info_ = {};
        info_.recvd_len = held;
        fail_nth_call("recv", 1, ECONNRESET);
        EXPECT_EQ(read_some(), -1);
        EXPECT_EQ(err_, "recv() error. [" + std::to_string(ECONNRESET) + "]error Connection reset by peer");
    }
}

TEST_F(SynchReader, AnErrorInTheBodyHasNoNumber) {
    deliver(header(10, 1, 1, 3));
    fail_nth_call("recv", 2, ECONNRESET);
    EXPECT_EQ(read_some(), -1);
    EXPECT_STREQ(err_, "recv() error. error Connection reset by peer");
}

TEST_F(SynchReader, ACloseAtAnyByteIsToldWithItsDescriptor) {
    const bytes whole = packet_of(10, 1, "guest", {30, 1, 1});
    for (size_t size = 0; size < whole.size(); size++) {
        info_ = {};
        deliver(bytes(whole.begin(), whole.begin() + static_cast<long>(size)));
        close_agent();
        int result;
        int calls = 0;
        do {
            result = read_some();
            ASSERT_LT(++calls, 4) << size;
        } while (result == 1);
        EXPECT_EQ(result, -1) << size;
        EXPECT_EQ(err_, closed()) << size;
        EXPECT_EQ(info_.recvd_len, static_cast<int>(size));
        close(daemon_);
        connect();
    }
}

TEST_F(SynchReader, ACloseBehindAWholePacketIsForTheNextCall) {
    deliver(packet_of(10, 1, "guest", {30, 1, 1}));
    close_agent();
    EXPECT_EQ(read_some(), 0);
    info_ = {};
    EXPECT_EQ(read_some(), -1);
    EXPECT_EQ(err_, closed());
}

TEST_F(SynchReader, TakesAPacketThatJustFits) {
    const bytes whole = packet_of(10, 2, "", filler(4381));
    ASSERT_EQ(whole.size(), 4395U);
    deliver(whole);
    EXPECT_EQ(read_some(), 0);
    EXPECT_EQ(bytes(info_.buffer, info_.buffer + 4395), whole);
}

TEST_F(SynchReader, TakesAPacketThatJustFitsWithItsApplicationId) {
    const std::string appid(255, 'a');
    const bytes whole = packet_of(10, 2, appid, filler(4395 - 14 - 255));
    deliver(whole);
    EXPECT_EQ(read_some(), 0);
    EXPECT_EQ(bytes(info_.buffer, info_.buffer + 4395), whole);
}

TEST_F(SynchReader, RefusesAPacketThatDoesNotFitBeforeItsBody) {
    deliver(header(10, 2, 0, 4382) + filler(100));
    EXPECT_EQ(read_some(), -1);
    EXPECT_STREQ(err_,
                 "Expected payload len[4382][4396] for app msg type[10] will not fit in total pkt buffer limit 4395");
    EXPECT_EQ(unread(), 100);
}

TEST_F(SynchReader, TheApplicationIdCountsForTheFit) {
    deliver(header(33, 0, 1, 4381));
    EXPECT_EQ(read_some(), -1);
    EXPECT_STREQ(err_,
                 "Expected payload len[4381][4396] for app msg type[33] will not fit in total pkt buffer limit 4395");
}

TEST_F(SynchReader, RefusesTheLargestLengths) {
    deliver(bytes(14, 0xFF));
    EXPECT_EQ(read_some(), -1);
    EXPECT_STREQ(
        err_, "Expected payload len[65535][65804] for app msg type[255] will not fit in total pkt buffer limit 4395");
}

TEST_F(SynchReader, DoesNotAskForTheVersion) {
    bytes whole = packet_of(10, 1, "a", {30, 1, 1});
    whole[0] = 200;
    deliver(whole);
    EXPECT_EQ(read_some(), 0);
}

// --- receiving ---

lines broken(const std::string &why) {
    return {"receive_synch_data: Recv tcp stream failed, err[" + why + "]"};
}

TEST_F(SynchReceive, ActsOnAPacketOnceHoweverItComes) {
    const bytes whole = packet_of(10, 1, "guest", {30, 1, 1}, 2, bytes(MAC, MAC + 6));
    for (const uint8_t byte : whole) {
        EXPECT_TRUE(packets.empty());
        deliver({byte});
        receive_synch_data();
    }
    ASSERT_EQ(packets.size(), 1U);
    const processed &packet = packets[0];
    EXPECT_EQ(packet.header.version, 1);
    EXPECT_EQ(packet.header.app_msg_type, 10);
    EXPECT_EQ(packet.header.packet_path, 2);
    EXPECT_EQ(packet.header.subtype, 1);
    EXPECT_EQ(packet.header.appid_len, 5);
    EXPECT_EQ(packet.header.payload_len, 3);
    EXPECT_EQ(bytes(packet.header.mac, packet.header.mac + 6), bytes(MAC, MAC + 6));
    EXPECT_EQ(packet.appid, text("guest") + bytes{0});
    EXPECT_EQ(packet.payload, (bytes{30, 1, 1}));
    expect_nothing_held();
    expect_connected();
}

TEST_F(SynchReceive, ActsOnOnePacketACall) {
    deliver(packet_of(33, 0, "one") + packet_of(34, 0, "other"));
    receive_synch_data();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].appid, text("one") + bytes{0});
    receive_synch_data();
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[1].appid, text("other") + bytes{0});
    expect_nothing_held();
}

TEST_F(SynchReceive, IsNotConfusedByAnOlderLongerPacket) {
    deliver(packet_of(33, 0, "guest", filler(200)) + packet_of(34, 0));
    receive_synch_data();
    receive_synch_data();
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[1].header.app_msg_type, 34);
    EXPECT_TRUE(packets[1].appid.empty());
    EXPECT_TRUE(packets[1].payload.empty());
}

TEST_F(SynchReceive, TakesAFloodPacketByPacket) {
    const bytes whole = packet_of(33, 0, "guest", filler(700));
    for (int i = 0; i < 40; i++)
        deliver(whole);
    for (int i = 0; i < 40; i++)
        receive_synch_data();
    EXPECT_EQ(packets.size(), 40U);
    EXPECT_EQ(unread(), 0);
    expect_connected();
}

TEST_F(SynchReceive, KeepsAPartWithoutAWord) {
    log_capture log(7);
    receive_synch_data();
    deliver(bytes(7, 1));
    receive_synch_data();
    EXPECT_EQ(synch_tcp_pkt_info.recvd_len, 7);
    fail_nth_call("recv", 1, EINTR);
    receive_synch_data();
    EXPECT_EQ(faults_fired("recv"), 1);
    EXPECT_EQ(synch_tcp_pkt_info.recvd_len, 7);
    EXPECT_TRUE(log.lines().empty());
    expect_connected();
}

TEST_F(SynchReceive, ACloseDropsTheConnection) {
    deliver(bytes(7, 1));
    receive_synch_data();
    close_agent();
    log_capture log(3);
    receive_synch_data();
    EXPECT_EQ(log.lines(), broken(closed()));
    expect_dropped();
}

TEST_F(SynchReceive, ALostConnectionIsAnError) {
    close_agent();
    log_capture log(2);
    receive_synch_data();
    EXPECT_TRUE(log.lines().empty());
    expect_dropped();
}

TEST_F(SynchReceive, AResetDropsTheConnection) {
    reset_by_agent();
    log_capture log(3);
    receive_synch_data();
    EXPECT_EQ(log.lines(), broken("recv() error. [" + std::to_string(ECONNRESET) + "]error Connection reset by peer"));
    expect_dropped();
}

TEST_F(SynchReceive, AResetInTheBodyDropsTheConnection) {
    deliver(header(10, 1, 5, 3));
    receive_synch_data();
    reset_by_agent();
    log_capture log(3);
    receive_synch_data();
    EXPECT_EQ(log.lines(), broken("recv() error. error Connection reset by peer"));
    expect_dropped();
}

TEST_F(SynchReceive, AnInterruptedBodyDropsTheConnection) {
    deliver(packet_of(10, 1, "a", {30, 1, 1}));
    fail_nth_call("recv", 2, EINTR);
    log_capture log(3);
    receive_synch_data();
    EXPECT_EQ(log.lines(), broken("recv() error. error Interrupted system call"));
    EXPECT_TRUE(packets.empty());
    expect_dropped();
}

TEST_F(SynchReceive, APacketThatDoesNotFitDropsTheConnection) {
    deliver(header(10, 2, 0, 4382) + filler(100));
    log_capture log(3);
    receive_synch_data();
    EXPECT_EQ(log.lines(), broken("Expected payload len[4382][4396] for app msg type[10] will not fit in total pkt "
                                  "buffer limit 4395"));
    expect_dropped();
}

TEST_F(SynchReceive, APacketThatDoesNotFitDropsTheConnectionWithTheLastPieceOfItsHeader) {
    const bytes whole = header(10, 2, 0, 4382);
    log_capture log(3);
    for (size_t i = 0; i < 13; i++) {
        deliver({whole[i]});
        receive_synch_data();
        EXPECT_EQ(synch_tcp_pkt_info.recvd_len, static_cast<int>(i) + 1);
    }
    expect_connected();
    EXPECT_TRUE(log.lines().empty());
    deliver({whole[13]});
    receive_synch_data();  // no byte of the body is there yet
    EXPECT_EQ(log.lines(), broken("Expected payload len[4382][4396] for app msg type[10] will not fit in total pkt "
                                  "buffer limit 4395"));
    EXPECT_TRUE(packets.empty());
    expect_dropped();
}

TEST_F(SynchReceive, TheNextConnectionStartsClean) {
    deliver(header(10, 2, 5, 100) + filler(50));
    receive_synch_data();
    close_agent();
    receive_synch_data();
    expect_dropped();
    connect();
    deliver(packet_of(33, 0, "guest"));
    receive_synch_data();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].appid, text("guest") + bytes{0});
}

TEST_F(SynchReceive, AFailedSendForgetsThePacketThatWasBeingReceived) {
    const bytes whole = packet_of(34, 0, "guest", filler(20));
    deliver(bytes(whole.begin(), whole.begin() + 25));
    receive_synch_data();
    EXPECT_EQ(synch_tcp_pkt_info.recvd_len, 25);
    close_agent();
    EXPECT_EQ(send_packet_to_synch_agent(10, 1, nullptr, "a", 1, nullptr, 2), -1);
    expect_dropped();
    connect();
    deliver(packet_of(33, 0, "guest"));
    receive_synch_data();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].header.app_msg_type, 33);
}

TEST_F(SynchReceive, WithoutAConnectionTellsTheErrorAndDropsNone) {
    g_synch_sock = -1;
    synch_tcp_pkt_info.recvd_len = 5;
    log_capture log(3);
    receive_synch_data();
    EXPECT_EQ(log.lines(), broken("recv() error. [9]error Bad file descriptor"));
    EXPECT_EQ(profile_updates, 0);
    expect_nothing_held();
}

TEST_F(SynchReceive, APacketWithoutMemoryIsLostAndTheConnectionKept) {
    for (const int level : {3, 2}) {
        deliver(packet_of(33, 0, "guest"));
        fail_nth_call("calloc", 1);
        log_capture log(level);
        receive_synch_data();
        EXPECT_EQ(faults_fired("calloc"), 1);
        EXPECT_EQ(log.lines(),
                  level < 3 ? lines() : lines({"receive_synch_data: wl-evt-handler handle synch agent packet failed"}));
    }
    EXPECT_TRUE(packets.empty());
    expect_nothing_held();
    expect_connected();
}

TEST_F(SynchReceive, AnAnswerMayDropTheConnection) {
    deliver(packet_of(10, 1, "guest", {30, 1, 1}));
    on_packet = break_synch_connection;
    receive_synch_data();
    EXPECT_EQ(packets.size(), 1U);
    expect_dropped();
}

// --- dispatch ---

/// A packet in a block of its very size.
int handle(const bytes &packet) {
    return handle_synch_packet(packet.data(), static_cast<int>(packet.size()));
}

TEST_F(SynchDispatch, AnswersAndRequestsAreProcessed) {
    for (const uint8_t type : {10, 33, 34})
        for (const uint8_t subtype : {0, 1, 255})
            EXPECT_EQ(handle(packet_of(type, subtype, "a", {1})), 0);
    ASSERT_EQ(packets.size(), 9U);
    EXPECT_EQ(packets[4].header.app_msg_type, 33);
    EXPECT_EQ(packets[4].header.subtype, 1);
    EXPECT_EQ(neighbour_updates, 0);
}

TEST_F(SynchDispatch, AChangeOfTheNeighboursNeedsOnlyItsType) {
    EXPECT_EQ(handle(packet_of(36, 0)), 0);
    EXPECT_EQ(handle(packet_of(36, 7, "guest", filler(9))), 0);
    EXPECT_EQ(neighbour_updates, 2);
    EXPECT_TRUE(packets.empty());
}

TEST_F(SynchDispatch, EveryOtherTypeIsTold) {
    for (int type = 0; type < 256; type++) {
        log_capture log(7);
        EXPECT_EQ(handle(packet_of(static_cast<uint8_t>(type), 1, "a", {1})), 0);
        const bool known = type == 10 || type == 33 || type == 34 || type == 36;
        const std::string received = "handle_synch_packet: Received synch agent packet type : " + std::to_string(type) +
                                     " subtype : 1 for appid(ssid) : [a]";
        const std::string invalid =
            "handle_synch_packet: Invalid message type[" + std::to_string(type) + "] from synch-agent ";
        EXPECT_EQ(log.lines(), known ? lines({received}) : lines({received, invalid}));
    }
    EXPECT_EQ(packets.size(), 3U);
    EXPECT_EQ(neighbour_updates, 1);
    expect_connected();
}

TEST_F(SynchDispatch, AnUnknownTypeIsOnlyToldAtLevel7) {
    log_capture log(6);
    EXPECT_EQ(handle(packet_of(99, 1)), 0);
    EXPECT_EQ(log.lines(),
              lines({"handle_synch_packet: Received synch agent packet type : 99 subtype : 1 for appid(ssid) : []"}));
}

TEST_F(SynchDispatch, APacketIsToldAtLevel2) {
    {
        log_capture log(2);
        EXPECT_EQ(handle(packet_of(33, 4, "guest net")), 0);
        EXPECT_EQ(
            log.lines(),
            lines({"handle_synch_packet: Received synch agent packet type : 33 subtype : 4 for appid(ssid) : [guest "
                   "net]"}));
    }
    log_capture log(1);
    EXPECT_EQ(handle(packet_of(33, 4, "guest net")), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SynchDispatch, WithoutAnApplicationIdThereIsNoText) {
    EXPECT_EQ(handle(packet_of(33, 0, "", {1, 2})), 0);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_TRUE(packets[0].appid.empty()) << "null";
    EXPECT_EQ(packets[0].payload, (bytes{1, 2}));
}

TEST_F(SynchDispatch, AnApplicationIdMayHoldANul) {
    log_capture log(2);
    EXPECT_EQ(handle(packet_of(33, 0, std::string("a\0b", 3), {9})), 0);
    EXPECT_EQ(log.lines(),
              lines({"handle_synch_packet: Received synch agent packet type : 33 subtype : 0 for appid(ssid) : [a]"}));
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].header.appid_len, 3);
    EXPECT_EQ(packets[0].appid, (bytes{'a', 0, 'b', 0}));
    EXPECT_EQ(packets[0].payload, bytes{9});
}

TEST_F(SynchDispatch, TakesTheLongestApplicationId) {
    const std::string appid(255, 'a');
    EXPECT_EQ(handle(packet_of(33, 0, appid)), 0);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].appid, text(appid) + bytes{0});
}

lines mismatch(int expected, int there) {
    return {"handle_synch_packet: Expected tlv len [" + std::to_string(expected) + "] is not equal to buf len [" +
            std::to_string(there) + "]"};
}

TEST_F(SynchDispatch, APayloadOfAnotherLengthIsRefused) {
    {
        log_capture log(3);
        EXPECT_EQ(handle(header(33, 0, 2, 5) + filler(6)), -1);
        EXPECT_EQ(log.lines(), mismatch(5, 4));
    }
    {
        log_capture log(3);
        EXPECT_EQ(handle(header(33, 0, 2, 5) + filler(8)), -1);
        EXPECT_EQ(log.lines(), mismatch(5, 6));
    }
    log_capture log(2);
    EXPECT_EQ(handle(header(33, 0, 2, 5) + filler(8)), -1);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(packets.empty());
    expect_connected();
}

TEST_F(SynchDispatch, AnApplicationIdBehindThePacketsEndIsRefused) {
    log_capture log(3);
    EXPECT_EQ(handle(header(33, 0, 200, 0) + filler(10)), -1);
    EXPECT_EQ(log.lines(), mismatch(0, -190));
}

TEST_F(SynchDispatch, APacketWithoutAWholeHeaderIsRefused) {
    const bytes whole = header(33, 0, 5, 0x0102);
    for (int size = 0; size < 14; size++) {
        log_capture log(3);
        EXPECT_EQ(handle(bytes(whole.begin(), whole.begin() + size)), -1);
        const int payload = size < 7 ? 0 : size < 8 ? 0x0100 : 0x0102;
        EXPECT_EQ(log.lines(), mismatch(payload, size - (size < 6 ? 0 : 5) - 14)) << size;
    }
    log_capture log(3);
    EXPECT_EQ(handle_synch_packet(whole.data(), -1), -1);
    EXPECT_EQ(log.lines(), mismatch(0, -15));
    EXPECT_TRUE(packets.empty());
}

TEST_F(SynchDispatch, WithoutMemoryForTheApplicationIdDoesNothing) {
    fail_nth_call("calloc", 1);
    log_capture log(7);
    EXPECT_EQ(handle(packet_of(33, 0, "guest")), -1);
    EXPECT_EQ(handle(packet_of(33, 0)), 0) << "it needs none";
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_EQ(packets.size(), 1U);
    EXPECT_EQ(log.lines(),
              lines({"handle_synch_packet: Received synch agent packet type : 33 subtype : 0 for appid(ssid) : []"}));
}

}  // namespace
