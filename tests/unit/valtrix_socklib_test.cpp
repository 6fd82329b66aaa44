#include "valtrix_socklib.h"

#include <arpa/inet.h>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "valtrix_socklib_expect.h"

extern "C" int mac_round_trip_from_c();

namespace {

using bytes = std::vector<uint8_t>;

/// The address as it lies on the wire.
uint32_t wire_address(uint8_t first, uint8_t second, uint8_t third, uint8_t fourth) {
    const uint8_t octets[4] = {first, second, third, fourth};
    uint32_t address;
    std::memcpy(&address, octets, sizeof address);
    return address;
}

/// A zero-terminated text in a block of exactly its size, so that a sanitizer sees a read beyond it.
std::unique_ptr<char[]> exact_text(const std::string &text) {
    auto block = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(block.get(), text.c_str(), text.size() + 1);
    return block;
}

bytes random_bytes(std::mt19937 &random, size_t count) {
    bytes data(count);
    for (uint8_t &byte : data)
        byte = static_cast<uint8_t>(random());
    return data;
}

// Byte order

TEST(SocklibByteOrder, ShortsTravelHighByteFirst) {
    const uint16_t wire = socklib_htons(0x1234);
    EXPECT_EQ(std::memcmp(&wire, "\x12\x34", 2), 0);
    EXPECT_EQ(socklib_ntohs(wire), 0x1234);
}

TEST(SocklibByteOrder, LongsTravelHighByteFirst) {
    const uint32_t wire = socklib_htonl(0x12345678);
    EXPECT_EQ(std::memcmp(&wire, "\x12\x34\x56\x78", 4), 0);
    EXPECT_EQ(socklib_ntohl(wire), 0x12345678u);
}

TEST(SocklibByteOrder, SixtyFourBitsStayAsTheyAre) {
    EXPECT_EQ(socklib_htonll(0x0123456789abcdefu), 0x0123456789abcdefu);
    EXPECT_EQ(socklib_ntohll(0xfedcba9876543210u), 0xfedcba9876543210u);
}

// MAC texts

constexpr uint8_t MAC[6] = {0x00, 0x0a, 0x5e, 0xff, 0x80, 0x01};

TEST(SocklibMacNtoa, WritesUpperCasePairsAndReturnsTheBuffer) {
    char text[18];
    EXPECT_EQ(socklib_mac_ntoa(MAC, 6, text, sizeof text), text);
    EXPECT_STREQ(text, "00:0A:5E:FF:80:01");
}

TEST(SocklibMacNtoa, WritesNotMoreThanEighteenBytesOfALargerBuffer) {
    char text[24];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(socklib_mac_ntoa(MAC, 6, text, sizeof text), text);
    EXPECT_EQ(std::string(text + 18, 6), "######");
}

TEST(SocklibMacNtoa, NullAddressFailsSilentlyBeforeTheLengthsAreLookedAt) {
    char text[18];
    expect_no_line([&] { EXPECT_EQ(socklib_mac_ntoa(nullptr, 5, text, 1), nullptr); });
}

TEST(SocklibMacNtoa, NullOutputFails) {
    expect_no_line([] { EXPECT_EQ(socklib_mac_ntoa(MAC, 6, nullptr, 18), nullptr); });
}

TEST(SocklibMacNtoa, OtherLengthThanSixFailsBeforeTheOutputIsLookedAt) {
    char text[18] = "kept";
    for (const int length : {5, 7, 0, -1})
        expect_line(3, "socklib_mac_ntoa: Invalid mac_addr_len [" + std::to_string(length) + "]",
                    [&] { EXPECT_EQ(socklib_mac_ntoa(MAC, length, text, 1), nullptr); });
    EXPECT_STREQ(text, "kept");
}

TEST(SocklibMacNtoa, OutputOfSeventeenBytesFails) {
    char text[17] = "kept";
    expect_line(3, "socklib_mac_ntoa: Buffer length [17] is insufficient. Minimum is [18].",
                [&] { EXPECT_EQ(socklib_mac_ntoa(MAC, 6, text, sizeof text), nullptr); });
    EXPECT_STREQ(text, "kept");
}

TEST(SocklibMacAton, ReadsDigitsOfBothCases) {
    std::array<uint8_t, 6> mac{};
    EXPECT_EQ(socklib_mac_aton(mac.data(), 6, exact_text("1a:a1:AB:cD:00:ff").get(), 17), mac.data());
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{0x1a, 0xa1, 0xab, 0xcd, 0x00, 0xff}));
}

