// The log of bandwidth control, of any bytes: a daemon that starts with it has the rules that it spells out, keeps them
// when it rewrites the log, and takes further requests. Linked with --wrap=open: the log is in memory.
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "bw_log.h"
#include "debug_log.h"
#include "wl_bw_internal.h"
#include "wl_log.h"

namespace {

int log_in_memory = -1;

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

void set_log(const std::string &bytes) {
    require(ftruncate(log_in_memory, 0) == 0);
    require(pwrite(log_in_memory, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
}

std::string log_bytes() {
    std::string bytes(static_cast<size_t>(lseek(log_in_memory, 0, SEEK_END)), '\0');
    require(pread(log_in_memory, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    return bytes;
}

void restart() {
    hash_table_destroy(&bw_profile_hash_t);
    require(hash_table_init(&bw_profile_hash_t, BW_BUCKETS, &bw_profile_hash_fn, nullptr) != nullptr);
    restore_bw_cache();
}

/// A station that no log knows asks every profile for a class id.
void take_one_more_station() {
    for (uint32_t profile = 1; profile <= BW_BUCKETS; profile++) {
        bw_rule_info request = {};
        request.mac[0] = 0xFF;
        request.e = VRE_BW_SET;
        request.profile_id = profile;
        __bw_set_limit(&request);
        require(request.classid < BW_CLASS_IDS);
    }
}

}  // namespace

extern "C" int __real_open(const char *path, int flags, mode_t mode);

extern "C" int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (bw_log::FILE_NAME != path)
        return __real_open(path, flags, mode);
    char of_its_own[32];  // a new description: an offset of its own
    (void)snprintf(of_its_own, sizeof of_its_own, "/proc/self/fd/%d", log_in_memory);
    return __real_open(of_its_own, flags, mode);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (log_in_memory < 0) {  // log lines are formatted and dropped
        log_in_memory = memfd_create("log", MFD_CLOEXEC);
        g_logfile_fd = std::fopen("/dev/null", "w");
        g_max_logfile_size = INT_MAX;
        debug = 7;
    }
    const std::string log(reinterpret_cast<const char *>(data), size);
    set_log(log);
    restart();
    require(bw_log::rules_in_words() == bw_log::reader(log).text());

    bw_cache_fd = dup(log_in_memory);
    rewrite_all_txn();
    close(bw_cache_fd);
    bw_cache_fd = -1;
    const std::string rewritten = log_bytes();
    require(rewritten.size() % bw_log::RECORD == 0);
    restart();
    require(bw_log::rules_in_words() == bw_log::reader(rewritten).text());
    g_bw_queue_started = 1;  // as if a worker ran: what is queued stays
    take_one_more_station();
    while (dllist_t *const entry = dllist_delink_head(&bw_queue)) {
        free_bw_list_node(static_cast<bw_list_node *>(entry->value));
        std::free(entry);
    }
    return 0;
}
