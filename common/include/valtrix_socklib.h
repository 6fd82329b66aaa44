/// The product line's socket library: sockets, packets, waiting, network syslog, byte order, text forms of addresses,
/// interface queries, name resolution, base64.
///
/// Programs in C and C++ link it and define what debug_log.h declares. Every function may be called from any thread:
/// none keeps state between calls, except for socklib_read_select and socklib_syslog_network, each of which one thread
/// at a time may call. IPv4 addresses are 32-bit values that hold their four bytes as they lie on the wire (what
/// `in_addr.s_addr` holds); ports are numbers of the machine where nothing else is said. Failures that have a log line
/// write it at level 3. Descriptors are closed on exec; no send of a packet or of a line over UDP
/// raises SIGPIPE.
#pragma once

#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>

/// The compiler warns a caller that drops the result; the C standards in use have no attribute of their own for it.
#define SOCKLIB_CHECK_RESULT __attribute__((warn_unused_result))

struct addrinfo;
struct iphdr;
struct udphdr;

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

// The library needs neither: both do nothing and return 0.

int socklib_init(void);
int socklib_exit(void);

// Sockets. Each function that makes one returns its descriptor, which the caller closes, or -1.

/// Makes a local stream socket.
int socklib_create_unix_socket(void) SOCKLIB_CHECK_RESULT;

/// Makes an IPv4 UDP socket that may broadcast. For a multicast group (first octet 224 to 239) it sends through the
/// device with a TTL of 64 and without hearing itself (but on "lo"), and is a member of the group there.
///
/// @param device      name of the interface; matters for a group or with an own address to report only
/// @param mcast_addr  the peers' address, a group or not, an IPv6 address counts as none; null: none in particular
/// @param tobind      not 0: bind to the port, on the group's address, for any other on every address of the machine;
///                    another socket made like this may bind to it too, and a datagram that is not for a group reaches
///                    the last of them only
/// @param ptr_pmac_info_self_addr_p  receives the device's own address when the socket is bound; null: not asked for
int socklib_create_valtrix_udp_socket(const char *device, const struct socklib_inet_addr *mcast_addr, uint16_t port,
                                      int tobind, uint32_t *ptr_pmac_info_self_addr_p) SOCKLIB_CHECK_RESULT;

/// Makes a TCP socket bound to the port on every address of the machine; it does not listen yet. A port is refused only
/// while somebody listens there.
int socklib_create_valtrix_tcp_socket(uint16_t port) SOCKLIB_CHECK_RESULT;

/// Leaves the group, when the address is one, and closes the socket; a group that cannot be left is left by closing.
///
/// @param mcast_addr  what the socket was made with
/// @return 0, or -1 when the descriptor is none
int socklib_destroy_valtrix_socket(int sock, const struct socklib_inet_addr *mcast_addr);

/// Makes an IPv4 socket.
///
/// @param type   SOCK_STREAM, SOCK_DGRAM, ...
/// @param flags  status flags of the descriptor, such as O_NONBLOCK
int socklib_open_socket(int type, int flags) SOCKLIB_CHECK_RESULT;

/// Binds a socket to an address and port.
///
/// @return 0 or -1
int socklib_bind_socket(int fdsock, uint32_t addr, uint16_t port) SOCKLIB_CHECK_RESULT;

/// @return 0, or -1 when the descriptor is none
int socklib_close_socket(int fd);

/// Makes a socket of whole Ethernet frames on one device. Needs CAP_NET_RAW.
///
/// @param flags     status flags of the descriptor, such as O_NONBLOCK
/// @param protocol  the Ethernet type it receives, such as 0x0800 (ETH_P_ALL: every one)
int socklib_open_socket_raw(const char *device, int flags, uint16_t protocol) SOCKLIB_CHECK_RESULT;

// Packets. `flags` are those of send and recv.

/// Sends a packet.
///
/// @param dst_addr  null: to whom the socket is connected
/// @return the number of bytes sent, or -1
int socklib_send_packet(int client_socket, const void *buf, size_t buf_len, int flags,
                        const struct sockaddr_in *dst_addr) SOCKLIB_CHECK_RESULT;

/// Sends a packet to an address and port.
///
/// @param port  in network order
/// @return len, or -1
int socklib_send_udp_packet(int sock, const void *buf, size_t len, int flags, uint32_t ip,
                            uint16_t port) SOCKLIB_CHECK_RESULT;

/// Sends a packet on a connected local socket.
///
/// @param sock  negative: not made yet, which is a failure
/// @return packet_len, or -1, also when only a part could be sent
int socklib_send_unix_packet(int sock, const void *packet, size_t packet_len, int flags) SOCKLIB_CHECK_RESULT;

/// Receives one datagram into a buffer of its own size. Call it when the socket is readable: when nothing is waiting
/// yet and the socket blocks, the next datagram is taken for an empty one. A datagram that the kernel drops after it
/// has announced it makes the call wait for the next one, unless the socket does not block.
///
/// @param valtrix_socket  a datagram socket: a stream loses its bytes here
/// @param buf             receives the datagram, which the caller frees; null on failure and for an empty one
/// @param src_addr        receives the sender, also of an empty one; null: not asked for, as on a raw socket
/// @return the number of bytes in the buffer, 0 for an empty datagram, -1 on failure
int socklib_receive_packet(int valtrix_socket, uint8_t **buf, int flags,
                           struct sockaddr_in *src_addr) SOCKLIB_CHECK_RESULT;

