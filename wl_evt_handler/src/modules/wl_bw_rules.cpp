#include "wl_bw_internal.h"

#include <cstdlib>
#include <cstring>
#include <numeric>

#include "debug_log.h"

hash_table_t bw_profile_hash_t;

namespace {

unsigned long bw_sta_hash(const void *key, void *) {
    const uint8_t *mac = static_cast<const bw_rule *>(key)->mac;
    return std::accumulate(mac, mac + sizeof bw_rule::mac, 0UL) % BW_BUCKETS;
}

int bw_sta_hash_cmp(const void *stored_key, const void *key, void *) {
    return std::memcmp(static_cast<const bw_rule *>(stored_key)->mac, static_cast<const bw_rule *>(key)->mac,
                       sizeof bw_rule::mac);
}

void bw_sta_hash_free_value(void *rule, void *) {
    std::free(rule);
}

unsigned long bw_profile_hash(const void *key, void *) {
    return static_cast<const bw_profile *>(key)->profile_id % BW_BUCKETS;
}

/// Deliberately finds every key equal: profiles of one bucket share the record of the one created first, with its
/// limits and its class ids. Telling them apart would give their stations other class ids than traffic control has them
/// under.
int bw_profile_hash_cmp(const void *, const void *, void *) {
    return 0;
}

void bw_profile_hash_free_value(void *value, void *) {
    auto *const profile = static_cast<bw_profile *>(value);
    hash_table_destroy(&profile->bw_sta_hash_t);
    std::free(profile);
}

}  // namespace

// A record is its own key, so keys are released with their values.
const hash_table_funcs_t bw_sta_hash_fn = {bw_sta_hash, bw_sta_hash_cmp, nullptr, bw_sta_hash_free_value};
const hash_table_funcs_t bw_profile_hash_fn = {bw_profile_hash, bw_profile_hash_cmp, nullptr,
                                               bw_profile_hash_free_value};

