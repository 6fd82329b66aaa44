// Which events of the access point are reported, and how often.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "debug_log.h"
#include "libwl.h"
#include "wl_ap_logging_evt.h"
#include "wl_ap_logging_evt_internal.h"
#include "wl_utils.h"

hash_table_t ap_logging_hash_t;

namespace {

constexpr size_t BUCKETS = 100;
constexpr char CONFIG_FILE[] = "/opt/ap/ap_logging_conf_evt";
constexpr int CONFIG_LINE_SIZE = 4096;
constexpr int CONFIG_FIELDS = 4;
constexpr int32_t DEFAULT_INTERVAL = 43200;  // seconds

constexpr int SENT = 0;
constexpr int NOT_SENT = 1;
constexpr int THROTTLED = 3;

constexpr size_t TEXT_SIZE = 255;     // characters of a text that count
constexpr size_t REPORT_SIZE = 2048;  // bytes, at most

struct [[gnu::packed]] report_head {
    be_u16 kind;
    be_u32 code;
    be_u16 subinfo_item;
    be_u16 subinfo_length;
    be_u32 subinfo_code;
};
static_assert(sizeof(report_head) == 14);
constexpr uint16_t KIND_AP_EVENT = 6;

struct [[gnu::packed]] item_head {
    be_u16 type;
    be_u16 length;
};
static_assert(sizeof(item_head) == 4);
constexpr uint16_t ITEM_SUBINFO_CODE = 1;
constexpr uint16_t ITEM_VALUE = 2;
constexpr size_t VALUE_MAX = REPORT_SIZE - sizeof(report_head) - sizeof(item_head);

struct translation {
    uint32_t event;
    uint32_t server_code;  // 0: not reported
};

constexpr translation TRANSLATIONS[] = {
    {VRE_SYSTEM_SERVICE_CRASH_EVT, 0},
    {VRE_INTERNET_DOWN_EVT, 11},
    {VRE_UPGRADE_LOG_EVT, 10},
    {VRE_UPGRADE_SUCCESS_EVT, 16},
    {VRE_LEASEFAIL_EVT, 9},
    {VRE_IP_CONFLICT_EVT, 8},
    {VRE_CONFIG_CHANGE_EVT, 7},
    {VRE_TUNNEL_DOWN, 6},
    {VRE_ETHERNET_UP_DOWN_EVT, 5},
    {VRE_MEM_UTIL_EVT, 4},
    {VRE_REBOOT_EVT, 3},
    {VRE_EVT_TXPOW_CHANGE, 17},
    {VRE_EVT_TXPOW_NOT_CHANGED, 18},
    {VRE_VAP_DOWN, 1},
    {VRE_CL_COUNT_EXCEEDED, 2},
};

unsigned long hash_evt_id(const void *key, void *) {
    return *static_cast<const uint32_t *>(key) % BUCKETS;
}

int compare_evt_id(const void *stored_key, const void *key, void *) {
    const uint32_t stored = *static_cast<const uint32_t *>(stored_key);
    const uint32_t sought = *static_cast<const uint32_t *>(key);
    if (stored == sought) {
        WL_LOG(7, " info code match");
        return 0;
    }
    return stored < sought ? -1 : 1;
}

void free_evt_data(void *value, void *) {
    auto *const data = static_cast<ap_logging_evt_data *>(value);
    list_free(&data->evt_node_list);
    std::free(data);
}

constexpr hash_table_funcs_t EVT_HASH_FUNCTIONS = {hash_evt_id, compare_evt_id, nullptr, free_evt_data};

ap_logging_evt_data *new_evt_data() {
    return static_cast<ap_logging_evt_data *>(std::calloc(1, sizeof(ap_logging_evt_data)));
}

/// Reads "evt_id|throttle_disabled|throttle_delta|logging_file"; an empty field does not count as one.
///
/// @param line  cut up in place
/// @return false when a field is missing
bool parse_config_line(char *line, ap_logging_evt_data *data) {
    const char *fields[CONFIG_FIELDS];
    char *next = line;
    char *rest = nullptr;
    for (const char *&field : fields) {
        field = strtok_r(next, "|", &rest);
        if (field == nullptr)
            return false;
        next = nullptr;
    }
    data->evt_id = static_cast<uint32_t>(to_number(fields[0]));
    data->throttle_disabled = static_cast<uint8_t>(to_number(fields[1]));
    data->throttle_delta = to_number(fields[2]);
    data->logging_file = static_cast<uint8_t>(to_number(fields[3]));
    return true;
}

/// Adds a configured entry; of several with one id the first counts.
void add_configured(ap_logging_evt_data *data) {
    WL_LOG_AS("init_ap_logging_config", 7,
              "Evt_id : %d , throttle flag : %d , throttle_time : %d and logging file flag %d\n",
              static_cast<int>(data->evt_id), data->throttle_disabled, data->throttle_delta, data->logging_file);
    if (find_evt_data(data->evt_id) != nullptr || hash_table_add(&ap_logging_hash_t, &data->evt_id, data) != 0)
        std::free(data);
}

int read_config(FILE *file) {
    char line[CONFIG_LINE_SIZE];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        ap_logging_evt_data *const data = new_evt_data();
        if (data == nullptr) {
            WL_LOG_AS("init_ap_logging_config", 3, "Cannot allocate mem for ap_logging_evt_data\n");
            return -1;
        }
        // Whatever it is: a last line without a newline deliberately loses a character of its own.
        line[std::max<size_t>(std::strlen(line), 1) - 1] = '\0';
        if (parse_config_line(line, data))
            add_configured(data);
        else
            std::free(data);
    }
    return 0;
}

