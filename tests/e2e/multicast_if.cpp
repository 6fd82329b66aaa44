// Preloaded where the emulator knows no IP_MULTICAST_IF: the option ties the socket to the device that has the address,
// for all that it sends and receives, which is as good for a socket of one group.
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace {

in_addr chosen;  // on the only such socket of the program

bool has_address(const ifaddrs &device, in_addr address) {
    if (device.ifa_addr == nullptr || device.ifa_addr->sa_family != AF_INET)
        return false;
    sockaddr_in own;
    std::memcpy(&own, device.ifa_addr, sizeof own);
    return own.sin_addr.s_addr == address.s_addr;
}

int tie(int sock, in_addr address) {
    ifaddrs *devices = nullptr;
    if (getifaddrs(&devices) != 0)
        return -1;
    int result = -1;
    errno = EADDRNOTAVAIL;
    for (const ifaddrs *each = devices; each != nullptr && result != 0; each = each->ifa_next) {
        if (has_address(*each, address))
            result = setsockopt(sock, SOL_SOCKET, SO_BINDTODEVICE, each->ifa_name,
                                static_cast<socklen_t>(std::strlen(each->ifa_name)));
    }
    freeifaddrs(devices);
    if (result == 0)
        chosen = address;
    return result;
}

template <class Function> Function *real(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int setsockopt(int sock, int level, int option, const void *value, socklen_t size) noexcept {
    if (level != IPPROTO_IP || option != IP_MULTICAST_IF)
        return real<decltype(setsockopt)>("setsockopt")(sock, level, option, value, size);
    in_addr address;
    std::memcpy(&address, value, sizeof address);
    return tie(sock, address);
}

int getsockopt(int sock, int level, int option, void *value, socklen_t *size) noexcept {
    if (level != IPPROTO_IP || option != IP_MULTICAST_IF)
        return real<decltype(getsockopt)>("getsockopt")(sock, level, option, value, size);
    std::memcpy(value, &chosen, sizeof chosen);
    *size = sizeof chosen;
    return 0;
}
}
