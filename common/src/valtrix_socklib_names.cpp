#include "valtrix_socklib.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

#include "debug_log.h"

namespace {

constexpr size_t FIRST_ANSWER_SIZE = 1024;
constexpr size_t LARGEST_ANSWER_SIZE = 1024 * 1024;

/// Looks up the IPv4 addresses of a name.
///
/// @param host  receives the answer: at least one address; it points into the buffer
/// @return the buffer, which the caller frees; null when there is no answer
char *resolve(const char *name, hostent &host) {
    char *buffer = nullptr;
    for (size_t size = FIRST_ANSWER_SIZE; size <= LARGEST_ANSWER_SIZE; size *= 2) {
        char *grown = static_cast<char *>(realloc(buffer, size));
        if (grown == nullptr)
            break;
        buffer = grown;
        hostent *found = nullptr;
        int resolver_error = 0;
        const int result = gethostbyname_r(name, &host, buffer, size, &found, &resolver_error);
        if (result == ERANGE)
            continue;
        if (result == 0 && found != nullptr && host.h_addrtype == AF_INET && host.h_addr_list[0] != nullptr)
            return buffer;
        break;
    }
    free(buffer);
    return nullptr;
}

uint32_t address_at(const hostent &host, int at) {
    uint32_t address;
    std::memcpy(&address, host.h_addr_list[at], sizeof address);
    return address;
}

}  // namespace

int socklib_gethostbyname(const char *name, char *text) {
    if (text == nullptr)
        return -1;
    hostent host{};
    char *answer = name != nullptr ? resolve(name, host) : nullptr;
    if (answer == nullptr) {
        WL_LOG(3, "DNS Entry for %s not found!", text_or_null(name));
        return -1;
    }
    socklib_inet_ntoa(address_at(host, 0), text, INET_ADDRSTRLEN);
    free(answer);
    WL_LOG(6, "Server IP : %s", text);
    return 0;
}

int socklib_getaddrinfo(const char *name, struct addrinfo **result, const struct addrinfo *hints) {
    addrinfo wanted{};
    if (hints != nullptr) {
        wanted.ai_family = hints->ai_family;
        wanted.ai_socktype = hints->ai_socktype;
    }
    const int code = getaddrinfo(name, nullptr, &wanted, result);
    WL_LOG(7, " getaddrinfo return val= [%d]", code);
    return code;
}

int socklib_getalladdrsbyname(const char *name, uint32_t **addresses, int *count) {
    if (addresses == nullptr || count == nullptr)
        return -1;
    *addresses = nullptr;
    *count = 0;
    hostent host{};
    char *answer = name != nullptr ? resolve(name, host) : nullptr;
    if (answer == nullptr)
        return -1;

    int found = 0;
    while (host.h_addr_list[found] != nullptr)
        ++found;
    auto *list = static_cast<uint32_t *>(malloc(static_cast<size_t>(found) * sizeof(uint32_t)));
    if (list != nullptr) {
        for (int at = 0; at < found; ++at)
            list[at] = address_at(host, at);
        *addresses = list;
        *count = found;
    }
    free(answer);
    return list != nullptr ? 0 : -1;
}
