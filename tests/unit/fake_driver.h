/// A wireless driver played behind a wrapped ioctl (link with --wrap=ioctl). It lists the private commands it is given
/// and records each call. Included by one source of a test executable.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "wl_priv_ioctl.h"

constexpr uint16_t FIXED = IW_PRIV_SIZE_FIXED;
constexpr uint16_t BYTES = IW_PRIV_TYPE_BYTE;
constexpr uint16_t CHARS = IW_PRIV_TYPE_CHAR;
constexpr uint16_t INTS = IW_PRIV_TYPE_INT;

/// One call of a private command, as the driver saw it.
struct driver_call {
    std::string interface;
    unsigned long request;
    iwreq data;

    /// The 16 bytes of the request.
    std::string in_request() const {
        return {data.u.name, sizeof data.u.name};
    }
};

struct {
    std::map<std::string, std::vector<iw_priv_args>> tables;  // of each interface
    int table_error;                                          // `errno` of every fetch, unless 0
    int reported_count = -1;                                  // instead of the true one, unless negative
    std::vector<unsigned> table_rooms;                        // entries that each fetch had room for
    std::vector<driver_call> calls;
    std::function<int(driver_call &call, iwreq &request)> on_call;  // 0, or the `errno` value of a failure
} driver;

inline int fetch_driver_table(iwreq &request) {
    driver.table_rooms.push_back(request.u.data.length);
    if (driver.table_error != 0) {
        errno = driver.table_error;
        return -1;
    }
    const std::vector<iw_priv_args> &table = driver.tables[request.ifr_ifrn.ifrn_name];
    const size_t room = request.u.data.length;
    request.u.data.length = static_cast<uint16_t>(driver.reported_count >= 0 ? driver.reported_count : table.size());
    if (table.size() > room) {
        errno = E2BIG;
        return -1;
    }
    if (!table.empty())
        std::memcpy(request.u.data.pointer, table.data(), table.size() * sizeof table[0]);
    return 0;
}

extern "C" int __wrap_ioctl(int, unsigned long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    iwreq &request = *va_arg(arguments, iwreq *);
    va_end(arguments);
    if (number == SIOCGIWPRIV)
        return fetch_driver_table(request);
    driver.calls.push_back({request.ifr_ifrn.ifrn_name, number, request});
    errno = driver.on_call ? driver.on_call(driver.calls.back(), request) : 0;
    return errno == 0 ? 0 : -1;
}

/// An entry of a table; a name of 16 characters has no NUL.
inline iw_priv_args priv_entry(uint32_t number, int set_args, int get_args, const std::string &name) {
    iw_priv_args entry{};
    entry.cmd = number;
    entry.set_args = static_cast<uint16_t>(set_args);
    entry.get_args = static_cast<uint16_t>(get_args);
    std::memcpy(entry.name, name.data(), std::min(name.size(), sizeof entry.name));
    return entry;
}

/// What a driver puts at the start of the request.
inline void reply_in_request(iwreq &request, const void *data, size_t size) {
    std::memcpy(request.u.name, data, size);
}

/// What a driver puts where the request points, and how many it says it put there.
inline void reply_by_pointer(iwreq &request, const std::string &data, unsigned count) {
    std::memcpy(request.u.data.pointer, data.data(), data.size());
    request.u.data.length = static_cast<uint16_t>(count);
}
