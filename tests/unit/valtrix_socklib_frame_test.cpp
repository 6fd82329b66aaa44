#include "valtrix_socklib.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <poll.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "fault.h"
#include "valtrix_socklib_expect.h"

namespace {

using octets = std::vector<uint8_t>;

std::string hex(const octets &bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

octets part(const octets &bytes, size_t at, size_t size) {
    const auto begin = bytes.begin() + static_cast<ptrdiff_t>(std::min(at, bytes.size()));
    return {begin, begin + static_cast<ptrdiff_t>(std::min(size, static_cast<size_t>(bytes.end() - begin)))};
}

octets bytes_of(const std::string &text) {
    return {text.begin(), text.end()};
}

// Checksums, reckoned another way than by a wide sum that is folded: in sixteen bits, one word after the other.

struct word_sum {
    uint16_t low = 0;         // of the sum
    uint32_t overflows = 0;   // of `low`
    uint16_t end_around = 0;  // each overflow added in where it happens: no carry is ever lost

    void add(uint16_t word) {
        low = static_cast<uint16_t>(low + word);
        overflows += low < word ? 1 : 0;
        end_around = static_cast<uint16_t>(end_around + word);
        end_around = static_cast<uint16_t>(end_around + (end_around < word ? 1 : 0));
    }
    void add(const octets &bytes) {
        for (size_t at = 0; at < bytes.size(); at += 2)
            add(static_cast<uint16_t>(bytes[at] * 256 + (at + 1 < bytes.size() ? bytes[at + 1] : 0)));
    }
    uint16_t with_one_carry() const {
        return static_cast<uint16_t>(0xffff - static_cast<uint16_t>(low + overflows));
    }
    uint16_t with_every_carry() const {
        return static_cast<uint16_t>(0xffff - end_around);
    }
};

/// Sets the two bytes at `at` to 0.
octets without(octets bytes, size_t at) {
    bytes[at] = 0;
    bytes[at + 1] = 0;
    return bytes;
}

word_sum ip_sum(const octets &header) {
    word_sum sum;
    sum.add(without(header, 10));
    return sum;
}

word_sum udp_sum(const octets &ip, const octets &udp, const octets &data) {
    word_sum sum;
    sum.add(part(ip, 12, 8));
    sum.add(17);
    sum.add(static_cast<uint16_t>(data.size() + 8));
    sum.add(without(udp, 6));
    sum.add(data);
    return sum;
}

/// @param offset  where the header lies behind an address that is a multiple of 16
/// @return the header with the checksum that the library fills in
octets with_ip_checksum(const octets &header, size_t offset = 0) {
    alignas(16) uint8_t memory[80];
    std::fill_n(memory, sizeof memory, uint8_t{0xee});
    std::copy(header.begin(), header.end(), memory + offset);
    socklib_get_ip_checksum(reinterpret_cast<iphdr *>(memory + offset));
    return {memory + offset, memory + offset + header.size()};
}

octets with_udp_checksum(const octets &ip, const octets &udp, const octets &data, size_t offset = 0) {
    alignas(16) uint8_t memory[48];
    uint8_t *const ip_at = memory + offset;
    uint8_t *const udp_at = ip_at + ip.size();
    std::copy(ip.begin(), ip.end(), ip_at);
    std::copy(udp.begin(), udp.end(), udp_at);
    socklib_get_udp_checksum(reinterpret_cast<udphdr *>(udp_at), reinterpret_cast<const iphdr *>(ip_at), data.data(),
                             data.size());
    EXPECT_TRUE(std::equal(ip.begin(), ip.end(), ip_at));
    return {udp_at, udp_at + udp.size()};
}

uint16_t word_at(const octets &bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] * 256 + bytes[at + 1]);
}

octets random_octets(std::mt19937 &random, size_t size) {
    octets bytes(size);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random() >> 24);
    return bytes;
}