namespace {

bw_profile *find_profile(uint32_t profile_id) {
    bw_profile key{};
    key.profile_id = profile_id;
    return static_cast<bw_profile *>(hash_table_lookup(&bw_profile_hash_t, &key));
}

bw_rule *find_sta_rule(const bw_profile *profile, const uint8_t *mac) {
    bw_rule key{};
    std::memcpy(key.mac, mac, sizeof key.mac);
    return static_cast<bw_rule *>(hash_table_lookup(&profile->bw_sta_hash_t, &key));
}

bool on_same_interface(const bw_rule *rule, const bw_rule_info *req) {
    return same_interface(rule->interface, sizeof rule->interface, req->interface, sizeof req->interface);
}

bool has_same_limits(const bw_rule *rule, const bw_rule_info *req) {
    return req->up == rule->up && req->down == rule->down && req->pri == rule->pri;
}

void copy_limits(bw_rule *rule, const bw_rule_info *req) {
    rule->up = req->up;
    rule->down = req->down;
    rule->pri = req->pri;
}

/// How a rule's own command is queued: the limit of a held station is remembered but not put into traffic control.
bw_action_t recording_action(const bw_rule *rule) {
    return rule->state == BW_APPLIED ? BW_RECORD_AND_RUN : BW_RECORD;
}

void log_set_request(const char *function, const bw_rule_info *req) {
    const auto profile_id = static_cast<int>(req->profile_id);
    const auto up = static_cast<int>(req->up);
    const auto down = static_cast<int>(req->down);
    if (req->bss_rule != 0)
        WL_LOG_AS(function, 6, " Setting bw limits for bss (profile %d priority %u) [up %d, down %d]", profile_id,
                  req->pri, up, down);
    else if (req->to_state == BW_HELD)
        WL_LOG_AS(function, 6,
                  " Clearing bandwidth limits for STA %.2X:%.2X:%.2X:%.2X:%.2X:%.2X  (profile %d priority %u)",
                  MAC_ARGS(req->mac), profile_id, req->pri);
    else
        WL_LOG_AS(function, 6,
                  " Setting bandwidth limits for STA %.2X:%.2X:%.2X:%.2X:%.2X:%.2X  (profile %d priority %u) [up %d, "
                  "down %d]",
                  MAC_ARGS(req->mac), profile_id, req->pri, up, down);
}

void log_clear_request(const char *function, const bw_rule_info *req) {
    const auto profile_id = static_cast<int>(req->profile_id);
    const auto up = static_cast<unsigned>(req->up);
    const auto down = static_cast<unsigned>(req->down);
    if (req->bss_rule != 0)
        WL_LOG_AS(function, 6, " Clearing bw limits for BSS (profile %d priority %u) [up %u, down %u]", profile_id,
                  req->pri, up, down);
    else
        WL_LOG_AS(function, 6,
                  " Clearing bw limits for STA  %.2X:%.2X:%.2X:%.2X:%.2X:%.2X (profile %d priority %u) [up %u, "
                  "down %u]",
                  MAC_ARGS(req->mac), profile_id, req->pri, up, down);
}

/// @return a new profile, the table's; null when memory is short
bw_profile *add_profile(uint32_t profile_id) {
    bw_profile *const profile = create_bwp(profile_id);
    if (profile != nullptr && hash_table_add(&bw_profile_hash_t, profile, profile) != 0) {
        bw_profile_hash_free_value(profile, nullptr);
        return nullptr;
    }
    return profile;
}

/// Adds a rule for a station that has none. When memory is short its class id stays taken.
///
/// @return the rule, the table's; null when the station gets none
bw_rule *add_sta_rule(const char *function, bw_profile *profile, const bw_rule_info *req) {
    if (req->e == VRE_BW_CLR) {
        WL_LOG_AS(function, 7,
                  "Could not find BW rule to clear for disassociating STA %.2X:%.2X:%.2X:%.2X:%.2X:%.2X with priority "
                  "#%u",
                  MAC_ARGS(req->mac), req->pri);
        return nullptr;
    }
    const uint32_t classid = get_class_id(profile, req);
    if (classid == BW_CLASS_IDS)
        return nullptr;
    bw_rule *const rule = create_bw_rule(req->mac);
    if (rule == nullptr || hash_table_add(&profile->bw_sta_hash_t, rule, rule) != 0) {
        std::free(rule);
        WL_LOG_AS(function, 3, "Could not create a bw rule");
        return nullptr;
    }
    rule->classid = classid;
    return rule;
}

/// A station goes to held. A request of the rule's own priority, or of none, takes the rule away instead.
///
/// @return whether the rule is to be changed as requested; when it is not, it may no longer exist
bool accept_hold(const char *function, const bw_rule *rule, bw_rule_info *req) {
    if (req->pri == rule->pri || req->pri == 0) {
        __bw_clr_limit(req);
        return false;
    }
    if (!on_same_interface(rule, req)) {
        WL_LOG_AS(function, 3,
                  "Ignore the clear limits for STA %.2X:%.2X:%.2X:%.2X:%.2X:%.2X, Interface mismatch(%.17s %.17s)",
                  MAC_ARGS(req->mac), rule->interface, req->interface);
        return false;
    }
    return true;
}

/// A request that would change nothing but the interface: the station may have roamed to another VAP of its profile,
/// which only the cache has to learn.
void keep_rule(const char *function, bw_rule *rule, bw_rule_info *req) {
    if (on_same_interface(rule, req)) {
        WL_LOG_AS(function, 6, "Same rule already applied. Ignoring this.");
        return;
    }
    WL_LOG_AS(function, 6, "Same rule already applied for [%.17s] interface, update new interface [%.17s]",
              rule->interface, req->interface);
    std::memcpy(rule->interface, req->interface, sizeof rule->interface);
    req->classid = rule->classid;
    bw_write_txn(req);
}

/// @return whether a station's rule is to be changed as requested; when it is not, it may no longer exist
bool accept_change(const char *function, bw_rule *rule, bw_rule_info *req) {
    if (req->state_transition != 0 && req->to_state == BW_HELD)
        return accept_hold(function, rule, req);
    const bool moves = req->state_transition != 0 && req->to_state != rule->state;
    const bool other_classid = restoring_cache != 0 && req->classid != rule->classid;
    if (has_same_limits(rule, req) && !other_classid && !moves) {
        keep_rule(function, rule, req);
        return false;
    }
    if (!moves && req->pri < rule->pri) {
        WL_LOG_AS(function, 6, "Overriding a high priority rule by a low priority rule prohibited");
        return false;
    }
    if (restoring_cache != 0)
        rule->classid = req->classid;
    return true;
}

/// Clears a station's rule. An applied rule with a priority, cleared by that same priority, stays without limits: its
/// class remains for the default of the profile.
///
/// @return 0, or -1 when the request is refused
int clear_sta_limit(const char *function, bw_profile *profile, bw_rule_info *req) {
    bw_rule *const rule = find_sta_rule(profile, req->mac);
    if (rule == nullptr) {
        WL_LOG_AS(function, 3, "Sta not found");
        return -1;
    }
    if (req->pri != 0 && req->pri != rule->pri) {
        WL_LOG_AS(function, 3, "Priority Mismatch");
        return -1;
    }
    if (!on_same_interface(rule, req)) {
        WL_LOG_AS(function, 3, "Interface Mismatch. Ignore clear rule (%.17s %.17s)", rule->interface, req->interface);
        return -1;
    }
    req->classid = rule->classid;
    tc_action(VRE_BW_CLR, rule, req->profile_id, 0, req, recording_action(rule));
    if (rule->state == BW_HELD || req->pri == 0) {  // a rule without priority was cleared by none too
        release_class_id(profile, rule->classid);
        if (hash_table_delete(&profile->bw_sta_hash_t, rule) != 0) {
            WL_LOG_AS(function, 3, "Client Not Found");
            return -1;
        }
        return 0;
    }
    rule->up = BW_NO_LIMIT;
    rule->down = BW_NO_LIMIT;
    rule->pri = 0;
    tc_action(VRE_BW_SET, rule, req->profile_id, 0, nullptr, BW_RUN);
    return 0;
}

/// Clears a BSS's rule and deletes its profile with all station rules.
///
/// @return 0, or -1 when the request is refused
int clear_bss_limit(const char *function, const bw_profile *profile, const bw_rule_info *req) {
    if (req->pri != profile->bw_bss.pri) {
        WL_LOG_AS(function, 3, "Priority Mismatch");
        return -1;
    }
    tc_action(VRE_BW_CLR, &profile->bw_bss, req->profile_id, 1, req, BW_RECORD_AND_RUN);
    if (hash_table_delete(&bw_profile_hash_t, profile) != 0) {
        WL_LOG_AS(function, 3, "Profile %d Not found", static_cast<int>(req->profile_id));
        return -1;
    }
    return 0;
}

}  // namespace

