#include "valtrix_socklib.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <net/ethernet.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <unistd.h>

#include "debug_log.h"

namespace {

constexpr size_t HEADERS = sizeof(ether_header) + sizeof(iphdr) + sizeof(udphdr);
static_assert(HEADERS == 42);
constexpr size_t MAC_TEXT_CHARACTERS = 17;
constexpr int VERSION_AND_LENGTH = 0x45;  // 4, and 5 words of 4 bytes
constexpr size_t LONGEST_DATA = UINT16_MAX - sizeof(iphdr) - sizeof(udphdr);

/// Who sends and who receives a frame.
struct frame_ends {
    uint8_t source_mac[ETH_ALEN];
    uint8_t destination_mac[ETH_ALEN];
    uint32_t source_ip;
    uint32_t destination_ip;
};

bool read_mac(const char *text, uint8_t *mac) {
    const auto length = static_cast<int>(strnlen(text, MAC_TEXT_CHARACTERS));
    return socklib_mac_aton(mac, ETH_ALEN, text, length) != nullptr;
}

/// @return false for a text that is no address
bool find_source(const char *device, const char *mac, const char *ip, frame_ends *ends) {
    if (mac != nullptr && !read_mac(mac, ends->source_mac))
        return false;
    if (mac == nullptr && socklib_get_hwaddr(device, ends->source_mac) != 0)
        std::fill_n(ends->source_mac, ETH_ALEN, uint8_t{0});
    if (ip != nullptr)
        return socklib_inet_aton(ip, &ends->source_ip) == 0;
    if (socklib_get_saddr(device, &ends->source_ip) != 0)
        ends->source_ip = INADDR_ANY;
    return true;
}

/// @return false for a text that is no address
bool find_destination(const char *mac, const char *ip, frame_ends *ends) {
    if (mac == nullptr)
        std::fill_n(ends->destination_mac, ETH_ALEN, uint8_t{0xff});
    else if (!read_mac(mac, ends->destination_mac))
        return false;
    ends->destination_ip = INADDR_BROADCAST;
    if (ip != nullptr && socklib_inet_aton(ip, &ends->destination_ip) != 0)
        return false;
    return !IN_MULTICAST(ntohl(ends->destination_ip)) ||
           socklib_ip_mcast_to_eth_mcast(ends->destination_ip, ends->destination_mac, ETH_ALEN) == 0;
}

ether_header ethernet_header(const frame_ends &ends) {
    ether_header header{};
    std::memcpy(header.ether_dhost, ends.destination_mac, ETH_ALEN);
    std::memcpy(header.ether_shost, ends.source_mac, ETH_ALEN);
    header.ether_type = htons(ETHERTYPE_IP);
    return header;
}

iphdr ip_header(const frame_ends &ends, size_t data_len) {
    iphdr header{};
    std::memset(&header, VERSION_AND_LENGTH, 1);  // a byte, as the checksum reads it
    header.tot_len = htons(static_cast<uint16_t>(sizeof(iphdr) + sizeof(udphdr) + data_len));
    header.ttl = 1;  // deliberately: the frame never leaves the link
    header.protocol = IPPROTO_UDP;
    header.saddr = ends.source_ip;
    header.daddr = ends.destination_ip;
    socklib_get_ip_checksum(&header);
    return header;
}

udphdr udp_header(const iphdr &ip, uint16_t source_port, uint16_t destination_port, const uint8_t *data, size_t len) {
    udphdr header{};
    header.source = htons(source_port);
    header.dest = htons(destination_port);
    header.len = htons(static_cast<uint16_t>(sizeof header + len));
    socklib_get_udp_checksum(&header, &ip, data, len);
    return header;
}

/// @return the end of what was appended
uint8_t *append(uint8_t *at, const void *bytes, size_t size) {
    if (size > 0)
        std::memcpy(at, bytes, size);
    return at + size;
}

/// Adds bytes to a sum, as words of the wire; an odd last byte is the first of its word.
uint32_t add_words(uint32_t sum, const uint8_t *bytes, size_t size) {
    for (size_t at = 0; at < size; ++at)
        sum += at % 2 == 0 ? uint32_t{bytes[at]} << 8 : bytes[at];
    return sum;
}

/// @return the sum's complement. The carry is added in once only, deliberately: what this addition carries in turn is
///         lost, and receivers of the product line have always got these frames.
uint16_t checksum(uint32_t sum) {
    return static_cast<uint16_t>(~((sum & 0xffff) + (sum >> 16)));
}

void set_checksum(uint8_t *field, uint16_t value) {
    field[0] = static_cast<uint8_t>(value >> 8);
    field[1] = static_cast<uint8_t>(value);
}

}  // namespace

// Both headers are taken as bytes: within a frame they are not aligned.

void socklib_get_ip_checksum(struct iphdr *ip) {
    auto *const header = reinterpret_cast<uint8_t *>(ip);
    const size_t size = size_t{4} * (header[0] & 0x0f);
    set_checksum(header + offsetof(iphdr, check), 0);
    set_checksum(header + offsetof(iphdr, check), checksum(add_words(0, header, size)));
}

void socklib_get_udp_checksum(struct udphdr *udp, const struct iphdr *ip, const uint8_t *data, size_t len) {
    auto *const header = reinterpret_cast<uint8_t *>(udp);
    const auto *const addresses = reinterpret_cast<const uint8_t *>(ip) + offsetof(iphdr, saddr);
    set_checksum(header + offsetof(udphdr, check), 0);
    uint32_t sum = add_words(IPPROTO_UDP, addresses, sizeof ip->saddr + sizeof ip->daddr);
    sum = add_words(sum, header + offsetof(udphdr, len), sizeof udp->len);
    sum = add_words(sum, header, sizeof *udp);
    set_checksum(header + offsetof(udphdr, check), checksum(add_words(sum, data, len)));
}

int socklib_send_eth_raw(int raw_socket, const char *device, const char *src_mac, const char *src_ip, uint16_t src_port,
                         const char *dst_mac, const char *dst_ip, uint16_t dst_port, const uint8_t *data,
                         size_t data_len) {
    if (data_len > LONGEST_DATA) {
        WL_LOG(3, "data of %zu bytes does not fit in a packet", data_len);
        return -1;
    }
    frame_ends ends{};
    if (!find_source(device, src_mac, src_ip, &ends) || !find_destination(dst_mac, dst_ip, &ends)) {
        WL_LOG(3, "invalid address, source [%s][%s] destination [%s][%s]", text_or_null(src_mac), text_or_null(src_ip),
               text_or_null(dst_mac), text_or_null(dst_ip));
        return -1;
    }
    const size_t size = HEADERS + data_len;
    auto *const frame = static_cast<uint8_t *>(std::malloc(size));
    if (frame == nullptr) {
        WL_LOG(3, "no memory for a frame of %zu bytes", size);
        return -1;
    }
    const ether_header ethernet = ethernet_header(ends);
    const iphdr ip = ip_header(ends, data_len);
    const udphdr udp = udp_header(ip, src_port, dst_port, data, data_len);
    uint8_t *end = append(frame, &ethernet, sizeof ethernet);
    end = append(end, &ip, sizeof ip);
    end = append(end, &udp, sizeof udp);
    append(end, data, data_len);
    const ssize_t written = write(raw_socket, frame, size);
    std::free(frame);
    if (written != static_cast<ssize_t>(size)) {
        WL_LOG(3, "send failed on socket");
        return -1;
    }
    return 0;
}
