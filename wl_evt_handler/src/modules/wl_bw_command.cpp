#include "wl_bw_internal.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "debug_log.h"
#include "vap_table.h"

namespace {

/// A command line under construction; what does not fit is cut off.
struct command_line {
    char text[1000];
    size_t length;
};

[[gnu::format(printf, 2, 3)]] void append(command_line &line, const char *format, ...) {
    const size_t room = sizeof line.text - line.length;
    va_list arguments;
    va_start(arguments, format);
    const int written = vsnprintf(line.text + line.length, room, format, arguments);
    va_end(arguments);
    if (written > 0)
        line.length += std::min(static_cast<size_t>(written), room - 1);
}

/// The BSSID of the VAP that a station's rule names; all zero when there is none.
std::array<uint8_t, 6> bssid_of(const bw_rule *rule) {
    std::array<uint8_t, 6> bssid{};
    for (int i = 0; i < vap_count; i++) {
        const vap_info &vap = vap_array[i];
        if (same_interface(vap.name, sizeof vap.name, rule->interface, sizeof rule->interface)) {
            std::copy_n(vap.bssid, bssid.size(), bssid.begin());
            break;
        }
    }
    return bssid;
}

bool is_waiting(const bw_list_node &node, const uint8_t *mac, uint32_t profile_id, const char *interface,
                vre_iw_cmd_t e) {
    const bw_rule_info &req = node.bw_rule_info;
    return (node.action == BW_RECORD_AND_RUN || node.action == BW_RUN) && req.bss_rule == 0 && req.e == e &&
           req.profile_id == profile_id && std::memcmp(req.mac, mac, sizeof req.mac) == 0 &&
           same_interface(req.interface, sizeof req.interface, interface, sizeof req.interface);
}

}  // namespace

bool same_interface(const char *one, size_t one_size, const char *other, size_t other_size) {
    const size_t length = strnlen(one, one_size);
    return length == strnlen(other, other_size) && std::memcmp(one, other, length) == 0;
}

int tc_action(vre_iw_cmd_t e, const bw_rule *rule, uint32_t profile_id, uint8_t bss_rule, const bw_rule_info *req,
              bw_action_t action) {
    if (restoring_cache != 0)
        return restoring_cache;
    static command_line line;
    line.length = 0;
    append(line, "/sbin/tc_wrapper.sh %s profile %d", e == VRE_BW_SET ? "limit" : "clear",
           static_cast<int>(profile_id));
    append(line, " %s", bss_rule == 1 ? "bss" : "sta");
    if (bss_rule != 1) {
        append(line, " %2.2x:%2.2x:%2.2x:%2.2x:%2.2x:%2.2x", MAC_ARGS(rule->mac));
        append(line, " classid %x", rule->classid);
    }
    if (e == VRE_BW_SET)
        append(line, " up %d down %d", rule->up, rule->down);
    if (bss_rule != 1)
        append(line, " bssid %2.2x:%2.2x:%2.2x:%2.2x:%2.2x:%2.2x", MAC_ARGS(bssid_of(rule)));
    append(line, " priority %d", rule->pri);

    WL_LOG(7, "%s", line.text);
    bw_enqueue(line.text, req, action);
    return bw_queue_start();
}

dllist_t *find_node_for_sta(const dllist_ctrl_t *queue, const uint8_t *mac, uint32_t profile_id, const char *interface,
                            vre_iw_cmd_t e) {
    if (queue == nullptr || mac == nullptr || interface == nullptr || profile_id == 0) {
        WL_LOG(3, "Invalid arguments");
        return nullptr;
    }
    for (dllist_t *node = queue->head; node != nullptr; node = node->next) {
        if (is_waiting(*static_cast<const bw_list_node *>(node->value), mac, profile_id, interface, e))
            return node;
    }
    return nullptr;
}

void clear_bw_rules_for_sta(const uint8_t *mac, uint32_t profile_id, const char *interface) {
    while (dllist_t *const node = find_node_for_sta(&bw_queue, mac, profile_id, interface, VRE_BW_SET)) {
        WL_LOG(7, "Set rule found for %02X:%02X:%02X:%02X:%02X:%02X, deleting it", MAC_ARGS(mac));
        dllist_delink_node(&bw_queue, node);
        free_bw_list_node(static_cast<bw_list_node *>(node->value));
        std::free(node);
    }
}