TEST(SocklibMacAton, ReadsEveryByteValue) {
    for (int value = 0; value < 256; ++value) {
        char text[18];
        std::snprintf(text, sizeof text, "00:00:%02x:00:00:%02X", value, value);
        std::array<uint8_t, 6> mac{};
        ASSERT_EQ(socklib_mac_aton(mac.data(), 6, text, 17), mac.data());
        ASSERT_EQ(mac, (std::array<uint8_t, 6>{0, 0, static_cast<uint8_t>(value), 0, 0, static_cast<uint8_t>(value)}));
    }
}

TEST(SocklibMacAton, NeedsNoTerminatorWithinTheGivenLength) {
    const auto text = std::make_unique<char[]>(17);
    std::memcpy(text.get(), "00:0A:5E:FF:80:01", 17);
    uint8_t mac[6];
    EXPECT_EQ(socklib_mac_aton(mac, 6, text.get(), 17), mac);
    EXPECT_EQ(std::memcmp(mac, MAC, sizeof mac), 0);
}

TEST(SocklibMacAton, WritesSixBytesOfALargerBuffer) {
    std::array<uint8_t, 8> mac{1, 1, 1, 1, 1, 1, 0xaa, 0xbb};
    EXPECT_EQ(socklib_mac_aton(mac.data(), 8, "00:00:00:00:00:00", 18), mac.data());
    EXPECT_EQ(mac, (std::array<uint8_t, 8>{0, 0, 0, 0, 0, 0, 0xaa, 0xbb}));
}

TEST(SocklibMacAton, NullArgumentsFailSilently) {
    uint8_t mac[6];
    expect_no_line([&] {
        EXPECT_EQ(socklib_mac_aton(mac, 5, nullptr, 17), nullptr);
        EXPECT_EQ(socklib_mac_aton(nullptr, 6, "00:00:00:00:00:00", 17), nullptr);
    });
}

TEST(SocklibMacAton, ShortMacBufferFails) {
    uint8_t mac[5];
    for (const int length : {5, 0, -1})
        expect_line(3, "socklib_mac_aton: Insufficient mac_addr_len [" + std::to_string(length) + "]",
                    [&] { EXPECT_EQ(socklib_mac_aton(mac, length, "00:00:00:00:00:00", 17), nullptr); });
}

TEST(SocklibMacAton, ShortTextLengthFailsAndChangesNothing) {
    std::array<uint8_t, 6> mac{9, 9, 9, 9, 9, 9};
    for (const int length : {16, 1, 0, -1})
        expect_line(3, "socklib_mac_aton: str_mac_addr_len[" + std::to_string(length) + "] is too short",
                    [&] { EXPECT_EQ(socklib_mac_aton(mac.data(), 6, "00:00:00:00:00:00", length), nullptr); });
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{9, 9, 9, 9, 9, 9}));
}

TEST(SocklibMacAton, TextThatEndsBeforeTheGivenLengthFails) {
    uint8_t mac[6];
    for (const char *text : {"", "00:11", "00:11:22:33:44:5"})
        expect_line(3, "socklib_mac_aton: str_mac_addr_len[17] is too short",
                    [&] { EXPECT_EQ(socklib_mac_aton(mac, 6, exact_text(text).get(), 17), nullptr); });
}

TEST(SocklibMacAton, TextThatIsNoMacFailsAndChangesNothing) {
    std::array<uint8_t, 6> mac{9, 9, 9, 9, 9, 9};
    for (const char *text : {"00:11:22:33:44:5g", "g0:11:22:33:44:55", "00-11-22-33-44-55", "00:11:22:33:44;55",
                             "0x:11:22:33:44:55", " 0:11:22:33:44:55", "-1:11:22:33:44:55", "0:11:22:33:44:555"})
        EXPECT_EQ(socklib_mac_aton(mac.data(), 6, text, 17), nullptr) << text;
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{9, 9, 9, 9, 9, 9}));
}

