/// The product line's socket library: byte order, text forms of addresses, interface queries, name resolution, base64.
///
/// Programs in C and C++ link it. Every function may be called from any thread: none keeps state between calls. IPv4
/// addresses are 32-bit values that hold their four bytes as they lie on the wire (what `in_addr.s_addr` holds).
/// Failures that have a log line write it at level 3 (debug_log.h).
#pragma once

#include <netinet/in.h>
#include <stdint.h>

/// The compiler warns a caller that drops the result; the C standards in use have no attribute of their own for it.
#define SOCKLIB_CHECK_RESULT __attribute__((warn_unused_result))

struct addrinfo;

/// An address of either family.
struct socklib_inet_addr {
    int family;  // AF_INET or AF_INET6: the member that is set
    union {
        struct in_addr ipv4;
        struct in6_addr ipv6;
    } address;
};

#ifdef __cplusplus
extern "C" {
#endif

// Byte order

uint16_t socklib_htons(uint16_t value);
uint16_t socklib_ntohs(uint16_t value);
uint32_t socklib_htonl(uint32_t value);
uint32_t socklib_ntohl(uint32_t value);

/// Returns the value unchanged on every machine, deliberately: right for wire data on a big-endian machine only.
uint64_t socklib_htonll(uint64_t value);

/// Returns the value unchanged on every machine, like socklib_htonll.
uint64_t socklib_ntohll(uint64_t value);

// Text forms of addresses

/// Writes a MAC as "AA:BB:CC:DD:EE:FF".
///
/// @param mac_addr_len      bytes of mac_addr; only 6 is accepted
/// @param str_mac_addr_len  bytes of str_mac_addr; at least 18
/// @return str_mac_addr, or null when an argument is null or a length does not fit
char *socklib_mac_ntoa(const uint8_t *mac_addr, int mac_addr_len, char *str_mac_addr, int str_mac_addr_len);

/// Reads a MAC from six pairs of hexadecimal digits of either case separated by colons; what follows is ignored.
///
/// @param mac_addr          receives 6 bytes; unchanged on failure
/// @param mac_addr_len      bytes of mac_addr; at least 6
/// @param str_mac_addr_len  characters that may be read; at least 17
/// @return mac_addr, or null when an argument is null, a length does not suffice or the text is no MAC
uint8_t *socklib_mac_aton(uint8_t *mac_addr, int mac_addr_len, const char *str_mac_addr,
                          int str_mac_addr_len) SOCKLIB_CHECK_RESULT;

/// Writes an IPv4 address in dotted decimal, cut to the buffer.
///
/// @param length  bytes of sin, the terminator included; nothing is written when it is not positive
/// @return sin
char *socklib_inet_ntoa(uint32_t inet_addr, char *sin, int length);

/// Reads an IPv4 address from four decimal numbers separated by dots.
///
/// @param out  unchanged on failure
/// @return 0, or -1 when the text is no such address
int socklib_inet_aton(const char *text, uint32_t *out) SOCKLIB_CHECK_RESULT;

/// Reads an address of either family; IPv4 is tried first.
///
/// @param out  unchanged on failure
/// @return 0, or -1 when the text is an address of neither family
int socklib_inet_pton(const char *text, struct socklib_inet_addr *out) SOCKLIB_CHECK_RESULT;

/// Gives the Ethernet address of an IPv4 multicast group: 01:00:5e and the low 23 bits of the group's address.
///
/// @param len  bytes of mac; at least 6
/// @return 0, or -1 for a null buffer or a short length
int socklib_ip_mcast_to_eth_mcast(uint32_t ip, uint8_t *mac, int len) SOCKLIB_CHECK_RESULT;

/// @return 1 for a multicast address (first octet 224 to 239) and for any address with an octet of 255, which is taken
///         as a broadcast form, wherever it stands; else 0
int socklib_is_group_ip(uint32_t ip);

/// @return the value of one hexadecimal digit of either case, or -1 for any other character
int convert_strhex_to_int(char c);

// Interface queries. Each returns 0, or -1 (result unchanged) when an argument is null, the device's name is longer
// than the kernel allows or the kernel gives no answer.

/// Fetches the device's IPv4 address.
int socklib_get_saddr(const char *device, uint32_t *saddr) SOCKLIB_CHECK_RESULT;

/// Fetches the device's hardware address.
///
/// @param hw_addr  receives 6 bytes
int socklib_get_hwaddr(const char *device, uint8_t *hw_addr) SOCKLIB_CHECK_RESULT;

/// Fetches the device's netmask.
int socklib_get_netmask(const char *device, uint32_t *mask) SOCKLIB_CHECK_RESULT;

/// Fetches the device's broadcast address.
int socklib_get_brdaddr(const char *device, uint32_t *addr) SOCKLIB_CHECK_RESULT;

/// Fetches the MAC of a neighbour from the device's ARP table; a neighbour that has not answered yet has none.
///
/// @param mac  receives 6 bytes
int socklib_get_macfromip(const char *device, uint32_t ip, uint8_t *mac) SOCKLIB_CHECK_RESULT;

/// Fetches the gateway of the device's first default route; 0 when that route leads straight to the link. Routes of
/// other devices do not count, and neither does what the kernel's table holds after the gateway column.
int socklib_get_defgw(const char *device, uint32_t *saddr) SOCKLIB_CHECK_RESULT;

// Name resolution

/// Resolves a name to its first IPv4 address.
///
/// @param text  receives the address in dotted decimal; 16 bytes
/// @return 0, or -1 (text unchanged) when the name has no address
int socklib_gethostbyname(const char *name, char *text) SOCKLIB_CHECK_RESULT;

/// Resolves a name to addresses of the caller's family and socket type.
///
/// @param result  receives a list that the caller frees with freeaddrinfo; set only on success
/// @param hints   only ai_family and ai_socktype count; null: any
/// @return what getaddrinfo returns: 0 or an EAI_ code
int socklib_getaddrinfo(const char *name, struct addrinfo **result, const struct addrinfo *hints) SOCKLIB_CHECK_RESULT;

/// Resolves a name to all of its IPv4 addresses.
///
/// @param addresses  receives an array that the caller frees; null on failure
/// @param count      receives the number of addresses, at least 1; 0 on failure
/// @return 0, or -1 when the name has no address or memory is short
int socklib_getalladdrsbyname(const char *name, uint32_t **addresses, int *count) SOCKLIB_CHECK_RESULT;

// Base64

/// Encodes bytes, padded with "=".
///
/// @param out    receives the text and its terminator: 4 * ceil(inlen / 3) + 1 bytes
/// @param inlen  bytes of in; negative counts as 0
void to64frombits(char *out, const uint8_t *in, int inlen);

/// Decodes characters one after the other: a byte is written as soon as its eight bits are known. Characters outside
/// the alphabet are skipped; a carriage return or a line feed starts a new group and drops the bits left over.
///
/// @param dst  receives the bytes and a terminator: 3 / 4 * len + 1 bytes; may be str itself
/// @param len  characters of str; negative counts as 0
/// @return the number of bytes written, the terminator not counted; -1 when a pointer is null
int base64decode(const char *str, char *dst, int len);

/// Cuts trailing "=" off; the first of them becomes the terminator.
///
/// @param base64_len  characters of base64_data
/// @return the length that is left
int remove_base64_padding(char *base64_data, int base64_len);

#ifdef __cplusplus
}
#endif
