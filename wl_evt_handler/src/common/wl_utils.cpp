#include "wl_utils.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <netinet/in.h>

#include "payload.h"

int32_t to_number(const char *text, int base) {
    using limits = std::numeric_limits<int32_t>;
    const long value = std::strtol(text, nullptr, base);
    return static_cast<int32_t>(std::clamp<long>(value, limits::min(), limits::max()));
}

int os_get_reltime(os_reltime *now) {
    static std::atomic<clockid_t> clock = CLOCK_MONOTONIC;
    timespec time;
    if (clock_gettime(clock.load(std::memory_order_relaxed), &time) != 0) {
        clock.store(CLOCK_REALTIME, std::memory_order_relaxed);
        if (clock_gettime(CLOCK_REALTIME, &time) != 0)
            return -1;
    }
    *now = {static_cast<int32_t>(time.tv_sec), static_cast<int32_t>(time.tv_nsec / 1000)};
    return 0;
}

void ip_address_text(const void *address, int len, char *text) {
    const auto bytes = read_payload<in6_addr>(address, len);
    (void)inet_ntop(len == sizeof(in_addr) ? AF_INET : AF_INET6, &bytes, text, INET6_ADDRSTRLEN);
}