/// Reads exactly so many bytes from a connection. Waits at most 5 seconds for the next of them each time.
///
/// @param bytes_to_read  at most INT32_MAX
/// @return bytes_to_read, or -1 when the connection ends, fails or falls silent before, or a signal interrupts the
///         wait; what came is lost
int socklib_receive_tcp(int sockfd, void *buf, uint32_t bytes_to_read, int flags) SOCKLIB_CHECK_RESULT;

// Waiting. A descriptor that a set cannot hold (FD_SETSIZE or more, or negative) is a failure.

/// Waits until one of the descriptors is readable.
///
/// @param timeout  the longest time; may be changed; null: for ever
/// @param fds      receives those that are readable
/// @return what select returns: the number of readable descriptors, 0 when the time has passed, -1 on failure
int socklib_read_select(const int *socket_list, int num_sockets, struct timeval *timeout,
                        fd_set *fds) SOCKLIB_CHECK_RESULT;

/// Waits until a descriptor of a prepared set is readable, like socklib_read_select.
///
/// @param sock_highest  highest descriptor of the set
/// @param fds           in: whom to wait for; out: who is readable
int socklib_read_select_new(int sock_highest, struct timeval *timeout, fd_set *fds) SOCKLIB_CHECK_RESULT;

/// Adds a descriptor to a prepared set or removes it.
///
/// @param mode              1: add, 0: remove
/// @param old_sock_highest  the set's highest descriptor, brought up to date; -1 for an empty set
/// @return 0, or -1 (nothing changed) when an argument is not valid
int socklib_update_sock_info(int mode, int new_sockfd, fd_set *fds, int *old_sock_highest) SOCKLIB_CHECK_RESULT;

// Network syslog. Facility and severity are given shifted as syslog writes them (LOG_LOCAL0, LOG_INFO, ...).

/// Writes the header that goes before a message: time in UTC with dots in its date, deliberately, host and message id.
///
/// @param pkt      receives the header and its terminator, cut to pkt_len bytes
/// @param pri      severity
/// @return characters of the whole header, pkt_len or more when it was cut; 0 when pkt or hostname is null or pkt_len
///         is below 1
int add_syslog_rfc5424_header(char *pkt, int pkt_len, int pri, int facility, const char *msgID, const char *hostname);

/// Sends a line of at most 4095 characters to the first of some collectors that takes it. One thread at a time.
///
/// @param send_socket  a UDP socket of the destinations' family
/// @param addr_info    destinations with their ports, as getaddrinfo makes them; those of socklib_getaddrinfo have none
///                     yet
/// @param sec_mode     not used
/// @param pri          severity
/// @param is_rfc5424_header  not 0: with the header of add_syslog_rfc5424_header, which is nothing without a hostname;
///                           0: "<PRI>" before the message
/// @param msgID        "-" for none
/// @return the last failure on the way, an `errno` value or -1 for a destination without an address, deliberately also
///         when a later destination took the line; 0 when there was none; -1 for a null addr_info
int socklib_syslog_network(int send_socket, struct addrinfo *addr_info, uint16_t sec_mode, int facility, int pri,
                           int is_rfc5424_header, const char *hostname, const char *msgID, const char *fmt, ...)
    __attribute__((format(printf, 9, 10)));

/// Sends a line of at most 1023 characters, "<PRI><MAC of the device>message", as a frame of its own making: for a
/// device that has no address yet. Both ports are the destination's.
///
/// @param raw_socket  made by socklib_open_socket_raw on the device
/// @param dst_mac     text; null: broadcast
/// @param dst_ip      text; 255.255.255.255 while the device has no address: to any other, Linux receivers drop what
///                    comes from none
/// @param dst_port    0: 514
/// @param pri         severity
/// @return 0; -1 when dst_ip is null or empty and for what socklib_send_eth_raw refuses
int socklib_syslog_network_raw(int raw_socket, const char *device, const char *dst_mac, const char *dst_ip,
                               uint16_t dst_port, int facility, int pri, const char *fmt, ...)
    __attribute__((format(printf, 8, 9)));

/// Sends one UDP packet in an Ethernet frame of its own making, with a TTL of 1: it never leaves the link. Addresses
/// are texts; null gives the device's own as the source (zeros when it has none) and broadcast as the destination. A
/// multicast destination has the Ethernet address of its group whatever dst_mac says.
///
/// @param raw_socket  made by socklib_open_socket_raw on the device
/// @param data        may be null when data_len is 0
/// @param data_len    0 to 65507; what the device cannot take in one frame fails when it is written
/// @return 0; -1 for a text that is no address, a longer packet, no memory or a failed write
int socklib_send_eth_raw(int raw_socket, const char *device, const char *src_mac, const char *src_ip, uint16_t src_port,
                         const char *dst_mac, const char *dst_ip, uint16_t dst_port, const uint8_t *data,
                         size_t data_len) SOCKLIB_CHECK_RESULT;

/// Fills the checksum of an IPv4 header (netinet/ip.h). Its carry is added in once only, deliberately.
///
/// @param ip  a header of ihl * 4 bytes at any address, such as within a frame
void socklib_get_ip_checksum(struct iphdr *ip);

/// Fills the checksum of a UDP header (netinet/udp.h) from both headers and the data, with one carry like
/// socklib_get_ip_checksum. A checksum of 0 stays 0, deliberately. The headers may lie at any address.
void socklib_get_udp_checksum(struct udphdr *udp, const struct iphdr *ip, const uint8_t *data, size_t len);

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
/// @param result  receives a list that the caller frees with freeaddrinfo, with ports of 0; set only on success
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