TEST(SocklibHexDigit, EveryCharacter) {
    const std::string lower = "0123456789abcdef";
    const std::string upper = "0123456789ABCDEF";
    for (int c = CHAR_MIN; c <= CHAR_MAX; ++c) {
        size_t value = lower.find(static_cast<char>(c));
        if (value == std::string::npos)
            value = upper.find(static_cast<char>(c));
        EXPECT_EQ(convert_strhex_to_int(static_cast<char>(c)),
                  value == std::string::npos ? -1 : static_cast<int>(value));
    }
}

// IP addresses

TEST(SocklibInetNtoa, WritesTheBytesAsTheyAreStored) {
    char text[16];
    EXPECT_EQ(socklib_inet_ntoa(wire_address(192, 168, 1, 20), text, sizeof text), text);
    EXPECT_STREQ(text, "192.168.1.20");
    EXPECT_STREQ(socklib_inet_ntoa(wire_address(255, 255, 255, 255), text, sizeof text), "255.255.255.255");
    EXPECT_STREQ(socklib_inet_ntoa(0, text, sizeof text), "0.0.0.0");
}

TEST(SocklibInetNtoa, CutsTheTextToTheBuffer) {
    char text[9] = "########";
    EXPECT_EQ(socklib_inet_ntoa(wire_address(192, 168, 1, 20), text, 8), text);
    EXPECT_STREQ(text, "192.168");
    EXPECT_EQ(text[8], '\0');
}

TEST(SocklibInetNtoa, EveryLengthTerminatesWithinTheBuffer) {
    const std::string whole = "255.254.253.252";
    for (size_t length = 1; length <= 16; ++length) {
        const auto text = std::make_unique<char[]>(length);
        socklib_inet_ntoa(wire_address(255, 254, 253, 252), text.get(), static_cast<int>(length));
        EXPECT_EQ(text.get(), whole.substr(0, length - 1));
    }
}

TEST(SocklibInetNtoa, LengthThatIsNotPositiveWritesNothing) {
    char text[4] = "abc";
    EXPECT_EQ(socklib_inet_ntoa(wire_address(1, 2, 3, 4), text, 0), text);
    EXPECT_EQ(socklib_inet_ntoa(wire_address(1, 2, 3, 4), text, -1), text);
    EXPECT_STREQ(text, "abc");
}

TEST(SocklibInetNtoa, NullBufferIsReturned) {
    EXPECT_EQ(socklib_inet_ntoa(wire_address(1, 2, 3, 4), nullptr, 16), nullptr);
}

TEST(SocklibInetAton, ReadsADottedQuadInNetworkOrder) {
    uint32_t address = 0;
    EXPECT_EQ(socklib_inet_aton("192.168.1.20", &address), 0);
    EXPECT_EQ(address, wire_address(192, 168, 1, 20));
}

TEST(SocklibInetAton, OtherTextsFailAndChangeNothing) {
    uint32_t address = 77;
    for (const char *text : {"", "1.2.3", "1.2.3.256", "1.2.3.4.5", "localhost", "1.2.3.4 ", "::1"})
        EXPECT_EQ(socklib_inet_aton(text, &address), -1) << text;
    EXPECT_EQ(socklib_inet_aton(nullptr, &address), -1);
    EXPECT_EQ(socklib_inet_aton("1.2.3.4", nullptr), -1);
    EXPECT_EQ(address, 77u);
}

TEST(SocklibInetPton, RecordsIpv4) {
    socklib_inet_addr address{};
    EXPECT_EQ(socklib_inet_pton("10.1.2.3", &address), 0);
    EXPECT_EQ(address.family, AF_INET);
    EXPECT_EQ(address.address.ipv4.s_addr, wire_address(10, 1, 2, 3));
}

TEST(SocklibInetPton, RecordsIpv6) {
    socklib_inet_addr address{};
    EXPECT_EQ(socklib_inet_pton("fe80::1:2", &address), 0);
    EXPECT_EQ(address.family, AF_INET6);
    const uint8_t expected[16] = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 2};
    EXPECT_EQ(std::memcmp(&address.address.ipv6, expected, sizeof expected), 0);
}