bw_profile *create_bwp(uint32_t profile_id) {
    auto *const profile = static_cast<bw_profile *>(std::calloc(1, sizeof(bw_profile)));
    if (profile == nullptr)
        return nullptr;
    if (hash_table_init(&profile->bw_sta_hash_t, BW_BUCKETS, &bw_sta_hash_fn, nullptr) == nullptr) {
        std::free(profile);
        return nullptr;
    }
    profile->profile_id = profile_id;
    profile->classid_bm[0] = 0b11;  // 0 is never used, 1 is the BSS's
    profile->last_classid = BW_BSS_CLASS_ID;
    return profile;
}

bw_rule *create_bw_rule(const uint8_t *mac) {
    auto *const rule = static_cast<bw_rule *>(std::calloc(1, sizeof(bw_rule)));
    if (rule == nullptr)
        return nullptr;
    std::memcpy(rule->mac, mac, sizeof rule->mac);
    rule->up = BW_NO_LIMIT;
    rule->down = BW_NO_LIMIT;
    return rule;
}

void __bw_set_limit(bw_rule_info *req) {
    if (req->profile_id == 0) {
        WL_LOG(7, "Invalid profile id");
        return;
    }
    log_set_request(__func__, req);
    const queue_lock lock;
    bw_profile *profile = find_profile(req->profile_id);
    if (profile == nullptr) {
        profile = add_profile(req->profile_id);
        if (profile == nullptr) {
            WL_LOG(7, "Could not create a bwp entry.");
            return;
        }
        // A restored station asks for the class id that traffic control still knows it by.
        if (restoring_cache == 0 || req->bss_rule != 0)
            req->classid = profile->last_classid;
    }
    if (req->bss_rule != 0)
        bw_set_bss_limit(profile, req);
    else
        bw_set_sta_limit(profile, req);
    WL_LOG(6, " Rule applied ++ SUCCESS");  // said of a refused request too
}

