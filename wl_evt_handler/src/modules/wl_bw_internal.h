/// What the sources of bandwidth control share: the rules and class ids (wl_bw_rules.cpp, wl_bw_classid.cpp), the
/// command lines (wl_bw_command.cpp), the queue and the worker that runs them (wl_bw_queue.cpp), the cache that
/// remembers them (wl_bw_cache.cpp) and the dumps (wl_bw_status.cpp).
///
/// The main thread owns the rules and is the only one to change them. The worker walks them when it rewrites the cache,
/// so every change is made with queue_mutex held; the mutex is recursive, because a change queues its command under it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <pthread.h>

#include "dllists.h"
#include "vre_hash_table.h"
#include "wl_common.h"

constexpr size_t BW_BUCKETS = 23;
constexpr int32_t BW_NO_LIMIT = -1;
constexpr uint8_t BW_HELD = 0;     // remembered, not in traffic control
constexpr uint8_t BW_APPLIED = 1;  // in traffic control
constexpr uint32_t BW_BSS_CLASS_ID = 1;
constexpr uint32_t BW_CLASS_IDS = 256;  // 0 to 255; as a class id itself: none is left
constexpr char BW_CACHE_FILE[] = "/tmp/.wl.bw_cache";

/// What the worker does with a queued request.
enum bw_action_t : uint8_t {
    BW_RECORD_AND_RUN = 1,  // record it, run the command, take the record back when the run fails
    BW_RUN = 2,
    BW_RECORD = 3,
};

/// The limit of one station, or of a BSS. A station's rule is its own key in the table.
struct bw_rule {
    uint8_t mac[6];
    uint8_t pri;
    uint8_t state;  // BW_HELD or BW_APPLIED
    uint32_t classid;
    int32_t up;
    int32_t down;
    char interface[17];  // VAP that the station is on; a restored one may fill its field without a NUL
};

/// The rules of one SSID profile. It is its own key in the table.
struct bw_profile {
    hash_table_t bw_sta_hash_t;  // bw_rule by MAC
    uint32_t profile_id;
    struct bw_rule bw_bss;
    uint64_t classid_bm[4];  // class ids in use: id n is bit n % 64 of word n / 64
    uint32_t last_classid;   // handed out last; the search for a free one begins behind it
};

/// One queued command.
struct bw_list_node {
    struct bw_rule_info bw_rule_info;  // the request; all zero when the command has none
    uint8_t action;                    // bw_action_t
    char *rule;                        // command line, heap text of the node's own
};

// --- rules (wl_bw_rules.cpp) ---

/// Profiles by id. Two ids that are congruent modulo BW_BUCKETS stand for one and the same profile.
extern hash_table_t bw_profile_hash_t;
extern const hash_table_funcs_t bw_profile_hash_fn;
extern const hash_table_funcs_t bw_sta_hash_fn;

/// Applies a set request to the tables and queues what follows from it. Takes queue_mutex.
///
/// @param req  its class id is filled in; the flags and the rest stay
void __bw_set_limit(bw_rule_info *req);

/// Applies a clear request to the tables and queues what follows from it. Takes queue_mutex.
///
/// @param req  its class id is filled in
void __bw_clr_limit(bw_rule_info *req);

/// Sets the limit of a profile's BSS unless one of higher priority, or the same one, is in force. The caller holds
/// queue_mutex.
void bw_set_bss_limit(bw_profile *profile, bw_rule_info *req);

/// Sets the limit of a station, or moves its rule between held and applied. The caller holds queue_mutex.
void bw_set_sta_limit(bw_profile *profile, bw_rule_info *req);

/// Moves a rule to another state. One that leaves traffic control is cleared there; the command that puts one into it
/// is the caller's. The caller holds queue_mutex.
void bw_stage_for_application(bw_rule *rule, uint32_t profile_id, uint8_t to_state);

/// The name of a rule's state in lines of the log and of the status dump.
inline const char *bw_state_name(uint8_t state) {
    return state == BW_APPLIED ? "APPLIED" : "HELD";
}

/// @return a new profile that is in no table, freed with bw_profile_hash_fn.free_value; null when memory is short
[[nodiscard]] bw_profile *create_bwp(uint32_t profile_id);

/// @return a new held rule without limits, freed with free(); null when memory is short
[[nodiscard]] bw_rule *create_bw_rule(const uint8_t *mac);

// --- class ids (wl_bw_classid.cpp) ---

/// Takes a class id for a new station rule: the next free one, or during a replay the one of the record.
///
/// @return the class id; BW_CLASS_IDS when none is left or the record's is taken
[[nodiscard]] uint32_t get_class_id(bw_profile *profile, const bw_rule_info *req);

