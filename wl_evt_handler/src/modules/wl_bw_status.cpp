#include "wl_bw.h"

#include "debug_log.h"
#include "wl_bw_internal.h"

namespace {

constexpr char HASH_DUMP_FILE[] = "/tmp/.wl.bw_hash.dmp";
constexpr char CACHE_DUMP_FILE[] = "/tmp/.wl.bw_cache.dmp";

void dump_rule(FILE *out, const bw_rule &rule) {
    std::fprintf(out, "\t[#%d] %.2X:%.2X:%.2X:%.2X:%.2X:%.2X\t(up = %d,down = %d)\t(classid = 0x%X)\t%s\n", rule.pri,
                 MAC_ARGS(rule.mac), rule.up, rule.down, rule.classid, bw_state_name(rule.state));
}

void dump_profile(FILE *out, const bw_profile &profile) {
    constexpr char LINE[] = "---------------------------------------------------------------------------\n";
    static_assert(sizeof LINE == 75 + sizeof "\n");
    std::fprintf(out, "Profile %d [#%d] (up = %d, down = %d):\n", static_cast<int>(profile.profile_id),
                 profile.bw_bss.pri, profile.bw_bss.up, profile.bw_bss.down);
    std::fputs(LINE, out);
    hash_table_iter_t rules;
    hash_table_iter_init(&profile.bw_sta_hash_t, &rules);
    while (hash_table_iter_next(&rules) != 0)
        dump_rule(out, *static_cast<const bw_rule *>(rules.entry->value));
}

void dump_profiles(const char *function) {
    FILE *const out = std::fopen(HASH_DUMP_FILE, "we");
    if (out == nullptr) {
        WL_LOG_AS(function, 3, "Could not open file %s to dump BW Hash Table contents", HASH_DUMP_FILE);
        return;
    }
    hash_table_iter_t profiles;
    hash_table_iter_init(&bw_profile_hash_t, &profiles);
    while (hash_table_iter_next(&profiles) != 0)
        dump_profile(out, *static_cast<const bw_profile *>(profiles.entry->value));
    std::fclose(out);
}

void dump_cache(const char *function) {
    FILE *const in = std::fopen(BW_CACHE_FILE, "re");
    FILE *const out = std::fopen(CACHE_DUMP_FILE, "we");
    if (in == nullptr || out == nullptr) {
        // The one that did open is deliberately left open. It comes to that only when the cache has been deleted or
        // "/tmp" takes no file.
        WL_LOG_AS(function, 3, "Could not open BW cache files");
        return;
    }
    bw_rule_info record;
    while (std::fread(&record, sizeof record, 1, in) == 1)
        std::fprintf(out, BW_RECORD_FORMAT "\n", BW_RECORD_ARGS(record));
    std::fclose(in);
    std::fclose(out);
}

}  // namespace

void bw_status(vre_iw_cmd_t, void *, int) {
    dump_profiles(__func__);
    const queue_lock lock;  // the worker may be about to rewrite the cache
    dump_cache(__func__);
}
