#include "wl_priv_ioctl.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linux/sockios.h>

namespace {

constexpr size_t REQUEST_DATA_SIZE = sizeof(iwreq_data);
static_assert(REQUEST_DATA_SIZE == IFNAMSIZ);

// Drivers list some hundred commands; a table that does not end is not asked for again and again.
constexpr uint16_t SMALLEST_TABLE = 128;
constexpr uint16_t LARGEST_TABLE = 4096;

iwreq request_for(const char *interface) {
    iwreq request{};
    std::memcpy(request.ifr_ifrn.ifrn_name, interface, strnlen(interface, IFNAMSIZ - 1));
    return request;
}

/// Fetches the table into a block for `capacity` entries.
///
/// @return entries in the table, whatever the driver says not more than fit; -1 with `errno` set
int read_table(const wl_priv_command &command, iw_priv_args *table, uint16_t capacity) {
    iwreq request = request_for(command.interface);
    request.u.data.pointer = table;
    request.u.data.length = capacity;
    if (ioctl(command.socket, SIOCGIWPRIV, &request) < 0)
        return -1;
    return std::min(request.u.data.length, capacity);
}

/// Fetches the table, with room for as many entries as it takes.
///
/// @param table  receives a block that the caller frees, or null on failure
/// @return entries in the table, or -1 with `errno` set
int fetch_table(const wl_priv_command &command, iw_priv_args **table) {
    for (uint16_t capacity = SMALLEST_TABLE; capacity <= LARGEST_TABLE;
         capacity = static_cast<uint16_t>(2 * capacity)) {
        *table = static_cast<iw_priv_args *>(std::calloc(capacity, sizeof **table));
        if (*table == nullptr)
            return -1;
        const int count = read_table(command, *table, capacity);
        if (count >= 0)
            return count;
        const int error = errno;
        std::free(*table);
        *table = nullptr;
        errno = error;
        if (error != E2BIG)
            return -1;
    }
    return -1;
}

/// A name that fills its field has no NUL.
std::string_view entry_name(const iw_priv_args &entry) {
    return {entry.name, strnlen(entry.name, sizeof entry.name)};
}

/// Whether an entry is the ioctl behind a sub-command: it has no name and takes and gives the same.
bool carries(const iw_priv_args &entry, const iw_priv_args &sub_command) {
    return entry.cmd >= SIOCDEVPRIVATE && entry.name[0] == '\0' && entry.set_args == sub_command.set_args &&
           entry.get_args == sub_command.get_args;
}

wl_priv_result find_command(std::span<const iw_priv_args> table, std::string_view name, wl_priv_command &command) {
    const auto named = std::ranges::find(table, name, entry_name);
    if (named == table.end())
        return WL_PRIV_UNKNOWN_COMMAND;
    command.is_sub_command = named->cmd < SIOCDEVPRIVATE;
    command.set_args = named->set_args;
    command.get_args = named->get_args;
    command.request = named->cmd;
    if (!command.is_sub_command)
        return WL_PRIV_OK;
    command.sub_command = named->cmd;
    const auto real = std::ranges::find_if(table, [named](const auto &entry) { return carries(entry, *named); });
    if (real == table.end())
        return WL_PRIV_NO_IOCTL;
    command.request = real->cmd;
    return WL_PRIV_OK;
}

wl_priv_result look_up(const char *name, wl_priv_command &command) {
    iw_priv_args *table;
    const int count = fetch_table(command, &table);
    if (count < 0)
        return WL_PRIV_NO_TABLE;
    const wl_priv_result result = find_command({table, static_cast<size_t>(count)}, name, command);
    std::free(table);
    return result;
}

/// @return bytes of one argument; 0 for none and for the unsupported types
size_t argument_size(uint16_t args) {
    switch (args & IW_PRIV_TYPE_MASK) {
    case IW_PRIV_TYPE_BYTE:
    case IW_PRIV_TYPE_CHAR:
        return 1;
    case IW_PRIV_TYPE_INT:
        return sizeof(int32_t);
    default:
        return 0;
    }
}

bool is_fixed(uint16_t args) {
    return (args & IW_PRIV_SIZE_FIXED) != 0;
}

/// Whether arguments travel in the request itself, behind `offset` bytes; a number that may vary never does.
bool fits_in_request(uint16_t args, size_t offset) {
    return is_fixed(args) && offset + wl_priv_data_size(args) <= REQUEST_DATA_SIZE;
}

/// @return bytes of data that the driver is given
size_t bytes_to_set(uint16_t args, size_t data_size) {
    const size_t whole = wl_priv_data_size(args);
    if (is_fixed(args) || data_size >= whole)
        return whole;
    return data_size - data_size % argument_size(args);
}

/// @return bytes of data that the driver has put where a pointer led it
size_t bytes_given(const iwreq &request, uint16_t args) {
    const size_t whole = wl_priv_data_size(args);
    return is_fixed(args) ? whole : std::min(whole, request.u.data.length * argument_size(args));
}

/// Lays out the request: data, and sub-command if it is one, in the request when they fit, else with a pointer to
/// `block`.
iwreq make_request(const wl_priv_command &command, const void *data, size_t data_size, void *block) {
    iwreq request = request_for(command.interface);
    const size_t size = bytes_to_set(command.set_args, data_size);
    const size_t offset = command.is_sub_command ? sizeof request.u.mode : 0;
    const bool in_request =
        fits_in_request(command.set_args, offset) || (command.set_args == 0 && fits_in_request(command.get_args, 0));
    if (in_request && command.is_sub_command)
        request.u.mode = command.sub_command;
    if (const size_t available = std::min(size, data_size); available > 0)
        std::memcpy(in_request ? request.u.name + offset : block, data, available);
    if (!in_request) {
        request.u.data.pointer = block;
        request.u.data.length = static_cast<uint16_t>(size > 0 ? size / argument_size(command.set_args) : 0);
        request.u.data.flags = static_cast<uint16_t>(command.sub_command);
    }
    return request;
}

}  // namespace