void __bw_clr_limit(bw_rule_info *req) {
    if (req->profile_id == 0) {
        WL_LOG(3, "Invalid profile id");
        return;
    }
    log_clear_request(__func__, req);
    const queue_lock lock;
    bw_profile *const profile = find_profile(req->profile_id);
    if (profile == nullptr) {
        WL_LOG(3, "Profile %d Not found", static_cast<int>(req->profile_id));
        return;
    }
    const int result =
        req->bss_rule != 0 ? clear_bss_limit(__func__, profile, req) : clear_sta_limit(__func__, profile, req);
    if (result == 0)
        WL_LOG(6, " Rule removed -- SUCCESS");
}

void bw_set_bss_limit(bw_profile *profile, bw_rule_info *req) {
    bw_rule *const rule = &profile->bw_bss;
    if (req->pri < rule->pri) {
        WL_LOG(3, "Overriding a high priority rule by a low priority rule prohibited");
        return;
    }
    if (has_same_limits(rule, req))
        return;
    copy_limits(rule, req);
    tc_action(VRE_BW_SET, rule, req->profile_id, 1, req, BW_RECORD_AND_RUN);
}

void bw_set_sta_limit(bw_profile *profile, bw_rule_info *req) {
    bw_rule *rule = find_sta_rule(profile, req->mac);
    const bool new_rule = rule == nullptr;
    if (new_rule)
        rule = add_sta_rule(__func__, profile, req);
    else if (!accept_change(__func__, rule, req))
        return;
    if (rule == nullptr)
        return;

    std::memcpy(rule->interface, req->interface, sizeof rule->interface);
    WL_LOG(6, "Rule applied on interface %.17s", rule->interface);
    if (req->state_transition != 0 && req->to_state != rule->state)
        bw_stage_for_application(rule, req->profile_id, req->to_state);
    // A weaker request that only moved the state leaves the stronger limits.
    if (new_rule || req->pri >= rule->pri)
        copy_limits(rule, req);
    req->classid = rule->classid;
    tc_action(VRE_BW_SET, rule, req->profile_id, 0, req, recording_action(rule));
}

void bw_stage_for_application(bw_rule *rule, uint32_t profile_id, uint8_t to_state) {
    WL_LOG(7, "(profile %d) #%u [up %d, down %d] %.2X:%.2X:%.2X:%.2X:%.2X:%.2X %s => [%s]",
           static_cast<int>(profile_id), rule->pri, rule->up, rule->down, MAC_ARGS(rule->mac),
           bw_state_name(rule->state), bw_state_name(to_state));
    if (rule->state == to_state)
        return;
    if (rule->state == BW_APPLIED)
        tc_action(VRE_BW_CLR, rule, profile_id, 0, nullptr, BW_RUN);
    rule->state = to_state;
}