/// A header of UDP as it goes before so much data.
octets udp_header_for(octets ports, size_t data_size) {
    const size_t length = data_size + 8;
    ports.push_back(static_cast<uint8_t>(length >> 8));
    ports.push_back(static_cast<uint8_t>(length));
    ports.insert(ports.end(), {0xde, 0xad});  // whatever stands in the checksum's place
    return ports;
}

TEST(IpChecksum, OfAKnownHeader) {
    const octets header = {0x45, 0, 0, 0x23, 0, 0, 0, 0, 1, 17, 0, 0, 10, 1, 2, 3, 192, 168, 7, 9};
    EXPECT_EQ(hex(with_ip_checksum(header)), "45000023000000000111e6150a010203c0a80709");
}

TEST(IpChecksum, WhatStandsInItsPlaceDoesNotCount) {
    const octets header = {0x45, 0, 0, 0x23, 0, 0, 0, 0, 1, 17, 0xab, 0xcd, 10, 1, 2, 3, 192, 168, 7, 9};
    EXPECT_EQ(hex(with_ip_checksum(header)), "45000023000000000111e6150a010203c0a80709");
}

TEST(IpChecksum, CoversTheHeadersOwnLength) {
    for (uint8_t words = 5; words <= 15; ++words) {
        octets header(size_t{words} * 4, 0);
        header[0] = static_cast<uint8_t>(0x40 + words);
        header.back() = 1;
        header.resize(60, 0xee);  // what follows is not the header's
        const uint16_t expected = static_cast<uint16_t>(0xffff - (0x4000 + words * 256 + 1));
        EXPECT_EQ(word_at(with_ip_checksum(header), 10), expected) << int{words};
    }
}

TEST(IpChecksum, HeaderMayLieAnywhere) {
    const octets header = {0x45, 0, 0, 0x23, 0, 0, 0, 0, 1, 17, 0, 0, 10, 1, 2, 3, 192, 168, 7, 9};
    for (size_t offset = 0; offset < 16; ++offset)
        EXPECT_EQ(word_at(with_ip_checksum(header, offset), 10), 0xe615) << offset;
}

TEST(IpChecksum, CarryIsAddedInOnce) {
    octets header(60, 0);
    std::fill_n(header.begin(), 4, uint8_t{0xff});
    header[5] = 1;
    EXPECT_EQ(word_at(with_ip_checksum(header), 10), 0xffff);
    EXPECT_EQ(ip_sum(header).with_every_carry(), 0xfffe);
}

TEST(IpChecksum, AgreesWithTheReckoningInSixteenBits) {
    std::mt19937 random(20240305);
    int carries_lost = 0;
    for (int round = 0; round < 30000; ++round) {
        const size_t words = 5 + random() % 11;
        octets header = random_octets(random, words * 4);
        header[0] = static_cast<uint8_t>(0x40 + words);
        const octets filled = with_ip_checksum(header);
        const word_sum sum = ip_sum(header);
        ASSERT_EQ(word_at(filled, 10), sum.with_one_carry()) << hex(header);
        ASSERT_EQ(without(filled, 10), without(header, 10));
        carries_lost += sum.with_one_carry() != sum.with_every_carry() ? 1 : 0;
    }
    RecordProperty("carries_lost", carries_lost);
    EXPECT_GT(carries_lost, 0);
    EXPECT_LT(carries_lost, 30);
}

const octets NO_ADDRESSES(20, 0);

TEST(UdpChecksum, OfAKnownPacket) {
    const octets ip = {0x45, 0, 0, 0x23, 0, 0, 0, 0, 1, 17, 0, 0, 10, 1, 2, 3, 192, 168, 7, 9};
    EXPECT_EQ(hex(with_udp_checksum(ip, udp_header_for({0x02, 0x02, 0x14, 0x14}, 7), bytes_of("<14>up!"))),
              "02021414000f0f25");
}

