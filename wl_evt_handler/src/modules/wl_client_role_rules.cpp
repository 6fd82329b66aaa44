// The role derivation rules of an SSID profile: read from their file, and searched for the role of a client.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "debug_log.h"
#include "error_text.h"
#include "wl_cl_info.h"
#include "wl_client_role_internal.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"
#include "wl_utils.h"
#include "wl_vap_helpers.h"

namespace {

/// The list holds ids where others hold pointers.
void *as_value(uint32_t role_id) {
    return reinterpret_cast<void *>(static_cast<uintptr_t>(role_id));
}

uint32_t role_id_of(const list_t *node) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(node->value));
}

void clear_rule(role_derivation_rule *rule) {
    std::free(rule->match_text);
    list_free_without_payload_freeing(&rule->role_ids);
    *rule = {};
}

uint8_t byte_of(const char *value) {
    return static_cast<uint8_t>(to_number(value));
}

void set_match_text(role_derivation_rule *rule, const char *text) {
    std::free(rule->match_text);
    rule->match_text = strdup(text);
}

/// @param ids  numbers with commas between, decimal, hexadecimal or octal as C writes them; cut up in place
void add_role_ids(role_derivation_rule *rule, char *ids) {
    char *rest = nullptr;
    for (char *id = strtok_r(ids, ",", &rest); id != nullptr; id = strtok_r(nullptr, ",", &rest)) {
        (void)!list_insert_tail(&rule->role_ids, as_value(static_cast<uint32_t>(to_number(id, 0))));
    }
}

struct rule_key {
    const char *name;
    void (*apply)(role_derivation_rule *rule, char *value);
};

constexpr rule_key RULE_KEYS[] = {
    {"RDP_RULE_START", [](role_derivation_rule *rule, char *) { clear_rule(rule); }},
    {"RDP_METHOD", [](role_derivation_rule *rule, char *value) { rule->rdp_method = byte_of(value); }},
    {"RDP_METHOD_TYPE", [](role_derivation_rule *rule, char *value) { rule->rdp_method_type = byte_of(value); }},
    {"VENDOR_ID",
     [](role_derivation_rule *rule, char *value) { rule->vendor_id = static_cast<uint32_t>(to_number(value)); }},
    {"ATTRIBUTE_ID",
     [](role_derivation_rule *rule, char *value) { rule->attribute_id = static_cast<uint32_t>(to_number(value)); }},
    {"MATCH_TYPE", [](role_derivation_rule *rule, char *value) { rule->match_type = byte_of(value); }},
    {"MATCH_TEXT", [](role_derivation_rule *rule, char *value) { set_match_text(rule, value); }},
    {"ROLE_IDS", add_role_ids},
    {"RDP_RULE_END",
     [](role_derivation_rule *rule, char *value) { rule->rule_id = static_cast<uint32_t>(to_number(value)); }},
};
constexpr char LAST_KEY[] = "RDP_RULE_END";

bool copy_role_ids(list_t **copy, const list_t *role_ids) {
    for (const list_t *node = role_ids; node != nullptr; node = node->next) {
        if (list_insert_tail(copy, node->value) == nullptr)
            return false;
    }
    return true;
}

/// @return a copy that shares nothing with the rule; null when memory is short
role_derivation_rule *copy_rule(const role_derivation_rule &rule) {
    auto *const copy = static_cast<role_derivation_rule *>(std::malloc(sizeof(role_derivation_rule)));
    if (copy == nullptr)
        return nullptr;
    *copy = rule;
    copy->role_ids = nullptr;
    copy->match_text = rule.match_text != nullptr ? strdup(rule.match_text) : nullptr;
    if ((rule.match_text == nullptr || copy->match_text != nullptr) && copy_role_ids(&copy->role_ids, rule.role_ids))
        return copy;
    free_role_derivation_rule(copy);
    return nullptr;
}

/// Applies a line of the file.
///
/// @return 1 when it completed a rule, else 0
int apply_line(ssid_profile_info *profile, role_derivation_rule *rule, const char *key, char *value) {
    for (const rule_key &known : RULE_KEYS) {
        if (strcasecmp(known.name, key) == 0)
            known.apply(rule, value);
    }
    if (strcasecmp(LAST_KEY, key) != 0)
        return 0;
    (void)add_role_derivation_rule(profile, rule);
    clear_rule(rule);
    return 1;
}

/// @return the role profile of an id; null, with the complaint that its match type has, when there is none
ssid_profile_info *role_profile(uint32_t role_id, uint8_t match_type) {
    WL_LOG_AS("get_role_id_by_role_name", 7, "Role Ids : %u", role_id);
    auto *const profile = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &role_id));
    if (profile != nullptr)
        return profile;
    if (match_type == MATCH_EXACT)
        WL_LOG_AS("get_role_id_by_role_name", 3, "Role profile structure not found for profile id[%d]",
                  static_cast<int>(role_id));
    else
        WL_LOG_AS("get_role_id_by_role_name", 3, "SSID profile structure not found for profile id[%d]",
                  static_cast<int>(role_id));
    return nullptr;
}

