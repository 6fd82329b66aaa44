// The queue of traffic-control commands and the worker that runs them. The worker exists only while there is work: an
// enqueue starts it, and it ends when the queue has stayed empty through a pause.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <span>
#include <sys/wait.h>
#include <unistd.h>

#include "debug_log.h"
#include "error_text.h"
#include "vap_profile_map.h"
#include "wl_bw.h"
#include "wl_bw_internal.h"

dllist_ctrl_t bw_queue;
pthread_mutex_t queue_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
pthread_t bw_thread;
uint8_t g_bw_queue_started;
uint8_t bw_thread_terminate;

namespace {

constexpr int TRIES = 5;
constexpr unsigned PAUSE_AFTER_TRY = 1;  // seconds
constexpr unsigned PAUSE_WHEN_IDLE = 5;  // seconds
constexpr int EXIT_SHELL_FAILED = 127;
constexpr mode_t CACHE_MODE = 0700;

// What bw_deinit waits for the worker: the longest run of a script that answers, or a pause.
constexpr int WAITS_FOR_WORKER = 3000;
constexpr useconds_t WAIT_FOR_WORKER = 10'000;  // microseconds

/// @return 0, or the error
int init_queue_mutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int error = pthread_mutex_init(&queue_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return error;
}

bw_list_node *take_head() {
    dllist_t *entry = dllist_delink_head(&bw_queue);
    if (entry == nullptr)
        return nullptr;
    auto *node = static_cast<bw_list_node *>(entry->value);
    std::free(entry);
    return node;
}

void drop_all() {
    while (bw_list_node *node = take_head())
        free_bw_list_node(node);
}

/// What the worker is to do next.
enum class next_step { run, go_on, end };

constexpr char WORKER[] = "bw_queue_process";

/// Called and left with the lock held. Gives a new command one pause to arrive; an empty queue and the mark that the
/// worker has ended are seen as one, so no command is left without a worker.
bool has_work_after_pause() {
    pthread_mutex_unlock(&queue_mutex);
    WL_LOG_AS(WORKER, 7, "No entries in bw queue to process going for sleep");
    sleep(PAUSE_WHEN_IDLE);
    pthread_mutex_lock(&queue_mutex);
    if (dllist_num_entries(&bw_queue) > 0)
        return true;
    WL_LOG_AS(WORKER, 7, "Exiting thread");
    g_bw_queue_started = 0;
    return false;
}

/// Takes the head of the queue and does what is done under the lock.
///
/// @param command   what is left to run
/// @param recorded  whether the command's own record has been written, whole
next_step take_command(std::span<char> command, bool &recorded) {
    const queue_lock lock;
    if (bw_thread_terminate != 0) {
        drop_all();
        WL_LOG_AS(WORKER, 7, "BW thread terminate enabled Exiting...");
        g_bw_queue_started = 0;
        return next_step::end;
    }
    if (dllist_num_entries(&bw_queue) == 0 && !has_work_after_pause())
        return next_step::end;
    bw_list_node *node = take_head();
    if (node == nullptr)
        return next_step::go_on;
    const uint8_t action = node->action;
    recorded = (action == BW_RECORD_AND_RUN || action == BW_RECORD) &&
               bw_write_txn(&node->bw_rule_info) == static_cast<int>(sizeof node->bw_rule_info);
    const bool runs = action == BW_RECORD_AND_RUN || action == BW_RUN;
    if (runs)
        (void)snprintf(command.data(), command.size(), "%s", node->rule);
    free_bw_list_node(node);
    return runs ? next_step::run : next_step::go_on;
}

void run_command(const char *command, bool recorded) {
    const int result = try_and_execute(command);
    const int error = errno;
    if (result == 0) {
        WL_LOG_AS(WORKER, 7, "Rule Applied.");
        return;
    }
    WL_LOG_AS(WORKER, 2, "Rule NOT Applied. Failed. try_and_execute returned [%d]. Error is [%s]", result,
              error_text(error));
    if (recorded)  // else the last record is another command's
        bw_rollback_last_txn();
}

void *bw_queue_process(void *) {
    static char command[1000];
    bool recorded = false;
    for (;;) {
        switch (take_command(command, recorded)) {
        case next_step::run:
            run_command(command, recorded);
            break;
        case next_step::go_on:
            break;
        case next_step::end:
            return nullptr;
        }
    }
}

/// @param raw  what system() returned
/// @return 0, the exit status, or -1
int judge(int raw) {
    if (raw == -1 || (WIFEXITED(raw) && WEXITSTATUS(raw) == EXIT_SHELL_FAILED)) {
        WL_LOG_AS("try_and_execute", 3, "BW: Could not execute BW Rules script");
        return -1;
    }
    if (!WIFEXITED(raw)) {
        WL_LOG_AS("try_and_execute", 3, "BW: BW Rules script did not exit normally");
        return -1;
    }
    if (WEXITSTATUS(raw) != 0)
        WL_LOG_AS("try_and_execute", 3, "BW: BW rules script returned with error %d", WEXITSTATUS(raw));
    return WEXITSTATUS(raw);
}

bool worker_has_ended() {
    for (int wait = 0; wait < WAITS_FOR_WORKER; wait++) {
        {
            const queue_lock lock;
            if (g_bw_queue_started == 0)
                return true;
        }
        usleep(WAIT_FOR_WORKER);
    }
    return false;
}

}  // namespace