TEST(SocklibInetPton, OtherTextsFailAndChangeNothing) {
    socklib_inet_addr address{};
    address.family = 77;
    address.address.ipv4.s_addr = 78;
    for (const char *text : {"", "1.2.3", "fe80::1::2", "localhost"})
        EXPECT_EQ(socklib_inet_pton(text, &address), -1) << text;
    EXPECT_EQ(socklib_inet_pton(nullptr, &address), -1);
    EXPECT_EQ(socklib_inet_pton("1.2.3.4", nullptr), -1);
    EXPECT_EQ(address.family, 77);
    EXPECT_EQ(address.address.ipv4.s_addr, 78u);
}

TEST(SocklibMulticast, GroupMapsToItsLowTwentyThreeBits) {
    std::array<uint8_t, 6> mac{};
    EXPECT_EQ(socklib_ip_mcast_to_eth_mcast(wire_address(224, 0, 0, 251), mac.data(), 6), 0);
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{0x01, 0x00, 0x5e, 0x00, 0x00, 0xfb}));
    EXPECT_EQ(socklib_ip_mcast_to_eth_mcast(wire_address(239, 1, 2, 3), mac.data(), 6), 0);
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{0x01, 0x00, 0x5e, 0x01, 0x02, 0x03}));
    EXPECT_EQ(socklib_ip_mcast_to_eth_mcast(wire_address(239, 255, 255, 255), mac.data(), 6), 0);
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{0x01, 0x00, 0x5e, 0x7f, 0xff, 0xff}));
}

TEST(SocklibMulticast, WritesSixBytesOfALargerBuffer) {
    std::array<uint8_t, 7> mac{0, 0, 0, 0, 0, 0, 0xaa};
    EXPECT_EQ(socklib_ip_mcast_to_eth_mcast(wire_address(224, 0, 0, 1), mac.data(), 7), 0);
    EXPECT_EQ(mac, (std::array<uint8_t, 7>{0x01, 0x00, 0x5e, 0x00, 0x00, 0x01, 0xaa}));
}

