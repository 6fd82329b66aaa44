/// Lets the tests of bandwidth control also run one after the other in one process: each finds what a process finds
/// that has just started in an empty sandbox.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <unistd.h>

#include "debug_log.h"
#include "fault.h"
#include "vap_profile_map.h"
#include "vap_table.h"
#include "wl_bw_internal.h"

/// Has a function run before each test.
///
/// @return true, for the variable whose initialization calls it
inline bool before_each_test(void (*action)()) {
    struct listener : testing::EmptyTestEventListener {
        void (*action)();
        void OnTestStart(const testing::TestInfo &) override {
            action();
        }
    };
    auto *const caller = new listener;
    caller->action = action;
    testing::UnitTest::GetInstance()->listeners().Append(caller);  // which deletes it
    return true;
}

inline void forget_all_limits() {
    while (dllist_t *const entry = dllist_delink_head(&bw_queue)) {
        free_bw_list_node(static_cast<bw_list_node *>(entry->value));
        free(entry);
    }
    hash_table_destroy(&bw_profile_hash_t);
    if (bw_cache_fd >= 0)
        close(bw_cache_fd);
    bw_cache_fd = -1;
    g_bw_queue_started = bw_thread_terminate = 0;
    g_num_clear_rules = restoring_cache = 0;
    queue_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    vap_count = 0;
    std::fill(std::begin(vap_array), std::end(vap_array), vap_info{});
    std::fill(std::begin(profile_id_for_vap), std::end(profile_id_for_vap), profile_vap_info{});
}

inline const bool starts_afresh = before_each_test([] {
    clear_faults();
    debug = 3;
    forget_all_limits();
    for (const char *const path : {"/tmp/.wl.bw_cache", "/tmp/.wl.bw_hash.dmp", "/tmp/.wl.bw_cache.dmp",
                                   "/tmp/.wl.vap_to_profile", "/tmp/sim", "/sbin/tc_wrapper.sh"})
        std::filesystem::remove_all(path);
});