bool exists(const char *path) {
    return access(path, F_OK) == 0;
}

/// @return whether the access point is in a state in which nothing is reported
bool reporting_is_off(vre_iw_cmd_t event) {
    if (exists("/tmp/ap.conf.diff")) {
        WL_LOG_AS("wl_ap_ts", 3, "MOD operation in progress... skipping event : %s", event_name(event));
        return true;
    }
    if (!exists("/tmp/conn_status")) {
        WL_LOG_AS("wl_ap_ts", 3, "SENSORD not connected with server... skipping event : %s", event_name(event));
        return true;
    }
    if (exists("/tmp/offline")) {
        WL_LOG_AS("wl_ap_ts", 3, "AP in offline mode... Skipping event : %s", event_name(event));
        return true;
    }
    return false;
}

ap_logging_evt_node *find_node(const ap_logging_evt_data &data, const char *text) {
    for (list_t *entry = data.evt_node_list; entry != nullptr; entry = entry->next) {
        auto *const node = static_cast<ap_logging_evt_node *>(entry->value);
        // A text that was cut when it was stored deliberately never equals itself.
        if (std::strncmp(node->buf, text, TEXT_SIZE) == 0)
            return node;
    }
    return nullptr;
}

/// @return whether the text may be reported now that its entry knows of it
bool remember(const ap_logging_evt_data &data, const ap_logging_evt_node *node, int mode) {
    if (data.logging_file != 0)
        return true;
    file_ap_logging_evt_node record;
    return perform_file_edit(AP_LOGGING_CACHE_FILE, data.evt_id, node, &record, mode) == 0;
}

/// Decides on an event that has no entry yet. Its first report is deliberately not written to the cache file.
int admit_unknown(uint32_t code, uint32_t now, const char *text) {
    WL_LOG_AS("wl_ap_ts", 3, "No Event Throttling configuration found.. Adding %d with default settings",
              static_cast<int>(code));
    ap_logging_evt_data *const data = add_default_evt_data(code);
    if (data == nullptr) {
        WL_LOG_AS("wl_ap_ts", 3, "Could not create a Evt hash entry.");
        return NOT_SENT;
    }
    if (add_evt_node(data, now, text) == nullptr) {
        WL_LOG_AS("wl_ap_ts", 3, "Failed to create evt_node instance");
        return NOT_SENT;
    }
    WL_LOG_AS("wl_ap_ts", 7, "Inserting new node into list with id %d", static_cast<int>(code));
    return SENT;
}

int admit_repeated(const ap_logging_evt_data &data, ap_logging_evt_node *node, uint32_t now) {
    const auto id = static_cast<int>(data.evt_id);
    WL_LOG_AS("wl_ap_ts", 7, "Found old entry in cache which need updation for evt_id  %d", id);
    const auto elapsed = static_cast<int32_t>(now - node->time);
    if (elapsed < data.throttle_delta) {
        WL_LOG_AS("wl_ap_ts", 7, "Throttiling evt : %d since time : %d < %d", id, elapsed, data.throttle_delta);
        return THROTTLED;
    }
    node->time = now;
    return remember(data, node, CACHE_EDIT) ? SENT : NOT_SENT;
}

int admit_new_text(ap_logging_evt_data *data, uint32_t now, const char *text) {
    WL_LOG_AS("wl_ap_ts", 7, "No old AP_TS entry for evt_id  %d", static_cast<int>(data->evt_id));
    const ap_logging_evt_node *const node = add_evt_node(data, now, text);
    if (node == nullptr) {
        WL_LOG_AS("wl_ap_ts", 3, "Failed to create evt_node instance");
        return NOT_SENT;
    }
    return remember(*data, node, CACHE_APPEND) ? SENT : NOT_SENT;
}

/// @return SENT when the event is to be reported
int admit(uint32_t code, uint32_t now, const char *text) {
    ap_logging_evt_data *const data = find_evt_data(code);
    if (data == nullptr)
        return admit_unknown(code, now, text);
    if (data->throttle_disabled != 0) {
        WL_LOG_AS("wl_ap_ts", 3, "Throttling disabled.. sending %d to server", static_cast<int>(code));
        return SENT;
    }
    if (ap_logging_evt_node *const node = find_node(*data, text))
        return admit_repeated(*data, node, now);
    return admit_new_text(data, now, text);
}

}  // namespace