bool wl_priv_is_supported(uint16_t args) {
    return (args & IW_PRIV_TYPE_MASK) == IW_PRIV_TYPE_NONE || argument_size(args) > 0;
}

size_t wl_priv_data_size(uint16_t args) {
    return argument_size(args) * (args & IW_PRIV_SIZE_MASK);
}

wl_priv_result wl_priv_open(wl_priv_command *command, const char *interface, const char *name) {
    *command = {};
    std::memcpy(command->interface, interface, strnlen(interface, IFNAMSIZ - 1));
    command->socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (command->socket < 0)
        return WL_PRIV_NO_SOCKET;
    const wl_priv_result result = look_up(name, *command);
    if (result != WL_PRIV_OK)
        wl_priv_close(command);
    return result;
}

wl_priv_result wl_priv_call(const wl_priv_command *command, const void *data, size_t data_size, void *reply,
                            size_t reply_size) {
    const uint16_t get_args = command->get_args;
    if (!wl_priv_is_supported(command->set_args) || !wl_priv_is_supported(get_args))
        return WL_PRIV_UNSUPPORTED_TYPE;
    if (bytes_to_set(command->set_args, data_size) > WL_PRIV_DATA_SIZE ||
        wl_priv_data_size(get_args) > WL_PRIV_DATA_SIZE)
        return WL_PRIV_TOO_LARGE;

    alignas(iwreq) char block[WL_PRIV_DATA_SIZE] = {};
    iwreq request = make_request(*command, data, data_size, block);
    if (ioctl(command->socket, command->request, &request) < 0)
        return WL_PRIV_FAILED;
    const bool in_request = fits_in_request(get_args, 0);
    const void *given = in_request ? request.u.name : block;
    const size_t size = in_request ? wl_priv_data_size(get_args) : bytes_given(request, get_args);
    if (reply_size > 0) {
        std::memset(reply, 0, reply_size);
        std::memcpy(reply, given, std::min(size, reply_size));
    }
    return WL_PRIV_OK;
}

void wl_priv_close(wl_priv_command *command) {
    const int error = errno;
    close(command->socket);
    command->socket = -1;
    errno = error;
}
