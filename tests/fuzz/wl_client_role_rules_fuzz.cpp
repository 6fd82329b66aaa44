// The file of role derivation rules, of any bytes, and a search among the rules it makes. The input is the file; the
// name that is searched is its first line's end.
#include "wl_client_role_internal.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "wl_cl_info.h"
#include "wl_evt_payloads.h"
#include "wl_log.h"
#include "wl_ssid_profile.h"

extern "C" FILE *__real_fopen(const char *path, const char *mode);

static const uint8_t *input;
static size_t input_size;

/// The rules are served from memory.
extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    if (std::strcmp(path, "/tmp/profile7/role_derivation.conf") != 0)
        return __real_fopen(path, mode);
    return fmemopen(const_cast<uint8_t *>(input), input_size, "r");
}

namespace {

constexpr uint32_t ROLES[] = {1, 2, 0x10};

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

ssid_profile_info *add_profile(uint32_t id, const std::string &name) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    profile->profile_id = id;
    std::memcpy(profile->ssid, name.c_str(), name.size() + 1);
    require(hash_table_add(ssid_profile_list, &profile->profile_id, profile) == 0);
    return profile;
}

/// The file's first text that may be a name.
std::string name_in(const std::string &file) {
    const std::string line = file.substr(0, file.find_first_of(std::string("\r\n\0", 3)));
    return line.substr(line.find('=') + 1).substr(0, 32);
}

void check(const ssid_profile_info *profile) {
    for (const list_t *node = profile->role_derivation_rules; node != nullptr; node = node->next) {
        const auto *const rule = static_cast<const role_derivation_rule *>(node->value);
        require(rule->match_text == nullptr || rule->match_text[0] != '\0');
    }
}

void search(const ssid_profile_info *profile, const std::string &name, const role_derivation_rule &wanted) {
    struct role_info role {};
    role.rdp_method = wanted.rdp_method;
    role.vendor_id = wanted.vendor_id;
    role.attr_id = wanted.attribute_id;
    role_debug_info dbg{};
    const ssid_profile_info *const found = get_role_id_by_role_name(name.c_str(), profile, &role, &dbg);
    require((found != nullptr) == (dbg.match_type != 0));
    require(dbg.match_type != MATCH_EXACT || found->ssid == name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_logfile_fd == nullptr) {
        g_logfile_fd = std::fopen("/dev/null", "w");
        g_max_logfile_size = INT_MAX;
        debug = 7;
    }
    if (size == 0)
        return 0;  // no file of memory is that small
    input = data;
    input_size = size;
    const std::string name = name_in(std::string(data, data + size));
    wl_init_cl_cache_info();
    for (const uint32_t id : ROLES)
        add_profile(id, id == 1 ? name : "staff");
    ssid_profile_info *const profile = add_profile(7, "net");
    require(save_role_derivation_rules(profile) == 0);
    check(profile);
    for (const list_t *node = profile->role_derivation_rules; node != nullptr; node = node->next)
        search(profile, name, *static_cast<const role_derivation_rule *>(node->value));
    hash_table_destroy(ssid_profile_list);
    std::free(ssid_profile_list);
    return 0;
}