TEST(UdpChecksum, HeadersMayLieAnywhere) {
    const octets ip = {0x45, 0, 0, 0x23, 0, 0, 0, 0, 1, 17, 0, 0, 10, 1, 2, 3, 192, 168, 7, 9};
    const octets udp = udp_header_for({0x02, 0x02, 0x14, 0x14}, 7);
    for (size_t offset = 0; offset < 16; ++offset)
        EXPECT_EQ(word_at(with_udp_checksum(ip, udp, bytes_of("<14>up!"), offset), 6), 0x0f25) << offset;
}

TEST(UdpChecksum, OnlyTheAddressesOfTheIpHeaderCount) {
    octets ip = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 10, 1, 2, 3, 192, 168, 7, 9};
    EXPECT_EQ(hex(with_udp_checksum(ip, udp_header_for({0x02, 0x02, 0x14, 0x14}, 7), bytes_of("<14>up!"))),
              "02021414000f0f25");
}

TEST(UdpChecksum, OddLastByteIsTheFirstOfItsWord) {
    const octets udp = udp_header_for({0, 0, 0, 0}, 1);
    // 0x11 + 9 + 9 + 0xab00
    EXPECT_EQ(word_at(with_udp_checksum(NO_ADDRESSES, udp, {0xab}), 6), 0xffff - 0xab23);
}

TEST(UdpChecksum, WithoutData) {
    iphdr ip{};
    udphdr udp{};
    udp.len = htons(8);
    socklib_get_udp_checksum(&udp, &ip, nullptr, 0);
    EXPECT_EQ(udp.check, htons(0xffff - 0x11 - 8 - 8));
}

TEST(UdpChecksum, OfZeroStaysZero) {
    // 0x11 + 10 + 10 + 0xffda is 0xffff.
    const octets udp = udp_header_for({0, 0, 0, 0}, 2);
    EXPECT_EQ(hex(with_udp_checksum(NO_ADDRESSES, udp, {0xff, 0xda})), "00000000000a0000");
}

TEST(UdpChecksum, CarryIsAddedInOnce) {
    // 0x11 + 14 + 14 + 0xffff + 0xffd3 is 0x1ffff.
    const octets udp = udp_header_for({0, 0, 0, 0}, 6);
    const octets data = {0xff, 0xff, 0xff, 0xd3, 0, 0};
    EXPECT_EQ(word_at(with_udp_checksum(NO_ADDRESSES, udp, data), 6), 0xffff);
    EXPECT_EQ(udp_sum(NO_ADDRESSES, udp, data).with_every_carry(), 0xfffe);
}

TEST(UdpChecksum, OfTheLongestPacketOfOnes) {
    octets ip(20, 0xff);
    const octets data(65507, 0xff);
    const octets udp = udp_header_for({0xff, 0xff, 0xff, 0xff}, data.size());
    EXPECT_EQ(word_at(with_udp_checksum(ip, udp, data), 6), udp_sum(ip, udp, data).with_one_carry());
}

TEST(UdpChecksum, AgreesWithTheReckoningInSixteenBits) {
    std::mt19937 random(514);
    int carries_lost = 0;
    int odd = 0;
    for (int round = 0; round < 30000; ++round) {
        const octets ip = random_octets(random, 20);
        const octets data = random_octets(random, random() % (round % 10 == 0 ? 1473 : 200));
        const octets udp = udp_header_for(random_octets(random, 4), data.size());
        const octets filled = with_udp_checksum(ip, udp, data);
        const word_sum sum = udp_sum(ip, udp, data);
        ASSERT_EQ(word_at(filled, 6), sum.with_one_carry()) << hex(ip) << " " << hex(udp) << " " << hex(data);
        ASSERT_EQ(without(filled, 6), without(udp, 6));
        carries_lost += sum.with_one_carry() != sum.with_every_carry() ? 1 : 0;
        odd += static_cast<int>(data.size() % 2);
    }
    RecordProperty("carries_lost", carries_lost);
    EXPECT_GT(carries_lost, 0);
    EXPECT_LT(carries_lost, 300);
    EXPECT_GT(odd, 10000);
}