int wl_ap_ts_init() {
    if (hash_table_init(&ap_logging_hash_t, BUCKETS, &EVT_HASH_FUNCTIONS, nullptr) == nullptr ||
        init_ap_logging_config() != 0)
        return -1;
    if (exists(AP_LOGGING_CACHE_FILE))
        init_ap_logging_cache(AP_LOGGING_CACHE_FILE);
    else
        WL_LOG(3, "File absent skipping init");
    return 0;
}

int init_ap_logging_config() {
    FILE *const file = std::fopen(CONFIG_FILE, "re");
    if (file == nullptr) {
        WL_LOG(3, "Cannot open %s", CONFIG_FILE);
        return -1;
    }
    const int result = read_config(file);
    std::fclose(file);
    return result;
}

ap_logging_evt_data *find_evt_data(uint32_t evt_id) {
    return static_cast<ap_logging_evt_data *>(hash_table_lookup(&ap_logging_hash_t, &evt_id));
}

ap_logging_evt_data *add_default_evt_data(uint32_t evt_id) {
    ap_logging_evt_data *const data = new_evt_data();
    if (data == nullptr)
        return nullptr;
    data->evt_id = evt_id;
    data->throttle_delta = DEFAULT_INTERVAL;
    if (hash_table_add(&ap_logging_hash_t, &data->evt_id, data) == 0)
        return data;
    std::free(data);
    return nullptr;
}

ap_logging_evt_node *add_evt_node(ap_logging_evt_data *data, uint32_t time, const char *text) {
    auto *const node = static_cast<ap_logging_evt_node *>(std::calloc(1, sizeof(ap_logging_evt_node)));
    if (node == nullptr)
        return nullptr;
    node->time = time;
    std::memcpy(node->buf, text, strnlen(text, sizeof node->buf - 1));
    if (list_insert_tail(&data->evt_node_list, node) != nullptr)
        return node;
    std::free(node);
    return nullptr;
}

uint32_t wl_translate_info_code_for_server(uint32_t info_code) {
    for (const translation &known : TRANSLATIONS) {
        if (known.event == info_code)
            return known.server_code;
    }
    return info_code;
}

int wl_ap_ts(vre_iw_cmd_t event, wl_evt_info_t *info, int) {
    os_reltime now{};
    (void)os_get_reltime(&now);
    if (reporting_is_off(event))
        return NOT_SENT;
    info->info_code = wl_translate_info_code_for_server(info->info_code);
    if (info->info_code == 0) {
        WL_LOG(3, "No info code mapping to server found... Skipping event ");
        return NOT_SENT;
    }
    WL_LOG(3, " AP TS Translated Event info code : %d", static_cast<int>(info->info_code));
    char text[TEXT_SIZE + 1] = {};
    if (info->subinfo_value != nullptr)
        std::memcpy(text, info->subinfo_value, std::min<size_t>(info->subinfo_value_len, TEXT_SIZE));
    const int verdict = admit(info->info_code, static_cast<uint32_t>(now.sec), text);
    if (verdict == SENT)
        (void)send_ap_ts_info(event, info);
    return verdict;
}

int send_ap_ts_info(vre_iw_cmd_t, const wl_evt_info_t *info) {
    auto *const report = static_cast<uint8_t *>(std::calloc(1, REPORT_SIZE + 1));  // ends a text
    if (report == nullptr) {
        WL_LOG(3, "Malloc error");
        return -1;
    }
    report_head head;
    head.kind = KIND_AP_EVENT;
    head.code = info->info_code;
    head.subinfo_item = ITEM_SUBINFO_CODE;
    head.subinfo_length = sizeof head.subinfo_code;
    head.subinfo_code = info->subinfo_code;
    std::memcpy(report, &head, sizeof head);
    size_t length = sizeof head;
    if (info->subinfo_value != nullptr) {
        const size_t value_length = std::min<size_t>(info->subinfo_value_len, VALUE_MAX);
        item_head item;
        item.type = ITEM_VALUE;
        item.length = static_cast<uint16_t>(value_length);
        std::memcpy(report + length, &item, sizeof item);
        std::memcpy(report + length + sizeof item, info->subinfo_value, value_length);
        WL_LOG(7, "VRE_RADIO_EVT : Copying subinfo value : %s and len : %d and info code %d",
               reinterpret_cast<const char *>(report + length + sizeof item), static_cast<int>(value_length),
               static_cast<int>(info->info_code));
        length += sizeof item + value_length;
    }
    (void)wl_send_evt(VRE_DEBUG_AP_TS, report, static_cast<int>(length));
    std::free(report);
    return 0;
}