/// Gives a class id back. Ids of 256 and above, which only a damaged cache holds, count modulo 256.
void release_class_id(bw_profile *profile, uint32_t classid);

// --- commands (wl_bw_command.cpp) ---

/// Builds the command line that sets (VRE_BW_SET) or clears a rule and queues it; does nothing during a replay.
///
/// @param bss_rule  1: the rule is the profile's BSS rule
/// @param req       request to record with the command; null for none
/// @return the result of bw_queue_start; non-zero during a replay
int tc_action(vre_iw_cmd_t e, const bw_rule *rule, uint32_t profile_id, uint8_t bss_rule, const bw_rule_info *req,
              bw_action_t action);

/// The first waiting command of action 1 or 2 for a station. The caller holds queue_mutex.
///
/// @param e  command of the request, VRE_BW_SET or VRE_BW_CLR
/// @return a node of the queue; null when there is none or an argument is null or 0
[[nodiscard]] dllist_t *find_node_for_sta(const dllist_ctrl_t *queue, const uint8_t *mac, uint32_t profile_id,
                                          const char *interface, vre_iw_cmd_t e);

/// Drops all waiting set commands of a station. The caller holds queue_mutex.
void clear_bw_rules_for_sta(const uint8_t *mac, uint32_t profile_id, const char *interface);

/// Whether two interface names are the same; each ends at its NUL or its size in bytes.
[[nodiscard]] bool same_interface(const char *one, size_t one_size, const char *other, size_t other_size);

// --- queue, worker and cache (wl_bw_queue.cpp, wl_bw_cache.cpp) ---

extern dllist_ctrl_t bw_queue;  // bw_list_node, first in first out

/// Guards the queue, the worker's flags, the rules against the worker, and the cache file. Recursive; usable without
/// bw_init too.
extern pthread_mutex_t queue_mutex;

extern pthread_t bw_thread;
extern uint8_t g_bw_queue_started;   // 1 while a worker exists
extern uint8_t bw_thread_terminate;  // 1 asks the worker to stop
extern int bw_cache_fd;              // -1 when closed
extern FILE *bw_cache_fp;
extern int g_num_clear_rules;  // clears recorded since the start or the last rewrite
extern int restoring_cache;    // 1 while the cache is replayed, which is before there is a worker

/// Appends a command to the queue; when memory is short it is dropped with a line in the log. Takes queue_mutex.
///
/// @param rule    command line, copied
/// @param info    request, copied; may be null
void bw_enqueue(const char *rule, const bw_rule_info *info, uint8_t action);

/// Starts the worker when there is none. Takes queue_mutex.
///
/// @return 0; -1 when the thread could not be created
int bw_queue_start();

/// Frees a queued command.
void free_bw_list_node(bw_list_node *node);

/// Appends one record to the cache, rewriting the cache from the rules first at every tenth clear. Nothing is written
/// during a replay. The caller holds queue_mutex.
///
/// @return bytes written; 0 during a replay, -1 when the write failed
int bw_write_txn(const bw_rule_info *record);

/// Takes the record that was written last back out of the cache.
void bw_rollback_last_txn();

/// Rewrites the cache from the rules. The caller holds queue_mutex.
void rewrite_all_txn();

/// Rebuilds the rules from the cache, running and recording nothing.
void restore_bw_cache();

/// Gives the part of a record that a kill within a write has left the zeros that the replay took for the rest, so that
/// what is appended to the open cache is read in step. Takes nothing away.
void complete_last_record();

/// Runs a command line through the shell, up to five times, a second after each.
///
/// @return 0, the script's last exit status, or -1
[[nodiscard]] int try_and_execute(const char *command);

/// Holds queue_mutex until the end of its scope.
class queue_lock {
public:
    queue_lock() {
        pthread_mutex_lock(&queue_mutex);
    }
    ~queue_lock() {
        pthread_mutex_unlock(&queue_mutex);
    }
    queue_lock(const queue_lock &) = delete;
    queue_lock &operator=(const queue_lock &) = delete;
};

/// One record of the cache in words: the line of the status dump and of the log.
#define BW_RECORD_FORMAT \
    "[Pri %d] [ProfId %d] [Evt %s] %.2X:%.2X:%.2X:%.2X:%.2X:%.2X\t(up = %d,down = %d)\t(classid = 0x%X) (%s) (%.17s)"

/// Its arguments. The record may come from a damaged cache: its interface need not end in a NUL.
#define BW_RECORD_ARGS(record)                                                                     \
    (record).pri, static_cast<int>((record).profile_id), (record).e == VRE_BW_SET ? "Set" : "Clr", \
        MAC_ARGS((record).mac), static_cast<int>((record).up), static_cast<int>((record).down),    \
        static_cast<unsigned>((record).classid), (record).bss_rule != 0 ? "BSS" : "STA", (record).interface
