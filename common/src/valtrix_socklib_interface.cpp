#include "valtrix_socklib.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "debug_log.h"

namespace {

constexpr char ROUTE_FILE[] = "/proc/net/route";

/// Puts a device's name into a request. @return false when it is null or does not fit
bool set_device(char (&field)[IFNAMSIZ], const char *device) {
    const size_t length = device != nullptr ? strnlen(device, IFNAMSIZ) : IFNAMSIZ;
    if (length == IFNAMSIZ)
        return false;
    std::memcpy(field, device, length + 1);
    return true;
}

/// Issues one interface ioctl on a socket of its own. @return 0, or -1 with `errno` set
int ask_kernel(unsigned long request, void *argument) {
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return -1;
    const int result = ioctl(sock, request, argument);
    const int error = errno;
    close(sock);
    errno = error;
    return result < 0 ? -1 : 0;
}

int query_address(const char *device, unsigned long request, uint32_t *address) {
    ifreq query{};
    if (address == nullptr || !set_device(query.ifr_name, device) || ask_kernel(request, &query) < 0)
        return -1;
    sockaddr_in answer;
    std::memcpy(&answer, &query.ifr_addr, sizeof answer);
    *address = answer.sin_addr.s_addr;
    return 0;
}

/// Reads the eight digits of a column of the route table: the address's bytes taken as a number of this machine.
///
/// @return false when the column holds anything else
bool read_route_address(const char *digits, uint32_t *address) {
    uint32_t value = 0;
    for (int at = 0; at < 8; ++at) {
        const int digit = convert_strhex_to_int(digits[at]);
        if (digit < 0)
            return false;
        value = value * 16 + static_cast<uint32_t>(digit);
    }
    if (digits[8] != 0)
        return false;
    *address = value;
    return true;
}

int find_default_gateway(FILE *routes, const char *device, uint32_t *gateway) {
    char line[512];
    while (fgets(line, sizeof line, routes) != nullptr) {
        char name[IFNAMSIZ];
        char destination[10];  // one character more than an address has, so that a longer column is not taken for one
        char gateway_column[10];
        if (sscanf(line, "%15s %9s %9s", name, destination, gateway_column) != 3)
            continue;
        if (std::strcmp(name, device) == 0 && std::strcmp(destination, "00000000") == 0 &&
            read_route_address(gateway_column, gateway))
            return 0;
    }
    return -1;
}

}  // namespace

int socklib_get_saddr(const char *device, uint32_t *saddr) {
    return query_address(device, SIOCGIFADDR, saddr);
}

int socklib_get_netmask(const char *device, uint32_t *mask) {
    return query_address(device, SIOCGIFNETMASK, mask);
}

int socklib_get_brdaddr(const char *device, uint32_t *addr) {
    return query_address(device, SIOCGIFBRDADDR, addr);
}

int socklib_get_hwaddr(const char *device, uint8_t *hw_addr) {
    ifreq query{};
    if (hw_addr == nullptr || !set_device(query.ifr_name, device) || ask_kernel(SIOCGIFHWADDR, &query) < 0)
        return -1;
    std::memcpy(hw_addr, query.ifr_hwaddr.sa_data, ETH_ALEN);
    return 0;
}

int socklib_get_macfromip(const char *device, uint32_t ip, uint8_t *mac) {
    arpreq query{};
    if (mac == nullptr || !set_device(query.arp_dev, device))
        return -1;
    sockaddr_in neighbour{};
    neighbour.sin_family = AF_INET;
    neighbour.sin_addr.s_addr = ip;
    std::memcpy(&query.arp_pa, &neighbour, sizeof neighbour);
    if (ask_kernel(SIOCGARP, &query) < 0) {
        const int error = errno;
        WL_LOG(3, "Ioctl failed, errno %d", error);
        return -1;
    }
    if ((query.arp_flags & ATF_COM) == 0)
        return -1;
    std::memcpy(mac, query.arp_ha.sa_data, ETH_ALEN);
    return 0;
}

int socklib_get_defgw(const char *device, uint32_t *saddr) {
    if (device == nullptr || saddr == nullptr)
        return -1;
    FILE *routes = fopen(ROUTE_FILE, "re");
    if (routes == nullptr) {
        const int error = errno;
        WL_LOG(3, "Some error (%d) in opening file %s", error, ROUTE_FILE);
        return -1;
    }
    const int result = find_default_gateway(routes, device, saddr);
    fclose(routes);
    return result;
}
