// The wireless driver of an access point that has none. Preloaded into a program (LD_PRELOAD=libsim_driver.so; under an
// emulator `qemu-mips -E LD_PRELOAD=...`; with the address sanitizer also ASAN_OPTIONS=verify_asan_link_order=0) it
// answers
//   - SIOCGIWPRIV and the private commands "get_vaps", "set_user_vlan", "set_mac_acl" and "get_cl_radio" on its VAPs,
//   - the request 0x40046401 on "/dev/app_visibility", a file that somebody else makes,
//   - the name, index, flags and hardware address of a VAP whose interface the kernel does not have.
// Everything else is the kernel's.
//
// SIM_DRIVER_CONF (/tmp/sim/driver.conf), read anew at every call; "#" begins a comment line:
//   INDEX NAME SSID BSSID PROTO up|down   a VAP. INDEX "-": only the kernel knows it. In SSID %XX is a byte and "-" is
//                                         empty; 33 characters leave no room for a NUL. A VAP that is down has no BSSID
//   client MAC NAME RADIO                 a client of VAP NAME, for "get_cl_radio"
//   subcommands 1                         the commands are sub-commands of nameless ones
// and to misbehave:
//   args COMMAND SET GET      other argument descriptors, such as "args get_vaps 0 0x17FF"
//   names_without_nul 1       the table begins with names of 16 characters that begin like the commands' names
//   table_count N             the driver needs a table of N entries (beyond the caller's room: E2BIG)
//   table_claims N            the driver says that it has given N entries
//   reply_size N              "get_vaps" gives N bytes, 512 at most
//   reply_claims N            "get_vaps" says that it has given N bytes
//
// SIM_DRIVER_FAULTS (/tmp/sim/driver.faults), lines `NAME N ERROR`: the N-th call of NAME ("*": every call) fails with
// ERROR, an errno name or number; any other text ends the program. NAME is a private command, SIOCGIWPRIV, SIOCGIFNAME,
// SIOCGIFINDEX, SIOCGIFFLAGS, SIOCGIFHWADDR, app_visibility (the request) or open_app_visibility. Calls are counted
// from the file's last change.
//
// SIM_DRIVER_RECORD (/tmp/sim/driver.jsonl): one JSON line for each of these calls, whoever answers it. Only opening
// a device that is not there leaves none: whoever waits for the device does so without a pause.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/wireless.h>  // needs the C library's net/if.h first

#include <linux/sockios.h>

#include "driver_config.h"