TEST(SocklibMulticast, NullOrShortBufferFails) {
    uint8_t mac[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(socklib_ip_mcast_to_eth_mcast(wire_address(224, 0, 0, 1), nullptr, 6), -1);
    for (const int length : {5, 0, -1})
        EXPECT_EQ(socklib_ip_mcast_to_eth_mcast(wire_address(224, 0, 0, 1), mac, length), -1);
    EXPECT_EQ(mac[0], 9);
}

TEST(SocklibGroupIp, FirstOctetDecidesMulticast) {
    for (unsigned first = 0; first < 255; ++first)
        EXPECT_EQ(socklib_is_group_ip(wire_address(static_cast<uint8_t>(first), 0, 0, 1)), first >= 224 && first <= 239)
            << first;
    EXPECT_EQ(socklib_is_group_ip(wire_address(10, 224, 224, 224)), 0);
}

TEST(SocklibGroupIp, AnOctetOf255AnywhereCountsAsGroup) {
    EXPECT_EQ(socklib_is_group_ip(wire_address(255, 0, 0, 1)), 1);
    EXPECT_EQ(socklib_is_group_ip(wire_address(10, 255, 0, 1)), 1);
    EXPECT_EQ(socklib_is_group_ip(wire_address(10, 0, 255, 1)), 1);
    EXPECT_EQ(socklib_is_group_ip(wire_address(10, 0, 0, 255)), 1);
    EXPECT_EQ(socklib_is_group_ip(wire_address(10, 254, 254, 254)), 0);
}

// Base64. The oracle spells everything out as texts of zeros and ones.

const std::string ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string to_bits(unsigned value, int width) {
    std::string bits;
    for (int at = width - 1; at >= 0; --at)
        bits += (value >> at & 1) != 0 ? '1' : '0';
    return bits;
}

std::string oracle_encode(const bytes &data) {
    std::string bits;
    for (const uint8_t byte : data)
        bits += to_bits(byte, 8);
    while (bits.size() % 6 != 0)
        bits += '0';
    std::string text;
    for (size_t at = 0; at < bits.size(); at += 6)
        text += ALPHABET[std::stoul(bits.substr(at, 6), nullptr, 2)];
    while (text.size() % 4 != 0)
        text += '=';
    return text;
}

bytes oracle_decode(const std::string &text) {
    bytes data;
    std::string line_bits;
    for (const char c : text + "\n") {
        if (c == '\r' || c == '\n') {
            for (size_t at = 0; at + 8 <= line_bits.size(); at += 8)
                data.push_back(static_cast<uint8_t>(std::stoul(line_bits.substr(at, 8), nullptr, 2)));
            line_bits.clear();
        } else if (const size_t value = ALPHABET.find(c); value != std::string::npos) {
            line_bits += to_bits(static_cast<unsigned>(value), 6);
        }
    }
    return data;
}

/// Encodes from and into blocks of exactly the size needed.
std::string encode(const bytes &data) {
    const auto in = std::make_unique<uint8_t[]>(data.size());
    std::copy(data.begin(), data.end(), in.get());
    const size_t size = 4 * ((data.size() + 2) / 3) + 1;
    const auto out = std::make_unique<char[]>(size);
    std::memset(out.get(), '#', size);
    to64frombits(out.get(), in.get(), static_cast<int>(data.size()));
    EXPECT_EQ(out[size - 1], '\0');
    return out.get();
}

/// Decodes from and into blocks of exactly the size needed.
bytes decode(const std::string &text) {
    const auto in = std::make_unique<char[]>(text.size());
    std::copy(text.begin(), text.end(), in.get());
    const auto out = std::make_unique<char[]>(3 * text.size() / 4 + 1);
    const int written = base64decode(in.get(), out.get(), static_cast<int>(text.size()));
    EXPECT_EQ(out[static_cast<size_t>(written)], '\0');
    return bytes(out.get(), out.get() + written);
}

bytes as_bytes(const std::string &text) {
    return bytes(text.begin(), text.end());
}

TEST(SocklibBase64Encode, KnownTexts) {
    EXPECT_EQ(encode({}), "");
    EXPECT_EQ(encode(as_bytes("f")), "Zg==");
    EXPECT_EQ(encode(as_bytes("fo")), "Zm8=");
    EXPECT_EQ(encode(as_bytes("foo")), "Zm9v");
    EXPECT_EQ(encode(as_bytes("foobar")), "Zm9vYmFy");
    EXPECT_EQ(encode({0xfb, 0xff, 0xbf, 0xff}), "+/+//w==");
}

TEST(SocklibBase64Encode, NegativeLengthGivesAnEmptyText) {
    char out[1] = {'#'};
    to64frombits(out, nullptr, -1);
    EXPECT_EQ(out[0], '\0');
}

TEST(SocklibBase64Encode, RandomBytesOfEveryLengthMatchTheOracle) {
    std::mt19937 random(1);
    for (size_t length = 0; length <= 200; ++length) {
        const bytes data = random_bytes(random, length);
        ASSERT_EQ(encode(data), oracle_encode(data)) << length;
    }
}

TEST(SocklibBase64, LongTextsMatchTheSystemsOwnProgramAndItsLinesDecode) {
    std::mt19937 random(2);
    const bytes data = random_bytes(random, 100'003);
    std::ofstream("/tmp/plain", std::ios::binary).write(reinterpret_cast<const char *>(data.data()), 100'003);
    ASSERT_EQ(std::system("base64 -w0 /tmp/plain >/tmp/one_line && base64 /tmp/plain >/tmp/lines"), 0);
    const auto content = [](const char *path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    EXPECT_EQ(encode(data), content("/tmp/one_line"));
    EXPECT_EQ(decode(content("/tmp/lines")), data);
}

TEST(SocklibBase64Decode, FourCharactersGiveThreeBytes) {
    EXPECT_EQ(decode("TWFu"), as_bytes("Man"));
}

TEST(SocklibBase64Decode, AByteIsWrittenAsSoonAsItsBitsAreKnown) {
    EXPECT_EQ(decode("T"), bytes{});
    EXPECT_EQ(decode("TW"), as_bytes("M"));
    EXPECT_EQ(decode("TWF"), as_bytes("Ma"));
}

TEST(SocklibBase64Decode, ALineEndRestartsTheGroup) {
    EXPECT_EQ(decode("TW\nFu"), (bytes{0x4d, 0x16}));
    EXPECT_EQ(decode("TW\rFu"), (bytes{0x4d, 0x16}));
    EXPECT_EQ(decode("TW\r\nFu"), (bytes{0x4d, 0x16}));
    EXPECT_EQ(decode("TWFu\nTWFu"), as_bytes("ManMan"));
}

TEST(SocklibBase64Decode, OtherCharactersAreSkipped) {
    EXPECT_EQ(decode("T=W F\tu="), as_bytes("Man"));
    EXPECT_EQ(decode(std::string("TW\0Fu", 5)), as_bytes("Man"));
    EXPECT_EQ(decode("TW\xff\x80"
                     "Fu"),
              as_bytes("Man"));
    EXPECT_EQ(decode("Zg==Zg=="), oracle_decode("ZgZg"));
}

TEST(SocklibBase64Decode, LengthThatIsNotPositiveGivesNoBytes) {
    for (const int length : {0, -1}) {
        char out[1] = {'#'};
        EXPECT_EQ(base64decode("TWFu", out, length), 0);
        EXPECT_EQ(out[0], '\0');
    }
}

TEST(SocklibBase64Decode, TheTextMayBeDecodedInPlace) {
    char text[] = "Zm9vYmFy";
    EXPECT_EQ(base64decode(text, text, 8), 6);
    EXPECT_STREQ(text, "foobar");
}

TEST(SocklibBase64Decode, NullPointersFail) {
    char out[4];
    expect_line(3, "base64decode: Encoded/decoded string NULL", [&] { EXPECT_EQ(base64decode(nullptr, out, 4), -1); });
    expect_line(3, "base64decode: Encoded/decoded string NULL",
                [] { EXPECT_EQ(base64decode("TWFu", nullptr, 4), -1); });
}

TEST(SocklibBase64Decode, RandomBytesSurviveTheRoundTrip) {
    std::mt19937 random(3);
    for (size_t length = 0; length <= 200; ++length) {
        const bytes data = random_bytes(random, length);
        ASSERT_EQ(decode(oracle_encode(data)), data) << length;
    }
}

TEST(SocklibBase64Decode, RandomTextsMatchTheOracle) {
    std::mt19937 random(4);
    for (int turn = 0; turn < 1000; ++turn) {
        const bytes data = random_bytes(random, random() % 80);
        std::string text(data.begin(), data.end());
        for (char &c : text)  // one half any byte, the other half letters and line ends
            if (random() % 2 != 0)
                c = (ALPHABET + "\r\n=")[random() % 67];
        ASSERT_EQ(decode(text), oracle_decode(text)) << turn;
    }
}

TEST(SocklibBase64Padding, TrailingPaddingIsCutInPlace) {
    char one[] = "Zm8=";
    EXPECT_EQ(remove_base64_padding(one, 4), 3);
    EXPECT_STREQ(one, "Zm8");
    char two[] = "Zg==";
    EXPECT_EQ(remove_base64_padding(two, 4), 2);
    EXPECT_STREQ(two, "Zg");
    char all[] = "====";
    EXPECT_EQ(remove_base64_padding(all, 4), 0);
    EXPECT_STREQ(all, "");
}

TEST(SocklibBase64Padding, TextWithoutTrailingPaddingIsUntouched) {
    char text[] = {'Z', '=', 'g', '#'};
    EXPECT_EQ(remove_base64_padding(text, 3), 3);
    EXPECT_EQ(std::string(text, 4), "Z=g#");
}

TEST(SocklibBase64Padding, NothingToCut) {
    char text[] = "=";
    EXPECT_EQ(remove_base64_padding(text, 0), 0);
    EXPECT_STREQ(text, "=");
    EXPECT_EQ(remove_base64_padding(nullptr, 4), 0);
}

TEST(SocklibHeader, AProgramInCCallsTheLibrary) {
    EXPECT_EQ(mac_round_trip_from_c(), 0);
}

}  // namespace
