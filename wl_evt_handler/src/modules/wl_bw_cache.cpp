// The transaction log of bandwidth control: 45-byte records, appended before their command runs, taken back when it
// fails, replayed when the daemon starts, and rewritten from the rules at every tenth clear.
//
// Records go through write() alone. A stream opened for appending would set O_APPEND on a descriptor that deliberately
// lacks it after a rewrite, so bw_cache_fp stays closed and there is nothing to flush.
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "debug_log.h"
#include "wl_bw_internal.h"

int bw_cache_fd = -1;
FILE *bw_cache_fp;
int g_num_clear_rules;
int restoring_cache;

namespace {

constexpr int CLEARS_UNTIL_REWRITE = 10;
constexpr off_t RECORD_SIZE = sizeof(bw_rule_info);

/// Appends a record whole or not at all: the rest of the log is read in steps of whole records.
///
/// @return the result of the write
int append(const bw_rule_info &record) {
    const auto written = static_cast<int>(write(bw_cache_fd, &record, sizeof record));
    if (written > 0 && written < RECORD_SIZE) {
        const off_t start = lseek(bw_cache_fd, -written, SEEK_CUR);
        if (start >= 0)
            (void)!ftruncate(bw_cache_fd, start);
    }
    return written;
}

void rewrite_bss(const bw_profile &profile) {
    const bw_rule &bss = profile.bw_bss;
    bw_rule_info record{};
    std::memcpy(record.mac, bss.mac, sizeof record.mac);
    record.pri = bss.pri;
    record.e = VRE_BW_SET;
    record.up = bss.up;
    record.down = bss.down;
    record.profile_id = profile.profile_id;
    record.classid = BW_BSS_CLASS_ID;
    record.bss_rule = 1;
    (void)append(record);
    WL_LOG_AS("rewrite_all_txn", 2, "++ (profile %d) #%u [up = %d, down = %d] bss",
              static_cast<int>(profile.profile_id), bss.pri, bss.up, bss.down);
}

void rewrite_station(const bw_profile &profile, const bw_rule &rule) {
    bw_rule_info record{};
    std::memcpy(record.mac, rule.mac, sizeof record.mac);
    record.pri = rule.pri;
    record.e = VRE_BW_SET;
    record.up = rule.up;
    record.down = rule.down;
    record.profile_id = profile.profile_id;
    record.classid = rule.classid;
    std::memcpy(record.interface, rule.interface, sizeof record.interface);
    (void)append(record);
    WL_LOG_AS("rewrite_all_txn", 7,
              "++ (profile %d) #%u [up = %d, down = %d] %.2X:%.2X:%.2X:%.2X:%.2X:%.2X clasid = %x",
              static_cast<int>(profile.profile_id), rule.pri, rule.up, rule.down, MAC_ARGS(rule.mac), rule.classid);
}

void rewrite_profile(const bw_profile &profile) {
    rewrite_bss(profile);
    hash_table_iter_t station;
    hash_table_iter_init(&profile.bw_sta_hash_t, &station);
    while (hash_table_iter_next(&station))
        rewrite_station(profile, *static_cast<const bw_rule *>(station.entry->value));
}

/// @return bytes read; 0 at the end, -1 on failure. What a short last record lacks is zero.
ssize_t read_record(int fd, bw_rule_info &record) {
    record = {};
    return read(fd, &record, sizeof record);
}

void replay(bw_rule_info &record) {
    if (record.e == VRE_BW_SET)
        __bw_set_limit(&record);
    else if (record.e == VRE_BW_CLR)
        __bw_clr_limit(&record);
}

}  // namespace

int bw_write_txn(const bw_rule_info *record) {
    if (restoring_cache != 0)
        return 0;
    if (record->e == VRE_BW_CLR && ++g_num_clear_rules == CLEARS_UNTIL_REWRITE) {
        WL_LOG(2, "%d remove rules. Reinitializing backup", g_num_clear_rules);
        rewrite_all_txn();
    }
    // After a rewrite, so that a clear follows the state that already lacks its rule.
    const int written = append(*record);
    WL_LOG(7, BW_RECORD_FORMAT, BW_RECORD_ARGS(*record));
    WL_LOG(7, "TXN written (%d bytes)", written);
    return written;
}

void bw_rollback_last_txn() {
    const queue_lock lock;
    const off_t end = lseek(bw_cache_fd, 0, SEEK_CUR) - RECORD_SIZE;
    // The offset stays where it is. Opened by rewrite_all_txn, the file gets the next record there, behind a gap of
    // zeros that the replay skips. A negative end, of a cache that was closed meanwhile, is refused.
    (void)!ftruncate(bw_cache_fd, end);
}

void rewrite_all_txn() {
    if (bw_cache_fd < 0)
        return;
    close(bw_cache_fd);
    g_num_clear_rules = 0;
    bw_cache_fd = open(BW_CACHE_FILE, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (bw_cache_fd < 0) {
        WL_LOG(2, "Could not open file");
        return;
    }
    WL_LOG(7, "Flushing bw_cache");
    hash_table_iter_t profile;
    hash_table_iter_init(&bw_profile_hash_t, &profile);
    while (hash_table_iter_next(&profile))
        rewrite_profile(*static_cast<const bw_profile *>(profile.entry->value));
}

void restore_bw_cache() {
    restoring_cache = 1;
    const int fd = open(BW_CACHE_FILE, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        bw_rule_info record;
        while (read_record(fd, record) > 0)
            replay(record);
        close(fd);
    }
    restoring_cache = 0;
}

void complete_last_record() {
    struct stat cache {};
    if (fstat(bw_cache_fd, &cache) == 0 && cache.st_size % RECORD_SIZE != 0)
        (void)!ftruncate(bw_cache_fd, cache.st_size + RECORD_SIZE - cache.st_size % RECORD_SIZE);
}
