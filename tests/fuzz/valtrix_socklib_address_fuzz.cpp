// Texts of addresses: the input is a text of any characters, parsed between blocks of exactly its size and compared
// with the target's own reading; its bytes are taken for addresses too, written and read again.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <string>

#include "address_texts.h"
#include "valtrix_socklib.h"
#include "wl_log.h"

namespace {

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

/// A block that ends with the text.
std::unique_ptr<char[]> block_of(std::string_view text, bool terminated) {
    std::unique_ptr<char[]> block(new char[text.size() + (terminated ? 1 : 0)]);
    std::copy(text.begin(), text.end(), block.get());
    if (terminated)
        block[text.size()] = '\0';
    return block;
}

/// A text without terminator, as long as it says.
void read_mac(std::string_view text) {
    std::array<uint8_t, 6> mac = {9, 9, 9, 9, 9, 9};
    const auto block = block_of(text, false);
    const uint8_t *const result = socklib_mac_aton(mac.data(), 6, block.get(), static_cast<int>(text.size()));
    const auto expected = mac_in(text.substr(0, text.find('\0')));
    require(result == (expected ? mac.data() : nullptr));
    require(mac == expected.value_or(std::array<uint8_t, 6>{9, 9, 9, 9, 9, 9}));
}

void read_ip(std::string_view text) {
    const auto block = block_of(text, true);
    const auto ipv4 = ipv4_in(text);
    uint32_t address = 77;
    require(socklib_inet_aton(block.get(), &address) == (ipv4 ? 0 : -1));
    require(address == (ipv4 ? std::bit_cast<uint32_t>(*ipv4) : 77));

    const auto ipv6 = ipv6_in(text);
    socklib_inet_addr either{};
    either.family = 77;
    require(socklib_inet_pton(block.get(), &either) == (ipv4 || ipv6 ? 0 : -1));
    require(either.family == (ipv4 ? AF_INET : ipv6 ? AF_INET6 : 77));
    if (ipv4)
        require(std::memcmp(&either.address.ipv4, ipv4->data(), 4) == 0);
    else if (ipv6)
        require(std::memcmp(&either.address.ipv6, ipv6->data(), 16) == 0);
}

void write_and_read_mac(const std::array<uint8_t, 6> &mac) {
    const std::unique_ptr<char[]> text(new char[18]);
    require(socklib_mac_ntoa(mac.data(), 6, text.get(), 18) == text.get());
    require(std::strlen(text.get()) == 17);
    require(std::none_of(text.get(), text.get() + 17, [](char c) { return c >= 'a' && c <= 'z'; }));
    require(mac_in(text.get()) == mac);
    std::array<uint8_t, 6> again{};
    require(socklib_mac_aton(again.data(), 6, text.get(), 17) == again.data() && again == mac);
}

/// With a buffer of any length the text is cut to it.
void write_and_read_ipv4(const std::array<uint8_t, 4> &octets) {
    const auto address = std::bit_cast<uint32_t>(octets);
    char whole[16];
    require(socklib_inet_ntoa(address, whole, sizeof whole) == whole && ipv4_in(whole) == octets);
    uint32_t again = 0;
    require(socklib_inet_aton(whole, &again) == 0 && again == address);
    for (size_t length = 1; length <= sizeof whole; ++length) {
        const std::unique_ptr<char[]> cut(new char[length]);
        socklib_inet_ntoa(address, cut.get(), static_cast<int>(length));
        require(std::string_view(cut.get()) == std::string_view(whole).substr(0, length - 1));
    }
}

void write_and_read_ipv6(const std::array<uint8_t, 16> &bytes) {
    char text[INET6_ADDRSTRLEN];
    require(inet_ntop(AF_INET6, bytes.data(), text, sizeof text) == text);
    require(ipv6_in(text) == bytes);
    read_ip(text);
}

void ask_for_group(const std::array<uint8_t, 4> &octets) {
    const auto address = std::bit_cast<uint32_t>(octets);
    const bool broadcast = std::find(octets.begin(), octets.end(), 255) != octets.end();
    require(socklib_is_group_ip(address) == (broadcast || octets[0] >> 4 == 14 ? 1 : 0));
    std::array<uint8_t, 6> mac{};
    require(socklib_ip_mcast_to_eth_mcast(address, mac.data(), 6) == 0);
    require(mac == std::array<uint8_t, 6>{1, 0, 0x5e, static_cast<uint8_t>(octets[1] % 128), octets[2], octets[3]});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    debug = 2;  // refusals are no news here
    const std::string text(data, data + size);
    read_mac(text);
    read_ip(text.substr(0, text.find('\0')));
    std::array<uint8_t, 16> bytes{};
    std::copy_n(data, std::min(size, bytes.size()), bytes.begin());
    write_and_read_mac({bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5]});
    write_and_read_ipv4({bytes[0], bytes[1], bytes[2], bytes[3]});
    write_and_read_ipv6(bytes);
    ask_for_group({bytes[0], bytes[1], bytes[2], bytes[3]});
    return 0;
}