int bw_init() {
    const int error = init_queue_mutex();
    if (error != 0) {
        WL_LOG(2, "Could not init mutex %s", error_text(error));
        return -1;
    }
    restore_profile_vap_cache();
    if (hash_table_init(&bw_profile_hash_t, BW_BUCKETS, &bw_profile_hash_fn, nullptr) == nullptr)
        return -1;
    restore_bw_cache();
    const int append = O_WRONLY | O_APPEND | O_CLOEXEC;
    bw_cache_fd = open(BW_CACHE_FILE, append);
    if (bw_cache_fd < 0)
        bw_cache_fd = open(BW_CACHE_FILE, append | O_CREAT, CACHE_MODE);
    if (bw_cache_fd < 0) {
        WL_LOG(3, "Failed to create file %s", BW_CACHE_FILE);
        return bw_cache_fd;
    }
    complete_last_record();
    return 1;
}

void bw_deinit() {
    {
        const queue_lock lock;
        bw_thread_terminate = 1;
    }
    // A worker that hangs in a script still needs the mutex when the script ends.
    if (worker_has_ended())
        pthread_mutex_destroy(&queue_mutex);
}

void bw_enqueue(const char *rule, const bw_rule_info *info, uint8_t action) {
    auto *node = static_cast<bw_list_node *>(std::calloc(1, sizeof(bw_list_node)));
    if (node == nullptr) {
        WL_LOG(3, "Cannot allocate memory for bw_list_node");
        return;
    }
    if (info != nullptr)
        node->bw_rule_info = *info;
    node->action = action;
    node->rule = strdup(rule);
    if (node->rule == nullptr) {
        WL_LOG(3, "Cannot allocate memory for bw rule");
        free_bw_list_node(node);
        return;
    }
    const queue_lock lock;
    if (dllist_insert_tail_new(&bw_queue, node) == nullptr) {
        WL_LOG(3, "Cannot allocate memory for bw_list_node");
        free_bw_list_node(node);
    }
}

int bw_queue_start() {
    const queue_lock lock;
    if (g_bw_queue_started != 0)
        return 0;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const int error = pthread_create(&bw_thread, &attributes, bw_queue_process, nullptr);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        WL_LOG(2, "Could not create bw thread %s", error_text(error));
        return -1;
    }
    WL_LOG(7, "Bw queue process thread starting");
    g_bw_queue_started = 1;
    return 0;
}

void free_bw_list_node(bw_list_node *node) {
    std::free(node->rule);
    std::free(node);
}

int try_and_execute(const char *command) {
    for (int tries_left = TRIES;; tries_left--) {
        WL_LOG(7, "Tries Left: %d. Executing - [%s]", tries_left, command);
        errno = 0;
        const int raw = std::system(command);
        const int result = judge(raw);
        sleep(PAUSE_AFTER_TRY);
        if (raw == 0 || tries_left == 1)
            return result;
    }
}
