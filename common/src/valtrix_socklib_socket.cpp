#include "valtrix_socklib.h"

#include <cerrno>
#include <fcntl.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "debug_log.h"
#include "error_text.h"

namespace {

constexpr int ON = 1;
constexpr int OFF = 0;
constexpr int GROUP_TTL = 64;
constexpr char CREATE_UDP[] = "socklib_create_valtrix_udp_socket";

/// Closes a socket that is of no use. @return -1
int give_up(int sock) {
    close(sock);
    return -1;
}

bool set_option(int sock, int level, int option, int value) {
    return setsockopt(sock, level, option, &value, sizeof value) == 0;
}

/// @param addr  as it lies on the wire
bool bind_to(int sock, uint32_t addr, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = addr;
    return bind(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

bool is_group(const socklib_inet_addr *address) {
    return address != nullptr && address->family == AF_INET && IN_MULTICAST(ntohl(address->address.ipv4.s_addr));
}

bool own_address(const char *device, uint32_t *address) {
    if (socklib_get_saddr(device, address) == 0)
        return true;
    WL_LOG_AS(CREATE_UDP, 3, "get device addr failed");
    return false;
}

bool join_group(int sock, in_addr group, const char *device) {
    ip_mreq membership{};
    membership.imr_multiaddr = group;
    if (!own_address(device, &membership.imr_interface.s_addr))
        return false;
    if (setsockopt(sock, IPPROTO_IP, IP_MULTICAST_IF, &membership.imr_interface, sizeof membership.imr_interface) !=
        0) {
        WL_LOG_AS(CREATE_UDP, 3, "setting multicast i/f to %s failed", device);
        return false;
    }
    if (setsockopt(sock, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        const int error = errno;
        WL_LOG_AS(CREATE_UDP, 3, "setsockopt IP_ADD_MEMBERSHIP failed, error: %s", error_text(error));
        return false;
    }
    if (!set_option(sock, IPPROTO_IP, IP_MULTICAST_TTL, GROUP_TTL)) {
        WL_LOG_AS(CREATE_UDP, 3, "setsockopt IP_MULTICAST_TTL failed");
        return false;
    }
    if (!set_option(sock, IPPROTO_IP, IP_MULTICAST_LOOP, OFF)) {
        WL_LOG_AS(CREATE_UDP, 3, "setsockopt IP_MULTICAST_LOOP failed");
        return false;
    }
    return true;
}

bool set_up_udp(int sock, const char *device, const socklib_inet_addr *mcast_addr, uint16_t port, bool tobind,
                uint32_t *self_addr) {
    const char *const remote_family = mcast_addr != nullptr && mcast_addr->family == AF_INET6 ? "AF_INET6" : "AF_INET";
    WL_LOG_AS(CREATE_UDP, 7, "%s", remote_family);
    if (!set_option(sock, SOL_SOCKET, SO_REUSEADDR, ON)) {
        WL_LOG_AS(CREATE_UDP, 3, "setsockopt SO_REUSEADDR failed");
        return false;
    }
    const bool mcast_enabled = is_group(mcast_addr);
    WL_LOG_AS(CREATE_UDP, 3, "mcast_enabled [%d]", mcast_enabled);
    if (tobind && !bind_to(sock, mcast_enabled ? mcast_addr->address.ipv4.s_addr : INADDR_ANY, port)) {
        WL_LOG_AS(CREATE_UDP, 3, "bind failed for remote_family = %s", remote_family);
        return false;
    }
    if (tobind && self_addr != nullptr && !own_address(device, self_addr))
        return false;
    if (!set_option(sock, SOL_SOCKET, SO_BROADCAST, ON)) {
        WL_LOG_AS(CREATE_UDP, 3, "Error setting socket options BROADCAST");
        return false;
    }
    return !mcast_enabled || join_group(sock, mcast_addr->address.ipv4, device);
}

}  // namespace

int socklib_init() {
    return 0;
}

int socklib_exit() {
    return 0;
}

int socklib_create_unix_socket() {
    const int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (sock >= 0)
        return sock;
    WL_LOG(3, " unix socket creation failed");
    return -1;
}

int socklib_create_valtrix_udp_socket(const char *device, const struct socklib_inet_addr *mcast_addr, uint16_t port,
                                      int tobind, uint32_t *ptr_pmac_info_self_addr_p) {
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        const int error = errno;
        WL_LOG(3, "socket creation failed %s ", error_text(error));
        return -1;
    }
    return set_up_udp(sock, device, mcast_addr, port, tobind != 0, ptr_pmac_info_self_addr_p) ? sock : give_up(sock);
}

int socklib_create_valtrix_tcp_socket(uint16_t port) {
    const int sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        WL_LOG(3, "socket creation failed");
        return -1;
    }
    if (!set_option(sock, SOL_SOCKET, SO_REUSEADDR, ON)) {
        WL_LOG(3, "setsockopt SO_REUSEADDR failed");
        return give_up(sock);
    }
    if (!bind_to(sock, INADDR_ANY, port)) {
        WL_LOG(3, "bind failed");
        return give_up(sock);
    }
    return sock;
}

int socklib_destroy_valtrix_socket(int sock, const struct socklib_inet_addr *mcast_addr) {
    if (is_group(mcast_addr)) {
        ip_mreq membership{};
        membership.imr_multiaddr = mcast_addr->address.ipv4;
        // The address of the device that it was joined on; without it the kernel goes by its routes. What cannot be
        // left here is left by closing.
        socklen_t size = sizeof membership.imr_interface;
        (void)getsockopt(sock, IPPROTO_IP, IP_MULTICAST_IF, &membership.imr_interface, &size);
        (void)setsockopt(sock, IPPROTO_IP, IP_DROP_MEMBERSHIP, &membership, sizeof membership);
    }
    return socklib_close_socket(sock);
}

int socklib_open_socket(int type, int flags) {
    const int sock = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        WL_LOG(3, "could not create socket");
        return -1;
    }
    if (fcntl(sock, F_SETFL, flags) != 0) {
        WL_LOG(3, "fcntl failed");
        return give_up(sock);
    }
    return sock;
}

int socklib_bind_socket(int fdsock, uint32_t addr, uint16_t port) {
    if (bind_to(fdsock, addr, port))
        return 0;
    WL_LOG(3, "bind failed");
    return -1;
}

int socklib_close_socket(int fd) {
    if (close(fd) == 0)
        return 0;
    const int error = errno;
    WL_LOG(3, "close failed: %s", error_text(error));
    return -1;
}

int socklib_open_socket_raw(const char *device, int flags, uint16_t protocol) {
    // Without a protocol until it is bound: else it would already collect the frames of all devices.
    const int sock = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        WL_LOG(3, "could not create raw socket");
        return -1;
    }
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = device != nullptr ? static_cast<int>(if_nametoindex(device)) : 0;
    // Index 0 would bind it to every device.
    if (address.sll_ifindex == 0 || bind(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        WL_LOG(3, "bind failed to device %s", text_or_null(device));
        return give_up(sock);
    }
    if (fcntl(sock, F_SETFL, flags) != 0) {
        WL_LOG(3, "fcntl failed on socket!");
        return give_up(sock);
    }
    return sock;
}