// Frames. The raw socket is one end of a pair: what is written in one go is one message at the other end.

/// What is sent, with texts for the addresses.
struct order {
    const char *device = "nosuch0";
    const char *src_mac = "02:11:22:33:44:55";
    const char *src_ip = "10.1.2.3";
    uint16_t src_port = 514;
    const char *dst_mac = "0A:0b:0C:0d:0E:0f";
    const char *dst_ip = "192.168.7.9";
    uint16_t dst_port = 5140;
    octets data = bytes_of("<14>up!");
};

int send(int raw_socket, const order &what) {
    return socklib_send_eth_raw(raw_socket, what.device, what.src_mac, what.src_ip, what.src_port, what.dst_mac,
                                what.dst_ip, what.dst_port, what.data.data(), what.data.size());
}

class RawFrame : public testing::Test {
protected:
    RawFrame() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
    }
    ~RawFrame() override {
        clear_faults();
        close(ends[0]);
        close(ends[1]);
    }
    /// The next frame; empty when there is none.
    octets frame() {
        octets bytes(70000);
        const ssize_t size = recv(ends[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
        return bytes;
    }
    /// The one frame that this order makes.
    octets frame_of(const order &what) {
        EXPECT_EQ(send(ends[0], what), 0);
        octets got = frame();
        EXPECT_EQ(frame(), octets());
        EXPECT_EQ(got.size(), what.data.size() + 42);
        got.resize(what.data.size() + 42);
        return got;
    }
    /// Expects that nothing is sent and that the last line of the log, an error's, names the addresses.
    void expect_refused(const order &what, const std::string &addresses) {
        log_capture log(3);
        EXPECT_EQ(send(ends[0], what), -1);
        const std::vector<std::string> lines = log.lines();
        ASSERT_FALSE(lines.empty()) << addresses;
        EXPECT_EQ(lines.back(), "socklib_send_eth_raw: invalid address, " + addresses);
        EXPECT_EQ(frame(), octets());
    }
    std::string destination_mac_of(const order &what) {
        return hex(part(frame_of(what), 0, 6));
    }
    int ends[2];
};

TEST_F(RawFrame, EveryByte) {
    EXPECT_EQ(hex(frame_of({})), "0a0b0c0d0e0f"  // destination
                                 "021122334455"  // source
                                 "0800"          // IPv4
                                 "4500"          // version 4, 5 words, service 0
                                 "0023"          // total length 35
                                 "0000"
                                 "0000"  // identification, flags and offset
                                 "01"
                                 "11"    // TTL 1, UDP
                                 "e615"  // checksum
                                 "0a010203"
                                 "c0a80709"  // source, destination
                                 "0202"
                                 "1414"
                                 "000f"              // ports 514 and 5140, length 15
                                 "0f25"              // checksum
                                 "3c31343e757021");  // data
}

TEST_F(RawFrame, IsSentSilently) {
    expect_no_line([&] { EXPECT_EQ(send(ends[0], {}), 0); });
}

TEST_F(RawFrame, WithoutAddressesFromNoOneToEveryone) {
    order what;
    what.src_mac = what.src_ip = what.dst_mac = what.dst_ip = nullptr;
    what.src_port = what.dst_port = 0;
    what.data = {};
    EXPECT_EQ(hex(frame_of(what)), "ffffffffffff0000000000000800"
                                   "4500001c000000000111b9d200000000ffffffff"
                                   "000000000008ffde");
}

TEST_F(RawFrame, WithoutADeviceEither) {
    order what;
    what.device = what.src_mac = what.src_ip = nullptr;
    const octets got = frame_of(what);
    EXPECT_EQ(hex(part(got, 6, 6)), "000000000000");
    EXPECT_EQ(hex(part(got, 26, 4)), "00000000");
}

TEST_F(RawFrame, EachMissingAddressHasItsOwnDefault) {
    order what;
    what.src_mac = nullptr;
    EXPECT_EQ(hex(part(frame_of(what), 0, 12)), "0a0b0c0d0e0f000000000000");
    what = {};
    what.src_ip = nullptr;
    EXPECT_EQ(hex(part(frame_of(what), 26, 8)), "00000000c0a80709");
    what = {};
    what.dst_mac = nullptr;
    EXPECT_EQ(hex(part(frame_of(what), 0, 12)), "ffffffffffff021122334455");
    what = {};
    what.dst_ip = nullptr;
    EXPECT_EQ(hex(part(frame_of(what), 26, 8)), "0a010203ffffffff");
}

TEST_F(RawFrame, LoopbackDeviceHasAnAddress) {
    order what;
    what.device = "lo";
    what.src_mac = what.src_ip = nullptr;
    const octets got = frame_of(what);
    EXPECT_EQ(hex(part(got, 6, 6)), "000000000000");
    EXPECT_EQ(hex(part(got, 26, 4)), "7f000001");
}

TEST_F(RawFrame, PortsMayBeAnything) {
    for (const auto &[source, destination, expected] :
         {std::tuple<uint16_t, uint16_t, const char *>{0, 65535, "0000ffff"},
          {65535, 0, "ffff0000"},
          {1, 256, "00010100"}}) {
        order what;
        what.src_port = source;
        what.dst_port = destination;
        EXPECT_EQ(hex(part(frame_of(what), 34, 4)), expected);
    }
}

TEST_F(RawFrame, GroupHasItsOwnMacWhateverTheGivenOne) {
    const std::pair<const char *, const char *> groups[] = {
        {"239.1.2.3", "01005e010203"},   {"239.129.2.3", "01005e010203"},     {"224.0.0.0", "01005e000000"},
        {"224.0.0.251", "01005e0000fb"}, {"239.255.255.255", "01005e7fffff"}, {"230.255.0.128", "01005e7f0080"},
    };
    for (const auto &[group, mac] : groups) {
        order what;
        what.dst_ip = group;
        EXPECT_EQ(destination_mac_of(what), mac) << group;
        what.dst_mac = nullptr;
        EXPECT_EQ(destination_mac_of(what), mac) << group;
    }
}

TEST_F(RawFrame, OtherDestinationsKeepTheGivenMac) {
    for (const char *ip : {"223.255.255.255", "240.0.0.0", "255.255.255.255", "0.0.0.0", "10.224.239.255"}) {
        order what;
        what.dst_ip = ip;
        EXPECT_EQ(destination_mac_of(what), "0a0b0c0d0e0f") << ip;
    }
    order what;
    what.dst_ip = nullptr;
    EXPECT_EQ(destination_mac_of(what), "0a0b0c0d0e0f");
}

TEST_F(RawFrame, SourceOfAGroupsAddressKeepsItsMac) {
    order what;
    what.src_ip = "239.1.2.3";
    EXPECT_EQ(hex(part(frame_of(what), 0, 12)), "0a0b0c0d0e0f021122334455");
}

TEST_F(RawFrame, TextThatIsNoMacIsRefused) {
    for (const std::string text : {"", "02:11:22:33:44", "02:11:22:33:44:5", "02-11-22-33-44-55", "0g:11:22:33:44:55",
                                   "021122334455", "2:11:22:33:44:555"}) {
        order what;
        what.src_mac = text.c_str();
        expect_refused(what, "source [" + text + "][10.1.2.3] destination [0A:0b:0C:0d:0E:0f][192.168.7.9]");
        what = {};
        what.dst_mac = text.c_str();
        expect_refused(what, "source [02:11:22:33:44:55][10.1.2.3] destination [" + text + "][192.168.7.9]");
    }
}

TEST_F(RawFrame, TextThatIsNoIpAddressIsRefused) {
    for (const std::string text :
         {"", "10.1.2", "10.1.2.256", "10.1.2.3.4", " 10.1.2.3", "10.1.2.3 ", "::1", "collector"}) {
        order what;
        what.src_ip = text.c_str();
        what.dst_mac = nullptr;
        expect_refused(what, "source [02:11:22:33:44:55][" + text + "] destination [(null)][192.168.7.9]");
        what = {};
        what.dst_ip = text.c_str();
        what.src_mac = nullptr;
        expect_refused(what, "source [(null)][10.1.2.3] destination [0A:0b:0C:0d:0E:0f][" + text + "]");
    }
}

TEST_F(RawFrame, TextThatIsNoMacIsRefusedForAGroupToo) {
    order what;
    what.dst_mac = "group";
    what.dst_ip = "239.1.2.3";
    expect_refused(what, "source [02:11:22:33:44:55][10.1.2.3] destination [group][239.1.2.3]");
}

/// Whether a frame is this order's, by the test's own reckoning.
void expect_lengths_checksums_and_data(const octets &got, const octets &data) {
    const octets ip = part(got, 14, 20);
    const octets udp = part(got, 34, 8);
    EXPECT_EQ(word_at(ip, 2), data.size() + 28);
    EXPECT_EQ(word_at(udp, 4), data.size() + 8);
    EXPECT_EQ(word_at(ip, 10), ip_sum(ip).with_one_carry());
    EXPECT_EQ(word_at(udp, 6), udp_sum(ip, udp, data).with_one_carry());
    EXPECT_EQ(part(got, 42, got.size()), data);
}

TEST_F(RawFrame, DataOfAnyLengthThatFits) {
    std::mt19937 random(42);
    for (const size_t size : {0u, 1u, 2u, 3u, 63u, 64u, 1471u, 1472u, 1473u, 4095u, 65506u, 65507u}) {
        order what;
        what.data = random_octets(random, size);
        expect_lengths_checksums_and_data(frame_of(what), what.data);
    }
}

TEST_F(RawFrame, DataMayHoldAnyByte) {
    order what;
    what.data.clear();
    for (int byte = 0; byte < 256; ++byte)
        what.data.push_back(static_cast<uint8_t>(byte));
    expect_lengths_checksums_and_data(frame_of(what), what.data);
}

TEST_F(RawFrame, WithoutDataNoneIsRead) {
    EXPECT_EQ(socklib_send_eth_raw(ends[0], "nosuch0", nullptr, nullptr, 1, nullptr, nullptr, 2, nullptr, 0), 0);
    EXPECT_EQ(frame().size(), 42u);
}

TEST_F(RawFrame, DataThatDoesNotFitIsRefused) {
    const octets data(65508);
    for (const size_t size : {size_t{65508}, size_t{65536}, SIZE_MAX - 41, SIZE_MAX}) {
        expect_line(3, "socklib_send_eth_raw: data of " + std::to_string(size) + " bytes does not fit in a packet",
                    [&] {
                        EXPECT_EQ(socklib_send_eth_raw(ends[0], "nosuch0", nullptr, nullptr, 1, nullptr, nullptr, 2,
                                                       data.data(), size),
                                  -1);
                    });
    }
    EXPECT_EQ(frame(), octets());
}

TEST_F(RawFrame, ChecksumOfZeroIsSentAsZero) {
    order what;
    what.src_ip = what.dst_ip = "0.0.0.0";
    what.src_port = what.dst_port = 0;
    what.data = {0xff, 0xda};
    EXPECT_EQ(hex(part(frame_of(what), 34, 10)), "00000000000a0000ffda");
}

TEST_F(RawFrame, MemoryShortIsReported) {
    expect_line(3, "socklib_send_eth_raw: no memory for a frame of 49 bytes", [&] {
        fail_nth_call("malloc", 1);
        EXPECT_EQ(send(ends[0], {}), -1);
        EXPECT_EQ(faults_fired("malloc"), 1);
        clear_faults();
    });
    EXPECT_EQ(frame(), octets());
}

TEST_F(RawFrame, FailedWriteIsReported) {
    expect_line(3, "socklib_send_eth_raw: send failed on socket", [] { EXPECT_EQ(send(-1, {}), -1); });
}

TEST_F(RawFrame, WriteOfAPartIsReported) {
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_NONBLOCK | O_CLOEXEC), 0);
    const int capacity = fcntl(pipe_ends[1], F_GETPIPE_SZ);
    order what;
    what.data.resize(65507, 'x');
    ASSERT_LT(static_cast<size_t>(capacity), what.data.size() + 42);
    log_capture log;
    EXPECT_EQ(send(pipe_ends[1], what), -1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"socklib_send_eth_raw: send failed on socket"});
    octets bytes(70000);
    EXPECT_EQ(read(pipe_ends[0], bytes.data(), bytes.size()), capacity);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