/// What a rule says of a name.
struct rule_result {
    bool ends_search;
    ssid_profile_info *role;  // null for none
};

constexpr rule_result NEXT_RULE = {false, nullptr};

rule_result match_exactly(const role_derivation_rule &rule, const char *name) {
    for (const list_t *node = rule.role_ids; node != nullptr; node = node->next) {
        ssid_profile_info *const profile = role_profile(role_id_of(node), MATCH_EXACT);
        if (profile == nullptr || std::strcmp(profile->ssid, name) == 0)
            return {true, profile};
    }
    return NEXT_RULE;
}

rule_result first_role(const role_derivation_rule &rule) {
    if (rule.role_ids == nullptr)
        return NEXT_RULE;
    return {true, role_profile(role_id_of(rule.role_ids), rule.match_type)};
}

rule_result apply_rule(const role_derivation_rule &rule, const char *name) {
    switch (rule.match_type) {
    case MATCH_EXACT:
        WL_LOG_AS("get_role_id_by_role_name", 7, "Match type is Exact");
        return match_exactly(rule, name);
    case MATCH_CONTAINS:
        WL_LOG_AS("get_role_id_by_role_name", 7, "Match type is Contains");
        return is_matchstr_found_in_str(name, rule.match_text) != 0 ? first_role(rule) : NEXT_RULE;
    case MATCH_EQUALS:
        WL_LOG_AS("get_role_id_by_role_name", 7, "Match type is Equals");
        return rule.match_text != nullptr && std::strcmp(name, rule.match_text) == 0 ? first_role(rule) : NEXT_RULE;
    default:
        return NEXT_RULE;
    }
}

bool is_for(const role_derivation_rule &rule, const struct role_info &role) {
    WL_LOG_AS("get_role_id_by_role_name", 7, "rdp_method [%s] ", get_rdp_method_str(rule.rdp_method));
    if (rule.rdp_method != role.rdp_method)
        return false;
    if (rule.rdp_method != RDP_METHOD_RADIUS)
        return true;
    WL_LOG_AS("get_role_id_by_role_name", 7, "role_info-> vendor_id[%u] attribute_id[%u]", uint32_t{role.vendor_id},
              uint32_t{role.attr_id});
    WL_LOG_AS("get_role_id_by_role_name", 7, "rdp-> vendor_id[%u] attribute_id[%u]", rule.vendor_id, rule.attribute_id);
    return rule.vendor_id == role.vendor_id && rule.attribute_id == role.attr_id;
}

}  // namespace

int save_role_derivation_rules(ssid_profile_info *profile) {
    char path[64];
    std::snprintf(path, sizeof path, "/tmp/profile%u/role_derivation.conf", profile->profile_id);
    FILE *const file = std::fopen(path, "re");
    if (file == nullptr) {
        const int error = errno;
        WL_LOG(3, "Cannot open %s for reading (%s)", path, error_text(error));
        return -1;
    }
    role_derivation_rule rule{};
    int total_rules = 0;
    char *key = nullptr;
    char *value = nullptr;
    while (parse_config(file, &key, &value) != nullptr) {
        WL_LOG(6, "Reading rule [%s] [%s] total_rules[%d]", key, value, total_rules);
        total_rules += apply_line(profile, &rule, key, value);
    }
    clear_rule(&rule);
    std::fclose(file);
    return 0;
}

role_derivation_rule *add_role_derivation_rule(ssid_profile_info *profile, const role_derivation_rule *rule) {
    role_derivation_rule *const copy = copy_rule(*rule);
    if (copy != nullptr && list_insert_tail(&profile->role_derivation_rules, copy) != nullptr)
        return copy;
    WL_LOG(3, "Malloc error for role_derivation_rule");
    if (copy != nullptr)
        free_role_derivation_rule(copy);
    return nullptr;
}

void free_role_derivation_rule(void *rule) {
    clear_rule(static_cast<role_derivation_rule *>(rule));
    std::free(rule);
}

ssid_profile_info *get_role_id_by_role_name(const char *name, const ssid_profile_info *profile,
                                            const struct role_info *role, role_debug_info *dbg) {
    if (name == nullptr || name[0] == '\0') {
        WL_LOG(3, "No role for client, map to SSID");
        return nullptr;
    }
    if (profile == nullptr)
        return nullptr;
    for (const list_t *node = profile->role_derivation_rules; node != nullptr; node = node->next) {
        const auto &rule = *static_cast<const role_derivation_rule *>(node->value);
        if (!is_for(rule, *role))
            continue;
        const rule_result result = apply_rule(rule, name);
        if (!result.ends_search)
            continue;
        if (result.role != nullptr)
            dbg->match_type = rule.match_type;
        return result.role;
    }
    return nullptr;
}

ssid_profile_info *get_ssid_profile_by_role_id(uint32_t role_id) {
    WL_LOG(7, "Get Role profile for Role Id : %u", role_id);
    auto *const profile = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &role_id));
    if (profile == nullptr)
        WL_LOG(3, "Role profile structure not found for profile id[%d]", static_cast<int>(role_id));
    return profile;
}
