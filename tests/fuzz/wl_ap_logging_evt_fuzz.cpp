// The access point's own events one after the other, on a configuration file, a cache file and the files of an SSID
// profile of any bytes. The input is these four files, each two bytes of length and its bytes, and then a sequence of
// actions: a byte that says which, and what that one needs: for an event a byte with its length and its payload.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

#include "event_payload.h"
#include "fuzz_input.h"
#include "wl_ap_logging_evt.h"
#include "wl_ap_logging_evt_internal.h"
#include "wl_utils.h"

extern "C" FILE *__real_fopen(const char *path, const char *mode);

namespace {

uint32_t now;
int posted;

}  // namespace

/// The files are real ones, in the sandbox, but for those of the transmit power, which are dropped.
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    return __real_fopen(std::strncmp(path, "/opt/last_tx_power_", 19) == 0 ? "/dev/null" : path, mode);
}

extern "C" int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    const auto *const bytes = static_cast<const uint8_t *>(payload);
    require(event == VRE_DEBUG_AP_TS && (length == 14 || (length >= 18 && length <= 2048)));
    const uint8_t begin[] = {0, 6};
    require(std::memcmp(bytes, begin, sizeof begin) == 0);
    require(length == 14 || length == 18 + (bytes[16] << 8 | bytes[17]));
    posted++;
    return 1;
}

extern "C" int __wrap__Z14os_get_reltimeP10os_reltime(os_reltime *out) {
    *out = {static_cast<int32_t>(now), 0};
    return 0;
}

namespace {

enum action : uint8_t {
    USER_SPACE,
    USER_SPACE_TEXT,
    POWER_CHANGED,
    POWER_UNCHANGED,
    CHANNEL,
    VAP,
    REPORT,
    CLOCK,
    RESTART,
    ACTIONS,
};

void write(const char *path, const byte_string &bytes) {
    FILE *const file = __real_fopen(path, "w");
    require(file != nullptr);
    for (const uint8_t byte : bytes)
        std::putc(byte, file);
    std::fclose(file);
}

void prepare(input_reader &input) {
    for (const char *const folder : {"/opt/ap", "/tmp/profile1"})
        require(mkdir(folder, 0700) == 0 || errno == EEXIST);
    write("/tmp/conn_status", {});
    write("/tmp/profile1/running", {});
    write("/opt/ap/ap_logging_conf_evt", input.file());
    write(AP_LOGGING_CACHE_FILE, input.file());
    write("/tmp/profile1/profile.conf", input.file());
    write("/tmp/profile1/wl.conf", input.file());
}

void restart() {
    hash_table_destroy(&ap_logging_hash_t);
    require(wl_ap_ts_init() == 0);
}

/// Every entry is found by its id, and every text of it ends.
void check() {
    hash_table_iter_t all;
    hash_table_iter_init(&ap_logging_hash_t, &all);
    while (hash_table_iter_next(&all) != 0) {
        const auto *const data = static_cast<const ap_logging_evt_data *>(all.entry->value);
        require(all.entry->key == data && find_evt_data(data->evt_id) == data);
        for (const list_t *at = data->evt_node_list; at != nullptr; at = at->next)
            require(static_cast<const ap_logging_evt_node *>(at->value)->buf[254] == '\0');
    }
}

void receive(void (*handle)(vre_iw_cmd_t, void *, int), vre_iw_cmd_t e, const byte_string &payload) {
    received_payload received(payload);
    handle(e, received.data(), received.length());
}

/// An event of user space with an info code and a value.
void user_space(uint8_t code, const byte_string &value) {
    receive(handle_vre_userspace_event, VRE_USERSPACE_EVT, event_payload().u32(5, code).item(7, value).bytes());
}

void report(uint8_t code, const byte_string &value) {
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[value.size()]);
    std::copy(value.begin(), value.end(), exact.get());
    wl_evt_info_t info{};
    info.info_code = code;
    info.subinfo_code = code;
    info.subinfo_value = value.empty() ? nullptr : exact.get();
    info.subinfo_value_len = static_cast<uint16_t>(value.size());
    const int before = posted;
    const int result = wl_ap_ts(static_cast<vre_iw_cmd_t>(code), &info, 0);
    require(result == 0 || result == 1 || result == 3);
    require(posted - before == (result == 0 ? 1 : 0));
}

void act(input_reader &input) {
    switch (input.byte() % ACTIONS) {
    case USER_SPACE:
        return receive(handle_vre_userspace_event, VRE_USERSPACE_EVT, input.short_block());
    case USER_SPACE_TEXT: {
        const uint8_t code = input.byte();
        return user_space(code, input.short_block());
    }
    case POWER_CHANGED:
        return receive(handle_vre_evt_txpow_change, VRE_EVT_TXPOW_CHANGE, input.short_block());
    case POWER_UNCHANGED:
        return receive(handle_vre_evt_txpow_not_changed, VRE_EVT_TXPOW_NOT_CHANGED, input.short_block());
    case CHANNEL:
        return receive(handle_vre_evt_chan_info, VRE_EVT_CHAN_INFO, input.short_block());
    case VAP:
        return receive(handle_vre_vap_down, VRE_VAP_DOWN, input.short_block());
    case REPORT: {
        const uint8_t code = input.byte();
        return report(code, input.file());
    }
    case CLOCK:
        now += static_cast<uint32_t>(1) << input.byte() % 32;
        return;
    default:
        restart();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    now = 1000;
    input_reader input(data, size);
    prepare(input);
    restart();
    check();
    while (!input.done()) {
        act(input);
        check();
    }
    hash_table_destroy(&ap_logging_hash_t);
    return 0;
}