/// A cable of the sandbox: "sock0" sends; "sock1" is the other end.
class RawFrameDevice : public RawFrame {
protected:
    void SetUp() override {
        if (std::system("ip link add sock0 address 02:00:00:00:00:01 type veth "
                        "peer name sock1 address 02:00:00:00:00:02 2>/dev/null") != 0)
            GTEST_SKIP() << "`ip link add` is refused here, so there is no device to send from";
    }
    void TearDown() override {
        EXPECT_EQ(std::system("ip link del sock0 2>/dev/null || true"), 0);
    }
};

TEST_F(RawFrameDevice, ItsOwnAddressesAreTheSource) {
    ASSERT_EQ(std::system("ip addr add 10.1.2.3/24 dev sock0"), 0);
    order what;
    what.device = "sock0";
    what.src_mac = what.src_ip = nullptr;
    const octets got = frame_of(what);
    EXPECT_EQ(hex(part(got, 6, 6)), "020000000001");
    EXPECT_EQ(hex(part(got, 26, 4)), "0a010203");
}

TEST_F(RawFrameDevice, GivenAddressesGoBeforeItsOwn) {
    ASSERT_EQ(std::system("ip addr add 10.1.2.77/24 dev sock0"), 0);
    order what;
    what.device = "sock0";
    const octets got = frame_of(what);
    EXPECT_EQ(hex(part(got, 6, 6)), "021122334455");
    EXPECT_EQ(hex(part(got, 26, 4)), "0a010203");
}