namespace {

constexpr char APP_VISIBILITY[] = "/dev/app_visibility";
constexpr uint32_t APP_VISIBILITY_REQUEST = 0x40046401;
constexpr size_t APP_VISIBILITY_SIZE = 58;
constexpr size_t VAPDATA_SIZE = 110;
constexpr size_t DATA_SIZE = 512;  // what callers have room for
constexpr uint8_t FILLER = 0xEE;   // what a caller does not look at

/// A command as it runs on one VAP: `set` is what the caller gave, `get` (DATA_SIZE bytes) what it gets.
struct run {
    const sim_config &config;
    const sim_vap &vap;
    const uint8_t *set;
    uint8_t *get;
};

int get_vaps(const run &run) {
    memset(run.get, FILLER, DATA_SIZE);
    memcpy(run.get + 1, run.vap.ssid, sizeof run.vap.ssid);
    memset(run.get + 34, 0, sizeof run.vap.bssid);
    if (run.vap.up)
        memcpy(run.get + 34, run.vap.bssid, sizeof run.vap.bssid);
    run.get[54] = run.vap.proto;
    return 0;
}

int get_cl_radio(const run &run) {
    int32_t radio = -1;
    for (int i = 0; i < run.config.client_count; i++) {
        const sim_client &client = run.config.clients[i];
        if (memcmp(client.mac, run.set, sizeof client.mac) == 0 && strcmp(client.vap, run.vap.name) == 0)
            radio = client.radio;
    }
    memcpy(run.get, &radio, sizeof radio);
    return 0;
}

int only_recorded(const run &) {
    return 0;
}

struct command {
    const char *name;
    uint16_t set_args;
    uint16_t get_args;
    uint16_t request;  // an ioctl of its own
    uint16_t carrier;  // the nameless ioctl when it is a sub-command
    int (*run)(const run &run);
};

// Even requests set, odd ones get. Sub-commands are numbered from 1 in this order.
constexpr command COMMANDS[] = {
    {"get_vaps", 0, IW_PRIV_TYPE_BYTE | VAPDATA_SIZE, SIOCIWFIRSTPRIV + 1, SIOCIWFIRSTPRIV + 17, get_vaps},
    {"set_user_vlan", IW_PRIV_TYPE_BYTE | IW_PRIV_SIZE_FIXED | 8, 0, SIOCIWFIRSTPRIV + 2, SIOCIWFIRSTPRIV + 18,
     only_recorded},
    {"set_mac_acl", IW_PRIV_TYPE_BYTE | IW_PRIV_SIZE_FIXED | 24, 0, SIOCIWFIRSTPRIV + 4, SIOCIWFIRSTPRIV + 20,
     only_recorded},
    {"get_cl_radio", IW_PRIV_TYPE_BYTE | IW_PRIV_SIZE_FIXED | 6, IW_PRIV_TYPE_INT | IW_PRIV_SIZE_FIXED | 1,
     SIOCIWFIRSTPRIV + 7, SIOCIWFIRSTPRIV + 23, get_cl_radio},
};
constexpr int COMMAND_COUNT = static_cast<int>(sizeof COMMANDS / sizeof *COMMANDS);

/// A command with the descriptors that the configuration gives it.
command configured(const sim_config &config, int at) {
    command command = COMMANDS[at];
    for (int i = 0; i < config.args_count; i++) {
        if (strcmp(config.args[i].command, command.name) == 0) {
            command.set_args = config.args[i].set_args;
            command.get_args = config.args[i].get_args;
        }
    }
    return command;
}

size_t element_size(uint16_t args) {
    switch (args & IW_PRIV_TYPE_MASK) {
    case IW_PRIV_TYPE_BYTE:
    case IW_PRIV_TYPE_CHAR:
        return 1;
    case IW_PRIV_TYPE_INT:
    case IW_PRIV_TYPE_FLOAT:
        return 4;
    case IW_PRIV_TYPE_ADDR:
        return 16;
    default:
        return 0;
    }
}

size_t size_of(uint16_t args) {
    return element_size(args) * (args & IW_PRIV_SIZE_MASK);
}

bool fits(uint16_t args, size_t offset) {
    return (args & IW_PRIV_SIZE_FIXED) != 0 && offset + size_of(args) <= IFNAMSIZ;
}

/// The table under construction; entries beyond its room are only counted.
struct table {
    iw_priv_args *entries;
    int room;
    int count;
};

void add_entry(table *table, const char *name, uint32_t number, const command &command) {
    if (table->count < table->room) {
        iw_priv_args &entry = table->entries[table->count];
        memset(&entry, 0, sizeof entry);
        entry.cmd = number;
        entry.set_args = command.set_args;
        entry.get_args = command.get_args;
        memcpy(entry.name, name, strnlen(name, sizeof entry.name));
    }
    table->count++;
}

void add_endless_name(table *table, const command &command) {
    char name[IFNAMSIZ];
    memset(name, 'x', sizeof name);
    memcpy(name, command.name, strlen(command.name));
    add_entry(table, name, SIOCIWLASTPRIV, command);
}

void fill_table(const sim_config &config, table *table) {
    for (int i = 0; config.names_without_nul > 0 && i < COMMAND_COUNT; i++)
        add_endless_name(table, COMMANDS[i]);
    for (int i = 0; i < COMMAND_COUNT; i++) {
        const command command = configured(config, i);
        const auto sub_command = static_cast<uint32_t>(i + 1);
        add_entry(table, command.name, config.subcommands > 0 ? sub_command : command.request, command);
        if (config.subcommands > 0)
            add_entry(table, "", command.carrier, command);
    }
}

int answer_table(const sim_config &config, iwreq *request) {
    table table = {static_cast<iw_priv_args *>(request->u.data.pointer), request->u.data.length, 0};
    fill_table(config, &table);
    if (config.table_count != SIM_UNSET)
        table.count = config.table_count;
    request->u.data.length = static_cast<uint16_t>(table.count);
    if (config.table_claims != SIM_UNSET)
        request->u.data.length = static_cast<uint16_t>(config.table_claims);
    else if (table.count > table.room)
        return E2BIG;
    return 0;
}

/// Where a request carries what it sets: in itself, behind the sub-command, or where its pointer leads.
struct layout {
    bool in_request;
    uint32_t sub_command;
    uint8_t *set;
    size_t set_size;
};

layout lay_out(iwreq *request, const command &command, bool is_sub_command) {
    const size_t offset = is_sub_command ? sizeof request->u.mode : 0;
    layout layout = {};
    layout.in_request = fits(command.set_args, offset) || (size_of(command.set_args) == 0 && fits(command.get_args, 0));
    if (is_sub_command)
        layout.sub_command = layout.in_request ? request->u.mode : request->u.data.flags;
    if (layout.in_request) {
        layout.set = reinterpret_cast<uint8_t *>(request->u.name) + offset;
        layout.set_size = size_of(command.set_args);
    } else {
        layout.set = static_cast<uint8_t *>(request->u.data.pointer);
        layout.set_size = request->u.data.length * element_size(command.set_args);
    }
    return layout;
}

void give_reply(const sim_config &config, const command &command, iwreq *request, const uint8_t *reply) {
    if (fits(command.get_args, 0)) {
        memcpy(request->u.name, reply, size_of(command.get_args));
        return;
    }
    size_t size = size_of(command.get_args);
    size_t claimed = command.get_args & IW_PRIV_SIZE_MASK;
    if (command.run == get_vaps && config.reply_size != SIM_UNSET)
        claimed = size = static_cast<size_t>(config.reply_size);
    if (command.run == get_vaps && config.reply_claims != SIM_UNSET)
        claimed = static_cast<size_t>(config.reply_claims);
    memcpy(request->u.data.pointer, reply, size < DATA_SIZE ? size : DATA_SIZE);
    request->u.data.length = static_cast<uint16_t>(claimed);
}

int run_command(const sim_config &config, const sim_vap &vap, const command &command, const layout &layout,
                iwreq *request) {
    // A request that carries what it sets has no place left for the pointer to a reply.
    const bool reply_by_pointer = size_of(command.get_args) > 0 && !fits(command.get_args, 0);
    if (layout.in_request ? reply_by_pointer : request->u.data.pointer == nullptr)
        return EFAULT;
    if (layout.set_size > size_of(command.set_args) || layout.set_size > DATA_SIZE)
        return E2BIG;
    uint8_t set[DATA_SIZE] = {};
    uint8_t get[DATA_SIZE] = {};
    memcpy(set, layout.set, layout.set_size);
    const int error = command.run({config, vap, set, get});
    if (error == 0 && size_of(command.get_args) > 0)
        give_reply(config, command, request, get);
    return error;
}

int answer_private(const sim_config &config, const sim_vap &vap, uint32_t number, iwreq *request) {
    for (int i = 0; i < COMMAND_COUNT; i++) {
        const command command = configured(config, i);
        const bool is_sub_command = config.subcommands > 0;
        if (number != (is_sub_command ? command.carrier : command.request))
            continue;
        const layout layout = lay_out(request, command, is_sub_command);
        if (is_sub_command && layout.sub_command != static_cast<uint32_t>(i + 1))
            continue;
        sim_call call = {command.name, request->ifr_name, number, layout.sub_command, nullptr, 0};
        int error = sim_fault(command.name);
        uint8_t set[DATA_SIZE];
        if (layout.set != nullptr && layout.set_size <= sizeof set) {
            memcpy(set, layout.set, layout.set_size);  // before the reply takes its place
            call.data = set;
            call.data_size = layout.set_size;
        }
        if (error == 0)
            error = run_command(config, vap, command, layout, request);
        sim_record(&call, error);
        return error;
    }
    return EOPNOTSUPP;
}

long kernel_ioctl(int fd, unsigned long request, void *argument) {
    return syscall(SYS_ioctl, fd, request, argument);
}

/// Answers an interface request as the kernel would if it had the VAP's interface.
int answer_interface(const sim_config &config, unsigned long number, ifreq *request) {
    if (number == SIOCGIFNAME) {
        for (int i = 0; i < config.vap_count; i++) {
            if (config.vaps[i].index >= 0 && config.vaps[i].index == request->ifr_ifindex) {
                memcpy(request->ifr_name, config.vaps[i].name, IFNAMSIZ);
                return 0;
            }
        }
        return ENODEV;
    }
    const sim_vap *vap = sim_vap_named(&config, request->ifr_name);
    if (vap == nullptr || vap->index < 0)
        return ENODEV;
    if (number == SIOCGIFINDEX)
        request->ifr_ifindex = vap->index;
    else if (number == SIOCGIFFLAGS)
        request->ifr_flags = static_cast<short>(vap->up ? IFF_UP | IFF_RUNNING : 0);
    else
        memcpy(request->ifr_hwaddr.sa_data, vap->bssid, sizeof vap->bssid);
    return 0;
}

const char *interface_request_name(unsigned long number) {
    switch (number) {
    case SIOCGIFNAME:
        return "SIOCGIFNAME";
    case SIOCGIFINDEX:
        return "SIOCGIFINDEX";
    case SIOCGIFFLAGS:
        return "SIOCGIFFLAGS";
    case SIOCGIFHWADDR:
        return "SIOCGIFHWADDR";
    default:
        return nullptr;
    }
}

int interface_request(const sim_config &config, int fd, unsigned long number, ifreq *request) {
    sim_call call = {interface_request_name(number), request->ifr_name, 0, 0, nullptr, 0};
    if (number == SIOCGIFNAME)
        call.number = static_cast<uint32_t>(request->ifr_ifindex);
    int error = sim_fault(call.name);
    if (error == 0 && kernel_ioctl(fd, number, request) < 0)
        error = answer_interface(config, number, request);
    if (number == SIOCGIFNAME && error != 0)
        call.interface = nullptr;
    sim_record(&call, error);
    return error;
}

int table_request(const sim_config &config, iwreq *request) {
    const sim_call call = {"SIOCGIWPRIV", request->ifr_name, request->u.data.length, 0, nullptr, 0};
    int error = sim_fault(call.name);
    if (error == 0)
        error = answer_table(config, request);
    sim_record(&call, error);
    return error;
}

/// Whether a descriptor is one of the device, also after dup and fork.
bool is_app_visibility(int fd) {
    char link[64], target[64] = {};
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    return readlink(link, target, sizeof target - 1) > 0 && strcmp(target, APP_VISIBILITY) == 0;
}

int app_visibility_request(const void *data) {
    const size_t size = data != nullptr ? APP_VISIBILITY_SIZE : 0;
    const auto *bytes = static_cast<const uint8_t *>(data);
    const sim_call call = {"app_visibility", nullptr, APP_VISIBILITY_REQUEST, 0, bytes, size};
    int error = sim_fault(call.name);
    if (error == 0 && data == nullptr)
        error = EFAULT;
    sim_record(&call, error);
    return error;
}

int open_app_visibility(int flags) {
    const int before = errno;
    int error = sim_fault("open_app_visibility");
    const int fd = error == 0 ? static_cast<int>(syscall(SYS_openat, AT_FDCWD, APP_VISIBILITY, flags, 0)) : -1;
    if (error == 0 && fd < 0)
        return fd;
    const sim_call call = {"open_app_visibility", nullptr, static_cast<uint32_t>(flags), 0, nullptr, 0};
    sim_record(&call, error);
    errno = error != 0 ? error : before;
    return fd;
}

/// @return the outcome as an errno value; -1 when the request is the kernel's alone
int answer(int fd, uint32_t number, void *argument) {
    if (number == APP_VISIBILITY_REQUEST && is_app_visibility(fd))
        return app_visibility_request(argument);
    const bool is_private = number >= SIOCIWFIRSTPRIV && number <= SIOCIWLASTPRIV;
    if (!is_private && number != SIOCGIWPRIV && interface_request_name(number) == nullptr)
        return -1;
    sim_config config = {};
    sim_read_config(&config);
    if (interface_request_name(number) != nullptr)
        return interface_request(config, fd, number, static_cast<ifreq *>(argument));
    auto *request = static_cast<iwreq *>(argument);
    const sim_vap *vap = sim_vap_named(&config, request->ifr_name);
    if (vap == nullptr)
        return -1;
    return is_private ? answer_private(config, *vap, number, request) : table_request(config, request);
}

int open_any(const char *path, int flags, mode_t mode) {
    if (strcmp(path, APP_VISIBILITY) == 0)
        return open_app_visibility(flags);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

}  // namespace

extern "C" {
#pragma GCC visibility push(default)

int ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    const int before = errno;
    const int outcome = answer(fd, static_cast<uint32_t>(request), argument);
    errno = before;
    if (outcome < 0)
        return static_cast<int>(kernel_ioctl(fd, request, argument));
    if (outcome == 0)
        return 0;
    errno = outcome;
    return -1;
}

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return open_any(path, flags, mode);
}

int open64(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return open_any(path, flags | O_LARGEFILE, mode);
}

/// The kernel's interfaces and those of the VAPs that it does not have.
struct if_nameindex *if_nameindex() {
    using function = struct if_nameindex *(*)();
    const auto kernel_if_nameindex = reinterpret_cast<function>(dlsym(RTLD_NEXT, "if_nameindex"));
    struct if_nameindex *all = kernel_if_nameindex();
    if (all == nullptr)
        return nullptr;
    sim_config config = {};
    sim_read_config(&config);
    size_t count = 0;
    while (all[count].if_index != 0)
        count++;
    all = static_cast<struct if_nameindex *>(realloc(all, (count + SIM_VAPS + 1) * sizeof *all));
    for (int i = 0; i < config.vap_count; i++) {
        const sim_vap &vap = config.vaps[i];
        bool is_known = vap.index < 0;
        for (size_t k = 0; k < count; k++)
            is_known = is_known || strcmp(all[k].if_name, vap.name) == 0;
        if (!is_known)
            all[count++] = {static_cast<unsigned>(vap.index), strdup(vap.name)};
    }
    all[count] = {0, nullptr};
    return all;
}

#pragma GCC visibility pop
}