TEST_F(RawFrameDevice, WithoutAnIpAddressTheSourceIsZero) {
    order what;
    what.device = "sock0";
    what.src_mac = what.src_ip = nullptr;
    const octets got = frame_of(what);
    EXPECT_EQ(hex(part(got, 6, 6)), "020000000001");
    EXPECT_EQ(hex(part(got, 26, 4)), "00000000");
}

/// Sends until the collector has it: a cable drops what comes before it has noticed that it is plugged in.
octets send_until_received(int raw_socket, const order &what, int collector) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        EXPECT_EQ(send(raw_socket, what), 0);
        pollfd waiting = {collector, POLLIN, 0};
        if (poll(&waiting, 1, 100) != 1)
            continue;
        octets got(2000);
        const ssize_t size = recv(collector, got.data(), got.size(), 0);
        got.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
        return got;
    }
    return {};
}

TEST_F(RawFrameDevice, TheKernelAtTheOtherEndTakesThePacket) {
    ASSERT_EQ(std::system("ip addr add 10.1.2.3/24 dev sock1 && ip link set sock0 up && ip link set sock1 up"), 0);
    const int collector = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr("10.1.2.3");
    address.sin_port = htons(5140);
    ASSERT_EQ(bind(collector, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const int raw = socklib_open_socket_raw("sock0", 0, 0x0800);
    ASSERT_GE(raw, 0);
    order what;
    what.device = "sock0";
    what.src_ip = "10.1.2.9";
    what.dst_mac = "02:00:00:00:00:02";
    what.dst_ip = "10.1.2.3";
    EXPECT_EQ(send_until_received(raw, what, collector), what.data);
    close(raw);
    close(collector);
}

}  // namespace
